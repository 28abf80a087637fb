#include "Platform/StateDb/PersistedImage.h"

#include "Testing/TemporaryDirectory.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Vela {

namespace {

namespace fs = std::filesystem;

constexpr fs::perms readAndEnter{0555};

/// Steps down to a user whom permissions bind, if this one is not.
class OrdinaryUser {
  public:
    OrdinaryUser() {
        if (wasRoot_) {
            EXPECT_EQ(seteuid(65534), 0);
        }
    }
    ~OrdinaryUser() {
        if (wasRoot_) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

  private:
    const bool wasRoot_ = geteuid() == 0;
};

class PersistedImageTest : public ::testing::Test {
  protected:
    static constexpr size_t bytes = 16;

    std::string contents() const {
        std::ostringstream out;
        out << std::ifstream(path, std::ios::binary).rdbuf();
        return out.str();
    }
    void contentsAre(const std::string& text) const {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    }
    /// A file as another process leaves it, with 7 in its last byte.
    void leaveImage() const { PersistedImage(path, bytes).bytes().back() = 7; }

    static bool blank(const PersistedImage& image) {
        auto all = image.bytes();
        return all.size() == bytes &&
               std::all_of(all.begin(), all.end(), [](uint8_t byte) { return byte == 0; });
    }
    /// Expects that what is there is replaced by a blank image, which is kept in its turn.
    void expectReplaced(const std::string& why) const {
        {
            PersistedImage image(path, bytes);
            EXPECT_FALSE(image.found());
            EXPECT_EQ(image.replaced(), why);
            EXPECT_TRUE(blank(image));
            image.bytes()[3] = 42;
        }
        PersistedImage again(path, bytes);
        EXPECT_TRUE(again.found());
        EXPECT_EQ(again.replaced(), "");
        EXPECT_EQ(again.bytes()[3], 42);
        EXPECT_EQ(files(), 1u) << "nothing else is left behind";
    }
    size_t files() const {
        return static_cast<size_t>(
            std::distance(fs::directory_iterator(directory.path()), fs::directory_iterator()));
    }

    Testing::TemporaryDirectory directory;
    const std::string path = directory.path() + "/status";
};

TEST_F(PersistedImageTest, beginsWithZeros) {
    PersistedImage image(path, bytes);
    EXPECT_FALSE(image.found());
    EXPECT_EQ(image.replaced(), "");
    EXPECT_TRUE(blank(image));
    EXPECT_EQ(files(), 1u);
}

TEST_F(PersistedImageTest, takesUpWhatWasLeft) {
    {
        PersistedImage image(path, bytes);
        for (size_t i = 0; i < bytes; ++i) {
            image.bytes()[i] = static_cast<uint8_t>(255 - i);
        }
    }
    PersistedImage again(path, bytes);
    EXPECT_TRUE(again.found());
    EXPECT_EQ(again.replaced(), "");
    ASSERT_EQ(again.bytes().size(), bytes);
    for (size_t i = 0; i < bytes; ++i) {
        EXPECT_EQ(again.bytes()[i], 255 - i);
    }
}

TEST_F(PersistedImageTest, whatIsWrittenIsInTheFileAtOnce) {
    PersistedImage image(path, bytes);
    image.bytes()[0] = 0xa5;
    image.bytes()[bytes - 1] = 0x5a;
    std::string expected(64 + bytes, '\0');
    std::memcpy(expected.data(), "!QIMAGE1", 8);
    const uint32_t numbers[] = {1, bytes};
    std::memcpy(expected.data() + 8, numbers, sizeof numbers);
    expected[64] = '\xa5';
    expected[64 + bytes - 1] = '\x5a';
    EXPECT_EQ(contents(), expected);
}

TEST_F(PersistedImageTest, isAllocatedInFull) {
    constexpr size_t many = 1 << 20;
    PersistedImage image(path, many);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(static_cast<size_t>(status.st_size), 64 + many);
    EXPECT_GE(static_cast<size_t>(status.st_blocks) * 512, many);
}

TEST_F(PersistedImageTest, aForeignFileIsReplaced) {
    contentsAre(std::string(64 + bytes, 'x'));
    expectReplaced("is no image");
}

TEST_F(PersistedImageTest, aForeignFileIsNotWrittenTo) {
    std::string text(64 + bytes, 'x');
    contentsAre(text);
    fs::create_hard_link(path, directory.path() + "/theirs");
    PersistedImage image(path, bytes);
    std::ranges::fill(image.bytes(), uint8_t{1});
    std::ostringstream theirs;
    theirs << std::ifstream(directory.path() + "/theirs").rdbuf();
    EXPECT_EQ(theirs.str(), text);
}

TEST_F(PersistedImageTest, aShorterFileIsReplaced) {
    leaveImage();
    const std::string whole = contents();
    ASSERT_EQ(whole.size(), 64 + bytes);
    for (size_t length : {0, 1, 8, 16, 63, 64, 65, 79}) {
        contentsAre(whole.substr(0, length));
        expectReplaced(length < 64 ? "is no image" : "has another size");
    }
}

TEST_F(PersistedImageTest, aLongerFileIsReplaced) {
    leaveImage();
    contentsAre(contents() + '\0');
    expectReplaced("has another size");
}

TEST_F(PersistedImageTest, anImageOfAnotherSizeIsReplaced) {
    { PersistedImage larger(path, bytes + 1); }
    expectReplaced("has another size");
    fs::remove(path);
    { PersistedImage smaller(path, bytes - 1); }
    expectReplaced("has another size");
}

TEST_F(PersistedImageTest, everyChangeOfWhatItsHeaderSaysIsNoticed) {
    leaveImage();
    const std::string whole = contents();
    for (size_t at = 0; at < 16; ++at) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 0x10);
        contentsAre(changed);
        PersistedImage image(path, bytes);
        EXPECT_FALSE(image.found()) << "byte " << at;
        EXPECT_TRUE(image.replaced().starts_with(at < 8    ? "is no image"
                                                 : at < 12 ? "has layout version "
                                                           : "has another size"))
            << "byte " << at << ": " << image.replaced();
        EXPECT_TRUE(blank(image)) << "byte " << at;
    }
}

