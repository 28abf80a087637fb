#pragma once

#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogFormat.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Platform/Trace/SwiftlogType.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace Vela {

/// A directory of its own per test, and no ring-buffer file in use before or after.
class SwiftlogFixture : public testing::Test {
  protected:
    SwiftlogFixture() {
        std::string pattern =
            std::filesystem::temp_directory_path() / ("swiftlog" + std::string(6, 'X'));
        directory_ = mkdtemp(pattern.data());
        setenv("SWIFTLOGDIR", directory_.c_str(), 1);
    }
    ~SwiftlogFixture() override {
        Swiftlog::close();
        unsetenv("SWIFTLOGDIR");
        std::filesystem::remove_all(directory_);
    }

    std::string path(const std::string& name) const { return directory_ + "/" + name; }

    /// Rings of `kiB` for the first levels and none for the others: a small file.
    static SwiftlogConfig config(std::vector<unsigned> kiB = {8}) {
        kiB.resize(SwiftlogFormat::levels);
        return {.fileName = "test.sl", .levelKiB = kiB, .typeAreaKiB = 4};
    }

    static std::vector<uint8_t> bytesOf(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    static std::vector<std::string> texts(const SwiftlogReader& reader) {
        std::vector<std::string> texts;
        for (const SwiftlogRecord& record : reader.records()) {
            texts.push_back(record.text());
        }
        return texts;
    }

    static std::vector<std::string> texts(const std::string& path) {
        SwiftlogReader reader(path);
        EXPECT_EQ(reader.problems(), std::vector<std::string>{});
        return texts(reader);
    }

    std::string directory_;
};

struct Number {
    uint64_t value;
};

inline const SwiftlogType<Number>& numberRecord() {
    static const SwiftlogType<Number> record{
        "Platform/Trace/Number", "number", 0, {{"n=", &Number::value}}};
    return record;
}

inline std::vector<std::string> numberTexts(uint64_t first, uint64_t last) {
    std::vector<std::string> texts;
    for (uint64_t n = first; n <= last; ++n) {
        texts.push_back("n=" + std::to_string(n));
    }
    return texts;
}

} // namespace Vela
