// Feeds every file of the given folders to a fuzz target, so that what a fuzzer once found is
// tried by each run of the tests.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void replay(const std::filesystem::path& path) {
    std::printf("%s\n", path.c_str());
    std::fflush(stdout); // names the input at fault if the target crashes

    // Exactly as large as the input: the address sanitizer sees a read of one byte too many.
    size_t size = std::filesystem::file_size(path);
    auto data = std::make_unique<uint8_t[]>(size);
    std::ifstream file(path, std::ios::binary);
    if (size != 0 && !file.read(reinterpret_cast<char*>(data.get()), std::streamsize(size))) {
        throw std::runtime_error("cannot read " + path.string());
    }
    LLVMFuzzerTestOneInput(data.get(), size);
}

void replayFolder(const std::filesystem::path& folder) {
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            replay(entry.path());
            ++files;
        }
    }
    if (files == 0) {
        throw std::runtime_error("no file in " + folder.string());
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FOLDER...\n", argv[0]);
        return 2;
    }
    try {
        for (int i = 1; i < argc; ++i) {
            replayFolder(argv[i]);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
