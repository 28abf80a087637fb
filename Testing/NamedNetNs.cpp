#include "Testing/NamedNetNs.h"

#include "Testing/IpCommand.h"
#include "Testing/VethPort.h"

#include <cerrno>
#include <exception>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <system_error>
#include <utility>

namespace Testing {

void enterOwnNamespaces() {
    enterOwnNetworkNamespace();
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("run", "/run", "tmpfs", 0, nullptr) != 0) {
        throw std::system_error(errno, std::generic_category(), "a /run of its own");
    }
    std::filesystem::create_directory("/run/netns");
}

NamedNetNs::NamedNetNs(std::string name) : name_(std::move(name)) {
    Testing::ip({"netns", "add", name_});
}

NamedNetNs::~NamedNetNs() {
    try {
        Testing::ip({"netns", "del", name_});
    } catch (const std::exception&) {
        // The test has done that.
    }
}

std::string NamedNetNs::ip(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"-n", name_});
    return Testing::ip(arguments);
}

} // namespace Testing
