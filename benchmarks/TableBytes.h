#pragma once

#include <filesystem>
#include <string>
#include <sys/stat.h>

namespace Benchmarks {

/// What the files of the tables below a directory take of the tmpfs.
inline double tableBytes(const std::string& directory) {
    double bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        struct stat info {};
        if (stat(entry.path().c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
            bytes += static_cast<double>(info.st_blocks) * 512;
        }
    }
    return bytes;
}

} // namespace Benchmarks
