#include "Ctl/ShowCounters.h"

#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Quarry/TableFormat.h"
#include "Platform/Quarry/TableService.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

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
        return showCounters({directory_.path(), all}, out_, errors_);
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
    EXPECT_EQ(out_.str(), " 4 inputDeleted                                   3  a neighbour entry "
                          "is withdrawn, as no binding supports it or the kernel has its own\n"
                          " 8 answeredForNonDesignatedForwarder            120  a request is for a "
                          "host on a segment without a designated forwarder\n");
    EXPECT_EQ(errors_.str(), "");
}

TEST_F(ShowCountersTest, PrintsAllInTheirOrder) {
    mount();
    count(ArpSuppressionCounterId::reinjectNoImetLabel, 1);
    EXPECT_EQ(show(true), 0);
    EXPECT_EQ(lines(out_), 58);
    EXPECT_EQ(out_.str().find(" 0 inputPermanentAdded                            0  a neighbour "
                              "entry for a remote binding is asked for\n"
                              " 1 inputPermanentRewritten                        0  a permanent "
                              "neighbour entry is written again\n"),
              0u)
        << out_.str();
    std::string last = "57 reinjectNoImetLabel                            1  a request was "
                       "dropped, as EVPN has no flooding label over MPLS for the VLAN\n";
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

TEST_F(ShowCountersTest, JsonHasAllOfThem) {
    mount();
    count(ArpSuppressionCounterId::inputDeleted, 3);
    EXPECT_EQ(showCounters({directory_.path(), false, true}, out_, errors_), 0);
    const auto rows = boost::json::parse(out_.str()).as_array();
    ASSERT_EQ(rows.size(), 58u);
    EXPECT_EQ(rows[4], boost::json::parse(R"({"id":4,"name":"inputDeleted","count":3})"));
    for (int64_t id = 0; id < 58; ++id) {
        const auto& row = rows[static_cast<size_t>(id)].as_object();
        EXPECT_EQ(row.at("id").as_int64(), id);
        EXPECT_EQ(row.at("count").as_int64(), id == 4 ? 3 : 0);
    }
    EXPECT_EQ(lines(out_), 60) << "a line each and the brackets";
    EXPECT_EQ(errors_.str(), "");
}

// --- Again and again

TEST_F(ShowCountersTest, AWatchShowsWhatGrows) {
    mount();
    count(ArpSuppressionCounterId::inputDeleted, 3);
    int round = 0;
    auto next = [&]() -> std::optional<double> {
        switch (++round) {
        case 1:
            count(ArpSuppressionCounterId::inputDeleted, 5);
            count(ArpSuppressionCounterId::trapArpRequest, 1);
            return 2.0;
        case 2:
            return 0.5;
        default:
            return std::nullopt;
        }
    };
    EXPECT_EQ(watchCounters({directory_.path()}, next, out_, errors_), 0);
    EXPECT_EQ(out_.str(), " 4 inputDeleted                                   3\n"
                          "\n"
                          " 4 inputDeleted                                   8         2.5/s\n"
                          "50 trapArpRequest                                 1         0.5/s\n"
                          "\n"
                          " 4 inputDeleted                                   8         0.0/s\n"
                          "50 trapArpRequest                                 1         0.0/s\n");
    EXPECT_EQ(errors_.str(), "");
    EXPECT_EQ(round, 3);
}

TEST_F(ShowCountersTest, AWatchInJsonIsAnObjectPerRound) {
    mount();
    int round = 0;
    auto next = [&]() -> std::optional<double> {
        count(ArpSuppressionCounterId::trapArpRequest, 6);
        return ++round < 3 ? std::optional(4.0) : std::nullopt;
    };
    EXPECT_EQ(watchCounters({directory_.path(), false, true}, next, out_, errors_), 0);
    std::istringstream text(out_.str());
    std::vector<boost::json::object> objects;
    for (std::string line; std::getline(text, line);) {
        objects.push_back(boost::json::parse(line).as_object());
    }
    ASSERT_EQ(objects.size(), 3u) << out_.str();
    EXPECT_FALSE(objects[0].contains("seconds"));
    for (size_t i = 0; i < 3; ++i) {
        const auto& counters = objects[i].at("counters").as_array();
        ASSERT_EQ(counters.size(), 58u);
        const auto& counter = counters[50].as_object();
        EXPECT_EQ(counter.at("count").as_int64(), 6 * static_cast<int64_t>(i));
        EXPECT_EQ(counter.contains("perSecond"), i > 0);
        if (i > 0) {
            EXPECT_EQ(objects[i].at("seconds").to_number<double>(), 4.0);
            EXPECT_EQ(counter.at("perSecond").to_number<double>(), 1.5);
            EXPECT_EQ(counters[0].at("perSecond").to_number<double>(), 0.0);
        }
    }
}

TEST_F(ShowCountersTest, AWatchGoesOnWithTheDaemonsSuccessor) {
    mount();
    count(ArpSuppressionCounterId::inputDeleted, 100);
    int round = 0;
    auto next = [&]() -> std::optional<double> {
        if (++round == 1 || round == 3) {
            counters_.reset();
            group_->unmount("arpSuppression/counter");
        }
        if (round == 2) {
            mount();
            count(ArpSuppressionCounterId::inputDeleted, 150);
        }
        return round < 5 ? std::optional(1.0) : std::nullopt;
    };
    EXPECT_EQ(watchCounters({directory_.path()}, next, out_, errors_), 0);
    EXPECT_EQ(out_.str(), " 4 inputDeleted                                 100\n"
                          "\n"
                          " 4 inputDeleted                                 100         0.0/s\n"
                          "\n"
                          " 4 inputDeleted                                 150       150.0/s\n"
                          "\n"
                          " 4 inputDeleted                                 150         0.0/s\n"
                          "\n"
                          " 4 inputDeleted                                 150         0.0/s\n");
    const std::string stopped = "note: arpsupd has stopped; these are its counters at the end\n";
    EXPECT_EQ(errors_.str(), stopped + stopped) << "once each time";
}

TEST_F(ShowCountersTest, AWatchWithoutATableOrWithAFullOutputEnds) {
    auto never = []() -> std::optional<double> {
        ADD_FAILURE() << "it does not wait";
        return std::nullopt;
    };
    EXPECT_EQ(watchCounters({directory_.path()}, never, out_, errors_), 1);
    EXPECT_EQ(errors_.str(),
              "error: there are no counters: no agent has run in " + directory_.path() + "\n");
    mount();
    count(ArpSuppressionCounterId::inputDeleted, 1);
    errors_.str("");
    std::ofstream full("/dev/full");
    EXPECT_EQ(watchCounters({directory_.path()}, never, full, errors_), 1);
    EXPECT_EQ(errors_.str(), "error: the counters cannot be written\n");
}

TEST_F(ShowCountersTest, AFullOutputFails) {
    mount();
    std::ofstream full("/dev/full");
    EXPECT_EQ(showCounters({directory_.path(), true}, full, errors_), 1);
    EXPECT_EQ(errors_.str(), "error: the counters cannot be written\n");
}

} // namespace
} // namespace Ctl
