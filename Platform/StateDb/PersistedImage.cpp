#include "Platform/StateDb/PersistedImage.h"

#include "Platform/Base/UniqueFd.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Vela {

namespace {

struct Header {
    uint64_t magic;
    uint32_t layoutVersion;
    uint32_t bytes;
    uint8_t unused[48];
};
static_assert(sizeof(Header) == 64);

constexpr uint64_t imageMagic = 0x3145'4741'4D49'5121; // "!QIMAGE1"
constexpr uint32_t imageVersion = 1;

[[noreturn]] void fail(const std::string& path, const char* what, int error) {
    throw std::system_error(error, std::generic_category(), path + ": " + what);
}

/// What keeps an open file from being an image, or an empty text.
std::string faultOf(int fd, size_t bytes) {
    Header header{};
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) ||
        pread(fd, &header, sizeof header, 0) != ssize_t{sizeof header} ||
        header.magic != imageMagic) {
        return "is no image";
    }
    if (header.layoutVersion != imageVersion) {
        return "has layout version " + std::to_string(header.layoutVersion);
    }
    if (header.bytes != bytes || static_cast<size_t>(status.st_size) != sizeof header + bytes) {
        return "has another size";
    }
    return {};
}

UniqueFd makeImage(const std::string& path, size_t bytes) {
    std::string unfinished = path + ".new";
    unlink(unfinished.c_str());
    UniqueFd fd(open(unfinished.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd) {
        fail(path, "cannot be created", errno);
    }
    auto giveUp = [&](const char* what, int error) {
        unlink(unfinished.c_str());
        fail(path, what, error);
    };
    Header header{imageMagic, imageVersion, static_cast<uint32_t>(bytes), {}};
    if (int error = posix_fallocate(fd.get(), 0, static_cast<off_t>(sizeof header + bytes))) {
        giveUp("cannot be allocated", error);
    }
    if (pwrite(fd.get(), &header, sizeof header, 0) != ssize_t{sizeof header} ||
        rename(unfinished.c_str(), path.c_str()) != 0) {
        giveUp("cannot be put in place", errno);
    }
    return fd;
}

} // namespace

PersistedImage::PersistedImage(std::string path, size_t bytes) : path_(std::move(path)) {
    UniqueFd fd(open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (fd) {
        replaced_ = faultOf(fd.get(), bytes);
        found_ = replaced_.empty();
    } else if (errno != ENOENT) {
        replaced_ = std::strerror(errno);
    }
    if (!found_) {
        fd = makeImage(path_, bytes);
    }
    map(fd.get(), bytes);
}

PersistedImage::~PersistedImage() {
    munmap(base_, sizeof(Header) + bytes_.size());
}

void PersistedImage::map(int fd, size_t bytes) {
    base_ = mmap(nullptr, sizeof(Header) + bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (base_ == MAP_FAILED) {
        fail(path_, "cannot be mapped", errno);
    }
    bytes_ = {static_cast<uint8_t*>(base_) + sizeof(Header), bytes};
}

} // namespace Vela
