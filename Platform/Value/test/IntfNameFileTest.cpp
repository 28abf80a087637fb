#include "Platform/Value/IntfNameTable.h"
#include "Platform/Value/test/ExpectForms.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

namespace {

using Zinc::IntfNameTable;
namespace fs = std::filesystem;

/// A table of five names in a directory of its own.
class IntfNameFileTest : public ::testing::Test {
  protected:
    static constexpr size_t capacity = 5;
    static constexpr size_t firstRecord = 4096;

    IntfNameFileTest() {
        std::string pattern = fs::temp_directory_path() / "intfnamesXXXXXX";
        directory_ = mkdtemp(pattern.data());
        path_ = directory_ / "interface-names";
    }
    ~IntfNameFileTest() override { fs::remove_all(directory_); }

    auto owner(size_t names = capacity) const { return IntfNameTable::ownerOf(path_, names); }
    auto reader() const { return IntfNameTable::readerOf(path_); }

    std::string bytes() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    void bytesAre(const std::string& bytes) const {
        std::ofstream(path_, std::ios::binary) << bytes;
    }
    void patch(size_t offset, const std::string& with) const {
        std::fstream file(path_, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(static_cast<std::streamoff>(offset)) << with;
    }
    static constexpr size_t recordAt(size_t id) { return firstRecord + 64 * id; }

    void writeTwoNames() const {
        auto table = owner();
        table->idOf("Vlan10");
        table->idOf("Vlan20");
    }

    /// The reader refuses the file; the owner begins anew.
    void expectReplaced(const std::string& fault) const {
        try {
            reader();
            ADD_FAILURE() << "was read though " << fault;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), path_.string() + " is no table of interface names: " + fault);
        }
        expectEmptyForTheOwner();
    }
    void expectEmptyForTheOwner() const {
        auto table = owner();
        EXPECT_EQ(table->size(), 1u);
        EXPECT_EQ(table->idOf("new"), 1u);
        EXPECT_EQ(reader()->name(1), "new");
        EXPECT_EQ(files(), std::vector<std::string>{"interface-names"});
    }

    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory_)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    fs::path directory_;
    fs::path path_;
};

TEST_F(IntfNameFileTest, HasItsFullSizeAndTheLayoutThatIsWrittenDown) {
    auto table = owner();
    EXPECT_EQ(fs::file_size(path_), 4096u + 64 * capacity);
    EXPECT_EQ(table->idOf("Vlan10"), 1u);
    EXPECT_EQ(table->idOf(std::string(63, 'x')), 2u);

    std::string expected("VelaIntf", 8);
    for (uint64_t number : {uint64_t{1} | uint64_t{64} << 32, uint64_t{capacity}}) {
        for (int shift = 0; shift < 64; shift += 8) {
            expected += static_cast<char>(number >> shift);
        }
    }
    expected.resize(recordAt(1));
    expected += "\6Vlan10";
    expected.resize(recordAt(2));
    expected += '\77' + std::string(63, 'x');
    expected.resize(recordAt(capacity));
    EXPECT_EQ(bytes(), expected);
}