TEST_F(PersistedImageTest, anotherLayoutIsNamed) {
    leaveImage();
    std::string changed = contents();
    changed[8] = 2;
    contentsAre(changed);
    expectReplaced("has layout version 2");
}

TEST_F(PersistedImageTest, aFifoIsReplacedWithoutWaitingForItsOtherEnd) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expectReplaced("is no image");
}

TEST_F(PersistedImageTest, aDanglingLinkIsReplacedAndNotFollowed) {
    fs::create_symlink(directory.path() + "/elsewhere", path);
    PersistedImage image(path, bytes);
    EXPECT_FALSE(image.found());
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
    EXPECT_FALSE(fs::exists(directory.path() + "/elsewhere"));
}

TEST_F(PersistedImageTest, whatAnInterruptedStartLeftIsReplaced) {
    std::ofstream(path + ".new") << "half";
    { PersistedImage image(path, bytes); }
    EXPECT_EQ(files(), 1u);

    fs::remove(path);
    fs::create_symlink(directory.path() + "/elsewhere", path + ".new");
    { PersistedImage image(path, bytes); }
    EXPECT_EQ(files(), 1u);
}

TEST_F(PersistedImageTest, aDirectoryInItsPlaceIsLeftAlone) {
    fs::create_directories(path + "/theirs");
    try {
        PersistedImage image(path, bytes);
        ADD_FAILURE() << "no error";
    } catch (const std::system_error& error) {
        EXPECT_TRUE(std::string(error.what()).starts_with(path + ": cannot be put in place"))
            << error.what();
    }
    EXPECT_TRUE(fs::exists(path + "/theirs"));
    EXPECT_EQ(files(), 1u) << "nothing half-made is left behind";
}

TEST_F(PersistedImageTest, aFileThatCannotBeReadIsReplaced) {
    leaveImage();
    fs::permissions(path, fs::perms::none);
    fs::permissions(directory.path(), fs::perms::all);
    OrdinaryUser user;
    expectReplaced("Permission denied");
}

TEST_F(PersistedImageTest, aDirectoryThatCannotBeWrittenToIsAnError) {
    fs::permissions(directory.path(), readAndEnter);
    OrdinaryUser user;
    try {
        PersistedImage image(path, bytes);
        ADD_FAILURE() << "no error";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::permission_denied);
        EXPECT_TRUE(std::string(error.what()).starts_with(path + ": cannot be created"))
            << error.what();
    }
    EXPECT_EQ(files(), 0u);
}

TEST_F(PersistedImageTest, anImageInADirectoryThatCannotBeWrittenToIsTakenUp) {
    leaveImage();
    fs::permissions(path, fs::perms::all);
    fs::permissions(directory.path(), readAndEnter);
    OrdinaryUser user;
    PersistedImage image(path, bytes);
    EXPECT_TRUE(image.found());
    EXPECT_EQ(image.bytes().back(), 7);
}

TEST_F(PersistedImageTest, aDirectoryThatIsNotThereIsAnError) {
    EXPECT_THROW(PersistedImage(directory.path() + "/none/status", bytes), std::system_error);
    EXPECT_EQ(files(), 0u);
}

TEST_F(PersistedImageTest, twoObjectsShareTheBytes) {
    PersistedImage one(path, bytes);
    PersistedImage other(path, bytes);
    one.bytes()[5] = 9;
    EXPECT_EQ(other.bytes()[5], 9);
}

TEST_F(PersistedImageTest, aFileThatIsRemovedStaysMapped) {
    auto image = std::make_unique<PersistedImage>(path, bytes);
    fs::remove(path);
    image->bytes()[0] = 1;
    PersistedImage another(path, bytes);
    EXPECT_FALSE(another.found());
    EXPECT_TRUE(blank(another));
    EXPECT_EQ(image->bytes()[0], 1);
}

} // namespace

} // namespace Vela
