#include "Platform/Base/FileText.h"

#include "Platform/Base/UniqueFd.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Vela {

namespace {

[[noreturn]] void failWith(int error) {
    throw std::runtime_error("cannot be read: " + std::generic_category().message(error));
}

} // namespace

std::optional<std::string> readFileText(const std::string& path, size_t maxBytes) {
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return std::nullopt;
        }
        failWith(errno);
    }
    struct stat status;
    if (fstat(fd.get(), &status) != 0) {
        failWith(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error("is no regular file");
    }

    // The size is not asked for: the file may grow while it is read.
    std::string text;
    size_t length = 0;
    while (length <= maxBytes) {
        text.resize(std::min(length + 65536, maxBytes + 1));
        ssize_t count = read(fd.get(), text.data() + length, text.size() - length);
        if (count < 0 && errno != EINTR) {
            failWith(errno);
        }
        if (count == 0) {
            text.resize(length);
            return text;
        }
        length += count > 0 ? static_cast<size_t>(count) : 0;
    }
    throw std::runtime_error("is longer than " + std::to_string(maxBytes) + " bytes");
}

} // namespace Vela