TEST_F(IntfNameFileTest, BlocksForAllNamesAreThereFromTheStart) {
    auto table = owner(1000);
    EXPECT_GE(fs::file_size(path_), 4096u + 64 * 1000);
    // A file with holes has fewer blocks than bytes.
    std::string command = "test $(stat -c '%b * %B' " + path_.string() + " | xargs expr) -ge 68096";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST_F(IntfNameFileTest, ReaderSeesWhatIsThereAndWhatIsAdded) {
    auto table = owner();
    table->idOf("Vlan10");
    auto other = reader();
    EXPECT_EQ(other->size(), 2u);
    EXPECT_EQ(other->name(0), "");
    EXPECT_EQ(other->name(1), "Vlan10");
    EXPECT_EQ(other->name(2), "?");
    EXPECT_EQ(other->idOf("Vlan10"), 1u);
    EXPECT_EQ(other->idOf(""), 0u);
    expectRangeError([&] { other->idOf("Vlan20"); },
                     "Zinc::IntfId::name of no known interface not allowed");
    EXPECT_EQ(table->size(), 2u);

    table->idOf("Vlan20");
    EXPECT_EQ(other->size(), 3u);
    EXPECT_EQ(other->name(2), "Vlan20");
    EXPECT_EQ(other->idOf("Vlan20"), 2u);
}

TEST_F(IntfNameFileTest, ReaderAnswersAQuestionMarkForAnyIdThatIsNone) {
    auto table = owner();
    auto other = reader();
    for (uint32_t id : {uint32_t{1}, uint32_t{capacity - 1}, uint32_t{capacity}, ~uint32_t{0}}) {
        EXPECT_EQ(other->name(id), "?") << id;
    }
    while (table->size() < capacity) {
        table->idOf("n" + std::to_string(table->size()));
    }
    EXPECT_EQ(other->size(), capacity);
    EXPECT_EQ(other->name(capacity - 1), "n4");
    EXPECT_EQ(other->name(capacity), "?");
    // Damaged under its eyes, it stays within bounds.
    patch(recordAt(1), "\xff");
    EXPECT_EQ(other->name(1), "?");
}

TEST_F(IntfNameFileTest, NextOwnerKeepsTheIdsAndContinues) {
    writeTwoNames();
    auto other = reader();
    auto table = owner();
    EXPECT_EQ(table->size(), 3u);
    EXPECT_EQ(table->name(1), "Vlan10");
    EXPECT_EQ(table->idOf("Vlan20"), 2u);
    EXPECT_EQ(table->idOf("Vlan30"), 3u);
    EXPECT_EQ(other->name(3), "Vlan30") << "the file is still the same";
    table->idOf("Vlan40");
    expectRangeError([&] { table->idOf("Vlan50"); }, "Zinc::IntfId::names > 5 not allowed");
    table.reset();
    EXPECT_EQ(owner()->size(), capacity);
}

TEST_F(IntfNameFileTest, ANameWithoutItsLengthWasNeverGiven) {
    writeTwoNames();
    patch(recordAt(3) + 1, std::string(63, 'z'));
    EXPECT_EQ(reader()->size(), 3u);
    EXPECT_EQ(reader()->name(3), "?");
    auto table = owner();
    EXPECT_EQ(table->idOf("short"), 3u);
    EXPECT_EQ(bytes().substr(recordAt(3), 64), "\5short" + std::string(58, '\0'));
    table.reset();
    EXPECT_EQ(owner()->size(), 4u);
}

TEST_F(IntfNameFileTest, DamagedFilesAreReplaced) {
    struct {
        size_t offset;
        std::string bytes;
        std::string fault;
    } const damages[] = {
        {0, "v", "it begins with something else"},
        {8, "\2", "its layout is of version 2 with 64 bytes per record"},
        {12, "\x20", "its layout is of version 1 with 32 bytes per record"},
        {16, "\6", "its 4416 bytes are not those of 6 names"},
        {16, std::string(1, '\0'), "its 4416 bytes are not those of 0 names"},
        {16, std::string(8, '\xff'), "its 4416 bytes are not those of 18446744073709551615 names"},
        {recordAt(0), "\1x", "name 0 is not the empty one"},
        {recordAt(1), "\100", "name 1 has 64 bytes"},
        {recordAt(1), "\5", "name 1 is longer than it says"},
        {recordAt(2) + 5, "1", "name 2 is that of 1"},
    };
    for (const auto& damage : damages) {
        fs::remove(path_);
        writeTwoNames();
        patch(damage.offset, damage.bytes);
        expectReplaced(damage.fault);
    }
}

TEST_F(IntfNameFileTest, ANameBehindAnUnusedOneIsDamageToTheOwner) {
    writeTwoNames();
    patch(recordAt(4), "\1x");
    EXPECT_EQ(reader()->size(), 3u) << "a reader cannot tell it from a name added meanwhile";
    expectEmptyForTheOwner();
}

TEST_F(IntfNameFileTest, EveryTruncatedFileIsReplaced) {
    writeTwoNames();
    const std::string whole = bytes();
    for (size_t size : {size_t{0}, size_t{1}, size_t{23}}) {
        bytesAre(whole.substr(0, size));
        expectReplaced("it is too short");
    }
    for (size_t size : {size_t{24}, firstRecord, recordAt(2), whole.size() - 1}) {
        bytesAre(whole.substr(0, size));
        expectReplaced("its " + std::to_string(size) + " bytes are not those of 5 names");
    }
    bytesAre(whole + "x");
    expectReplaced("its 4417 bytes are not those of 5 names");
}

TEST_F(IntfNameFileTest, ReplacingLeavesTheOldFileToItsReaders) {
    writeTwoNames();
    auto other = reader();
    auto table = owner(7);
    EXPECT_EQ(table->size(), 1u) << "of another capacity";
    table->idOf("Vlan99");
    EXPECT_EQ(other->name(1), "Vlan10");
    EXPECT_EQ(reader()->name(1), "Vlan99");
}

TEST_F(IntfNameFileTest, WhatIsNoFileIsReplacedOrRefused) {
    fs::create_symlink("elsewhere", path_);
    EXPECT_THROW(reader(), std::system_error);
    expectEmptyForTheOwner();
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path_)));

    fs::remove(path_);
    ASSERT_EQ(std::system(("mkfifo " + path_.string()).c_str()), 0);
    expectReplaced("it is no regular file");

    fs::remove(path_);
    fs::create_directory(path_);
    try {
        owner();
        ADD_FAILURE() << "took a directory";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::is_a_directory);
        EXPECT_EQ(error.what(), "interface names in " + path_.string() + ": Is a directory");
    }
    EXPECT_EQ(files(), std::vector<std::string>{"interface-names"}) << "nothing is left behind";
}

TEST_F(IntfNameFileTest, MissingFileOrDirectoryIsASystemError) {
    try {
        reader();
        ADD_FAILURE() << "read nothing";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    }
    EXPECT_THROW(IntfNameTable::ownerOf(directory_ / "no" / "such", capacity), std::system_error);
}

TEST_F(IntfNameFileTest, WhatADeadOwnerWasAboutToPutInPlaceDoesNotDisturb) {
    std::ofstream(path_.string() + ".new") << "half";
    expectEmptyForTheOwner();
}

} // namespace
