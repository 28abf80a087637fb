#include "Host/RuntimeDirectory.h"

#include "Host/StartError.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Host {

namespace {

[[noreturn]] void fail(const std::string& what, int error) {
    throw StartError(what + ": " + std::strerror(error));
}

void createDirectories(const std::filesystem::path& path) {
    std::filesystem::path sofar;
    for (const auto& part : path) {
        sofar /= part;
        if (mkdir(sofar.c_str(), 0755) != 0) {
            // What is there already may refuse for other reasons, too (a read-only file system).
            int error = errno;
            struct stat status {};
            if (stat(sofar.c_str(), &status) != 0) {
                fail("runtime directory " + sofar.string(), error);
            }
            if (!S_ISDIR(status.st_mode)) {
                fail("runtime directory " + sofar.string(), ENOTDIR);
            }
        }
    }
}

/// Whoever wrote it may be about to, or an operator may have put anything there.
std::string holder(int lock) {
    std::array<char, 16> text{};
    ssize_t count = pread(lock, text.data(), text.size() - 1, 0);
    size_t digits = count > 0 ? std::strspn(text.data(), "0123456789") : 0;
    return digits > 0 ? "process " + std::string(text.data(), digits) : "a process unknown";
}

} // namespace

RuntimeDirectory::RuntimeDirectory(std::string path) : path_(std::move(path)) {
    if (path_.empty()) {
        throw StartError("runtime directory: no path is given");
    }
    createDirectories(path_);
    const std::string file = this->path("lock");
    lock_.reset(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644));
    if (!lock_) {
        fail(file, errno);
    }
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            fail(file, errno);
        }
        throw StartError(file + " is held by " + holder(lock_.get()) +
                         ": another arpsupd runs in this directory");
    }
    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(lock_.get(), 0) != 0 ||
        pwrite(lock_.get(), pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        fail(file, errno);
    }
}

} // namespace Host
