#include "Platform/Base/FileText.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>

namespace Vela {
namespace {

class FileTextTest : public testing::Test {
  protected:
    FileTextTest() {
        std::string pattern =
            std::filesystem::temp_directory_path() / ("fileText" + std::string(6, 'X'));
        directory_ = mkdtemp(pattern.data());
    }
    ~FileTextTest() override { std::filesystem::remove_all(directory_); }

    std::string write(std::string_view text) const {
        std::ofstream(directory_ + "/file") << text;
        return directory_ + "/file";
    }
    static std::string errorOf(const std::string& path, size_t maxBytes) {
        try {
            readFileText(path, maxBytes);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    }

    std::string directory_;
};

TEST_F(FileTextTest, GivesTheWholeFile) {
    EXPECT_EQ(readFileText(write(""), 10), "");
    EXPECT_EQ(readFileText(write(std::string("a\0b\n", 4)), 10), std::string("a\0b\n", 4));
    std::string big(300'000, 'x');
    big.back() = 'y';
    EXPECT_EQ(readFileText(write(big), big.size()), big);
}

TEST_F(FileTextTest, LengthIsBounded) {
    EXPECT_EQ(readFileText(write("0123456789"), 10), "0123456789");
    EXPECT_EQ(errorOf(write("0123456789a"), 10), "is longer than 10 bytes");
    EXPECT_EQ(errorOf("/dev/zero", 10), "is no regular file");
}

TEST_F(FileTextTest, AnAbsentFileIsNoError) {
    EXPECT_EQ(readFileText(directory_ + "/none", 10), std::nullopt);
    EXPECT_EQ(readFileText(write("") + "/none", 10), std::nullopt);
}

TEST_F(FileTextTest, WhatCannotBeReadSaysWhy) {
    EXPECT_EQ(errorOf(directory_, 10), "is no regular file");
    EXPECT_EQ(errorOf("/" + std::string(300, 'x'), 10), "cannot be read: File name too long");
}

} // namespace
} // namespace Vela
