#include "Platform/Base/NetNs.h"

#include "Platform/Base/Assert.h"

#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <system_error>

namespace Vela {

namespace {

[[noreturn]] void fail(int error, const std::string& netNs) {
    throw std::system_error(error, std::generic_category(), "network namespace " + netNs);
}

UniqueFd open(const std::string& path, const std::string& netNs) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) {
        fail(errno, netNs);
    }
    return fd;
}

} // namespace

NetNsGuard::NetNsGuard(const std::string& netNs) {
    if (netNs.empty() || netNs == "default") {
        return;
    }
    // A file name, and not a way to somewhere else.
    if (netNs == "." || netNs == ".." || netNs.find('/') != std::string::npos ||
        netNs.find('\0') != std::string::npos) {
        fail(EINVAL, netNs);
    }
    UniqueFd entered = open("/run/netns/" + netNs, netNs);
    UniqueFd previous = open("/proc/thread-self/ns/net", netNs);
    if (setns(entered.get(), CLONE_NEWNET) != 0) {
        fail(errno, netNs);
    }
    previous_ = std::move(previous);
}

NetNsGuard::~NetNsGuard() {
    // A thread that could not come back would go on with another switch's sockets.
    assertThat(!previous_ || setns(previous_.get(), CLONE_NEWNET) == 0,
               "!previous_ || setns(previous_.get(), CLONE_NEWNET) == 0");
}

} // namespace Vela
