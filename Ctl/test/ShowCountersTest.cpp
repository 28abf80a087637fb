#include "Ctl/ShowCounters.h"

#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Quarry/TableFormat.h"
#include "Platform/Quarry/TableService.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>

namespace Ctl {
namespace {

namespace fs = std::filesystem;
using ArpSuppression::ArpSuppressionCounterId;
using ArpSuppression::ArpSuppressionCounterStatus;

class ShowCountersTest : public Testing::CoreFixture {
  protected:
    ~ShowCountersTest() override {
        group_->destroy();
        service_->destroy();
    }

    /// What the agent does.
    void mount() {
        group_->mount<ArpSuppressionCounterStatus>(
            "arpSuppression/counter", Quarry::MountType::writer,
            {{"counter", ArpSuppression::arpSuppressionCounters, false}});
        counters_ = group_->entity<ArpSuppressionCounterStatus>("arpSuppression/counter");
        ASSERT_TRUE(counters_);
    }
    void count(ArpSuppressionCounterId id, int times) {
        for (int i = 0; i < times; ++i) {
            counters_->increment(id);
        }
    }
    std::string file() const {
        return directory_.path() + "/tables/arpSuppression/counter/counter";
    }
    template <class T>
    void overwrite(size_t offset, T value) {
        std::fstream stream(file(), std::ios::in | std::ios::out | std::ios::binary);
        std::string bytes(sizeof value, '\0');
        std::copy_n(static_cast<const char*>(static_cast<const void*>(&value)), sizeof value,
                    bytes.begin());
        stream.seekp(static_cast<std::streamoff>(offset));
        stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        ASSERT_TRUE(stream.flush());
    }

    int show(bool all = false) {
        out_.str("");
        errors_.str("");
        return showCounters(directory_.path(), all, out_, errors_);
    }
    static long lines(const std::ostringstream& stream) {
        std::string text = stream.str();
        return std::count(text.begin(), text.end(), '\n');
    }

    Testing::TemporaryDirectory directory_;
    Vela::Ptr<Quarry::TableService> service_ =
        Vela::make<Quarry::TableService>(scheduler(), directory_.path() + "/tables");
    Vela::Ptr<Quarry::MountGroup> group_ = service_->mountGroup();
    Vela::Ptr<ArpSuppressionCounterStatus> counters_;
    std::ostringstream out_;
    std::ostringstream errors_;
};

TEST_F(ShowCountersTest, PrintsThoseThatHaveCounted) {
    mount();
    count(ArpSuppressionCounterId::inputDeleted, 3);
    count(ArpSuppressionCounterId::answeredForNonDesignatedForwarder, 120);
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(out_.str(), " 4 inputDeleted                                   3\n"
                          " 8 answeredForNonDesignatedForwarder            120\n");
    EXPECT_EQ(errors_.str(), "");
}

TEST_F(ShowCountersTest, PrintsAllInTheirOrder) {
    mount();
    count(ArpSuppressionCounterId::reinjectNoImetLabel, 1);
    EXPECT_EQ(show(true), 0);
    EXPECT_EQ(lines(out_), 58);
    EXPECT_EQ(out_.str().find(" 0 inputPermanentAdded                            0\n"
                              " 1 inputPermanentRewritten                        0\n"),
              0u)
        << out_.str();
    std::string last = "57 reinjectNoImetLabel                            1\n";
    EXPECT_EQ(out_.str().rfind(last), out_.str().size() - last.size()) << out_.str();
    EXPECT_EQ(errors_.str(), "");
}

TEST_F(ShowCountersTest, SaysThatNothingHasBeenCounted) {
    mount();
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(out_.str(), "");
    EXPECT_EQ(errors_.str(), "note: nothing has been counted yet\n");
}

TEST_F(ShowCountersTest, SaysThatTheDaemonHasStopped) {
    mount();
    count(ArpSuppressionCounterId::inputDeleted, 1);
    counters_.reset();
    group_->unmount("arpSuppression/counter");
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(out_), 1);
    EXPECT_EQ(errors_.str(), "note: arpsupd has stopped; these are its counters at the end\n");
}

TEST_F(ShowCountersTest, SaysThatTheDaemonIsDead) {
    mount();
    count(ArpSuppressionCounterId::inputDeleted, 1);
    // The kernel's process numbers end far below.
    overwrite(offsetof(Quarry::Format::Header, writerPid), uint32_t{0x7ffffff0});
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(out_), 1);
    EXPECT_EQ(errors_.str(), "note: arpsupd (process 2147483632) is dead; these are its counters "
                             "at the end\n");
    // Numbers that stand for no process at all.
    for (uint32_t pid : {0u, 0xffffffffu}) {
        overwrite(offsetof(Quarry::Format::Header, writerPid), pid);
        EXPECT_EQ(show(), 0);
        EXPECT_EQ(lines(errors_), 1) << pid;
    }
}

TEST_F(ShowCountersTest, WithoutATable) {
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(out_.str(), "");
    EXPECT_EQ(errors_.str(),
              "error: there are no counters: no agent has run in " + directory_.path() + "\n");
}

TEST_F(ShowCountersTest, AFileThatIsNoTableOfCounters) {
    fs::create_directories(fs::path(file()).parent_path());
    std::ofstream(file()) << std::string(10000, 'x');
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(errors_.str(), "error: " + file() + ": is no table\n");
    fs::remove(file());

    fs::create_directory(file());
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(errors_.str(), "error: " + file() + ": is no table\n");
    fs::remove(file());

    mount();
    overwrite(offsetof(Quarry::Format::Header, recordType), char{'X'});
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(errors_.str(), "error: " + file() +
                                 ": holds records of type \"XrpSuppression::Counter\", expected "
                                 "\"ArpSuppression::Counter\"\n");
    EXPECT_EQ(out_.str(), "");
}

TEST_F(ShowCountersTest, OfADamagedTableWhatCanBeRead) {
    mount();
    // Links to nowhere, at the head of every other bucket.
    for (size_t bucket = 0; bucket < 64; bucket += 2) {
        overwrite(Quarry::Format::bucketsOffset + bucket * sizeof(uint32_t), uint32_t{0x7fffffff});
    }
    EXPECT_EQ(show(true), 1);
    EXPECT_GT(lines(out_), 0);
    EXPECT_GT(lines(errors_), 0);
    EXPECT_EQ(lines(out_) + lines(errors_), 58) << errors_.str();
    EXPECT_NE(errors_.str().find(" cannot be read: the table is damaged\n"), std::string::npos)
        << errors_.str();
}

TEST_F(ShowCountersTest, AFullOutputFails) {
    mount();
    std::ofstream full("/dev/full");
    EXPECT_EQ(showCounters(directory_.path(), true, full, errors_), 1);
    EXPECT_EQ(errors_.str(), "error: the counters cannot be written\n");
}

} // namespace
} // namespace Ctl
