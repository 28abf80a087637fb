#include "Testing/TemporaryDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace Testing {

TemporaryDirectory::TemporaryDirectory()
    : path_(std::filesystem::temp_directory_path() / "arpsup-test-XXXXXX") {
    if (!mkdtemp(path_.data())) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp " + path_);
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace Testing
