#include "Platform/Quarry/AttachedTable.h"
#include "Platform/Quarry/test/QuarryFixture.h"
#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace Quarry {

namespace {

using TableServiceTest = QuarryFixture;
using Attached = AttachedTable<NumberRecord>;

struct OtherRecord {
    using Key = NumberKey;
    static constexpr const char* recordType = "Quarry::OtherRecord";
    static constexpr const char* tableType = "Quarry::OtherTable";
    static constexpr const char* name = "other";
    NumberKey key;
};
using OtherTable = TableOf<OtherRecord>;

TEST_F(TableServiceTest, aGroupIsReadyOnceItIsClosedAndWhatItReadsIsComplete) {
    auto writing = service->mountGroup();
    group->mount<NumberTable>("a", MountType::reader);
    group->mount<NumberTable>("b", MountType::reader);
    writing->mount<NumberTable>("a", MountType::writer);
    writing->mount<NumberTable>("b", MountType::writer);
    int announced = 0;
    auto reaction = group->readyAttribute().react(nullptr, [&] { ++announced; });
    writing->close();
    EXPECT_TRUE(writing->ready()) << "a writer does not wait";
    group->close();
    EXPECT_FALSE(group->ready());
    writing->entity<NumberTable>("a")->completeIs(true);
    EXPECT_FALSE(group->ready());
    writing->entity<NumberTable>("b")->completeIs(true);
    EXPECT_TRUE(group->ready());
    EXPECT_EQ(announced, 1);
    writing->entity<NumberTable>("b")->completeIs(false);
    EXPECT_FALSE(group->ready());
    EXPECT_EQ(announced, 2);
    group->unmount("b");
    EXPECT_TRUE(group->ready()) << "it does not read that one any more";
    writing->destroy();
}

TEST_F(TableServiceTest, aGroupThatIsNotClosedIsNotReady) {
    auto table = mountWriter();
    table->completeIs(true);
    EXPECT_FALSE(group->ready());
    group->close();
    EXPECT_TRUE(group->ready());
}

TEST_F(TableServiceTest, aReaderMountedBeforeTheWriterSeesWhatItWrites) {
    auto reading = service->mountGroup();
    reading->mount<NumberTable>("numbers", MountType::reader);
    auto reader = reading->entity<const NumberTable>("numbers");
    ASSERT_TRUE(reader);
    EXPECT_FALSE(reader->complete());
    uint64_t heard = 0;
    auto reaction =
        reader->number().react(nullptr, [&](const NumberKey& key) { heard = key.number; });
    auto writer = mountWriter();
    ASSERT_EQ(writer, reader);
    writer->number().set({{4}, 5});
    EXPECT_EQ(reader->number().value({4}).value, 5u);
    runUntilIdle();
    EXPECT_EQ(heard, 4u);
    reading->destroy();
}

TEST_F(TableServiceTest, onlyAWriterGetsATableThatItCanChange) {
    auto writing = service->mountGroup();
    writing->mount<NumberTable>("numbers", MountType::writer);
    group->mount<NumberTable>("numbers", MountType::reader);
    EXPECT_TRUE(writing->entity<NumberTable>("numbers"));
    EXPECT_TRUE(writing->entity<const NumberTable>("numbers"));
    EXPECT_FALSE(group->entity<NumberTable>("numbers"));
    EXPECT_TRUE(group->entity<const NumberTable>("numbers"));
    EXPECT_FALSE(group->entity<const OtherTable>("numbers"));
    EXPECT_FALSE(group->entity<const NumberTable>("elsewhere"));
    writing->destroy();
}

TEST_F(TableServiceTest, aMountOfAnotherTypeIsRefused) {
    mountWriter();
    Testing::TraceCapture lines("Quarry=0");
    auto other = service->mountGroup();
    other->mount<OtherTable>("numbers", MountType::reader);
    EXPECT_FALSE(other->entity<const OtherTable>("numbers"));
    EXPECT_FALSE(other->entity<const NumberTable>("numbers"));
    EXPECT_EQ(lines.count("cannot mount numbers as Quarry::OtherTable: it is a "
                          "Quarry::NumberTable"),
              1u);
    other->close();
    EXPECT_FALSE(other->ready()) << "what it wants is not there";
    Vela::DumpContext dump;
    other->dumpState(dump, 0);
    EXPECT_EQ(dump.text(), "Quarry::MountGroup ready=no\n"
                           "  reader numbers complete=not mounted\n");
    other->unmount("numbers");
    EXPECT_TRUE(other->ready());
    EXPECT_FALSE(group->entity<NumberTable>("numbers")->destroyed()) << "the mount is another's";
    other->destroy();
}

TEST_F(TableServiceTest, aTableThatCannotBeMadeIsReportedAndNotMounted) {
    std::ofstream(directory.path() + "/numbers") << "a file where the directory should be";
    Testing::TraceCapture lines("Quarry=0");
    group->mount<NumberTable>("numbers", MountType::writer);
    EXPECT_FALSE(group->entity<NumberTable>("numbers"));
    EXPECT_EQ(lines.count("cannot mount numbers"), 1u);
    group->close();
    EXPECT_FALSE(group->ready());
}

TEST_F(TableServiceTest, aTableLastsUntilItsLastMount) {
    auto reading = service->mountGroup();
    auto table = mountWriter();
    reading->mount<NumberTable>("numbers", MountType::reader);
    Attached attached(file());
    table->number().set({{1}, 1});
    group->unmount("numbers");
    EXPECT_FALSE(table->destroyed());
    EXPECT_FALSE(attached.closed());
    reading->destroy();
    EXPECT_TRUE(table->destroyed());
    EXPECT_TRUE(attached.closed());
    EXPECT_EQ(attached.value({1}).value, 1u);
    EXPECT_FALSE(group->entity<NumberTable>("numbers"));
    group->unmount("numbers"); // again: nothing happens
}

TEST_F(TableServiceTest, aTableIsMountedAnewInANewFile) {
    auto table = mountWriter();
    table->number().set({{1}, 1});
    group->unmount("numbers");
    auto again = mountWriter();
    ASSERT_TRUE(again);
    EXPECT_NE(again, table);
    EXPECT_EQ(again->number().count(), 0u);
    EXPECT_TRUE(table->number().has({1}));
}

TEST_F(TableServiceTest, declaredSizeCountsAndAllOfItIsAllocated) {
    group->mount<NumberTable>("small", MountType::writer, {{"number", 58, false}});
    group->mount<NumberTable>("large", MountType::writer, {{"number", 100'000, false}});
    group->mount<NumberTable>("growing", MountType::writer, {{"number", 100'000, true}});
    auto table = group->entity<NumberTable>("small");
    for (uint64_t number = 0; number < 58; ++number) {
        EXPECT_TRUE(table->number().set({{number}, number}));
    }
    EXPECT_FALSE(table->number().set({{58}, 58}));
    EXPECT_EQ(table->number().count(), 58u);
    EXPECT_TRUE(table->number().set({{57}, 0}));

    auto allocated = [&](const char* path) {
        struct stat status {};
        EXPECT_EQ(stat(file(path).c_str(), &status), 0);
        return std::pair(static_cast<uint64_t>(status.st_blocks) * 512 >=
                             static_cast<uint64_t>(status.st_size),
                         status.st_size);
    };
    EXPECT_TRUE(allocated("small").first);
    EXPECT_TRUE(allocated("large").first);
    EXPECT_FALSE(allocated("growing").first);
    EXPECT_EQ(allocated("growing").second, allocated("large").second) << "full size at once";
}

TEST_F(TableServiceTest, aDeclarationThatComesTooLateIsReported) {
    auto reading = service->mountGroup();
    reading->mount<NumberTable>("numbers", MountType::reader);
    Testing::TraceCapture lines("Quarry=0");
    group->mount<NumberTable>("numbers", MountType::writer, {{"number", 58, false}});
    EXPECT_EQ(lines.count("number was made before its declaration: it holds 4096, not 58"), 1u);
    EXPECT_TRUE(group->entity<NumberTable>("numbers"));
    reading->destroy();
}

TEST_F(TableServiceTest, anOldFileIsReplacedAndItsReadersKeepIt) {
    auto table = mountWriter();
    table->number().set({{1}, 10});
    table->completeIs(true);
    Attached old(file());
    EXPECT_TRUE(old.complete());
    EXPECT_EQ(old.writerPid(), static_cast<uint32_t>(getpid()));

    // As after a crash: the first service still believes that it is the writer.
    auto successor = Vela::make<TableService>(scheduler(), directory.path());
    auto successors = successor->mountGroup();
    successors->mount<NumberTable>("numbers", MountType::writer);
    successors->entity<NumberTable>("numbers")->number().set({{1}, 20});
    EXPECT_TRUE(old.closed());
    EXPECT_EQ(old.value({1}).value, 10u);
    Attached current(file());
    EXPECT_FALSE(current.closed());
    EXPECT_FALSE(current.complete());
    EXPECT_NE(current.generation(), old.generation());
    EXPECT_EQ(current.value({1}).value, 20u);
    successors->destroy();
    successor->destroy();
}

TEST_F(TableServiceTest, filesOutliveTheService) {
    auto table = mountWriter();
    table->number().set({{1}, 10});
    const uint64_t changes = Attached(file()).changes();
    EXPECT_EQ(changes, 1u);
    service->destroy();
    EXPECT_TRUE(table->destroyed());
    Attached attached(file());
    EXPECT_TRUE(attached.closed());
    EXPECT_EQ(attached.value({1}).value, 10u);
    EXPECT_EQ(attached.changes(), changes);
    EXPECT_EQ(attached.trouble(), Outcome::absent);
}

TEST_F(TableServiceTest, noUnfinishedFileStaysBehind) {
    mountWriter();
    std::filesystem::create_directory(file("elsewhere").substr(0, file("elsewhere").rfind('/')));
    std::filesystem::create_directory(file("elsewhere"));
    group->mount<NumberTable>("elsewhere", MountType::writer);
    EXPECT_FALSE(group->entity<NumberTable>("elsewhere"));
    size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path())) {
        files += entry.is_regular_file();
    }
    EXPECT_EQ(files, 1u);
}

/// The second collection's file cannot be made where a test has put a directory.
class PairTable final : public Table {
  public:
    static constexpr const char* tableType = "Quarry::PairTable";
    explicit PairTable(const TableSite& site)
        : Table(site), first_(*this, "number", 10), second_(*this, "second", 10) {}
    const char* typeName() const noexcept override { return tableType; }

  private:
    TableCollection<NumberRecord> first_;
    TableCollection<NumberRecord> second_;
};

TEST_F(TableServiceTest, halfATableIsClosed) {
    std::filesystem::create_directories(file("pair", "second"));
    group->mount<PairTable>("pair", MountType::writer);
    EXPECT_FALSE(group->entity<PairTable>("pair"));
    EXPECT_TRUE(Attached(file("pair")).closed());
}

TEST_F(TableServiceTest, dumps) {
    auto table = mountWriter();
    table->number().set({{1}, 1});
    Vela::DumpContext dump;
    service->dumpState(dump, 0);
    EXPECT_NE(dump.text().find("Quarry::NumberTable numbers complete=no"), std::string::npos);
    EXPECT_NE(dump.text().find("number[] #1 capacity=4096 changes=1 refusals=0 troubles=0"),
              std::string::npos)
        << dump.text();
}

} // namespace

} // namespace Quarry
