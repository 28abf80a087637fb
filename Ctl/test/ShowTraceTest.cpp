#include "Ctl/ShowTrace.h"

#include "Platform/Trace/SwiftlogType.h"

#include <boost/json.hpp>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace Ctl {
namespace {

namespace fs = std::filesystem;

struct Number {
    uint64_t value;
};

class ShowTraceTest : public ::testing::Test {
  protected:
    ShowTraceTest() {
        std::string pattern = fs::temp_directory_path() / "showtraceXXXXXX";
        directory_ = mkdtemp(pattern.data());
        setenv("SWIFTLOGDIR", directory_.c_str(), 1);
        request_.directory = directory_;
    }
    ~ShowTraceTest() override {
        Vela::Swiftlog::close();
        unsetenv("SWIFTLOGDIR");
        fs::remove_all(directory_);
    }

    /// A file of four records: 1 at level 0, 2 at level 5, 3 at level 0, 4 at level 9.
    void writeFile(const std::string& name, uint64_t first = 1) {
        static const Vela::SwiftlogType<Number> rare{
            "Ctl/Rare", "rare", 0, {{"n=", &Number::value}}};
        static const Vela::SwiftlogType<Number> usual{
            "Ctl/Usual", "usual", 5, {{"n=", &Number::value}}};
        static const Vela::SwiftlogType<Number> flood{
            "Ctl/Flood", "flood", 9, {{"n=", &Number::value}}};
        Vela::Swiftlog::initialize({.fileName = name});
        rare.write({first});
        usual.write({first + 1});
        rare.write({first + 2});
        flood.write({first + 3});
        Vela::Swiftlog::close();
    }
    void ageIs(const std::string& name, int seconds) {
        fs::last_write_time(directory_ / name,
                            fs::file_time_type::clock::now() - std::chrono::seconds(seconds));
    }

    int show() {
        out_.str("");
        errors_.str("");
        return showTrace(request_, out_, errors_);
    }
    /// Without their times, which are the first 27 bytes.
    std::vector<std::string> lines() const {
        std::istringstream text(out_.str());
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line.substr(27));
        }
        return lines;
    }

    using Lines = std::vector<std::string>;

    fs::path directory_;
    TraceRequest request_;
    std::ostringstream out_;
    std::ostringstream errors_;
};

TEST_F(ShowTraceTest, PrintsTheRecordsOfAFile) {
    writeFile("test.sl");
    request_.file = directory_ / "test.sl";
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), (Lines{"0 Ctl/Rare rare n=1", "5 Ctl/Usual usual n=2", "0 Ctl/Rare rare n=3",
                              "9 Ctl/Flood flood n=4"}));
    EXPECT_EQ(errors_.str(), "");
}

TEST_F(ShowTraceTest, LevelsUpToTheOneAskedFor) {
    writeFile("test.sl");
    request_.level = 5;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(),
              (Lines{"0 Ctl/Rare rare n=1", "5 Ctl/Usual usual n=2", "0 Ctl/Rare rare n=3"}));
    request_.level = 0;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), (Lines{"0 Ctl/Rare rare n=1", "0 Ctl/Rare rare n=3"}));
}

TEST_F(ShowTraceTest, TheLastOnesOfThese) {
    writeFile("test.sl");
    request_.last = 1;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), Lines{"9 Ctl/Flood flood n=4"});
    request_.level = 5;
    request_.last = 2;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), (Lines{"5 Ctl/Usual usual n=2", "0 Ctl/Rare rare n=3"}));
    request_.last = 1000;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines().size(), 3u);
    request_.last = 0;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), Lines{});
}

TEST_F(ShowTraceTest, WithoutAFileTheNewestOne) {
    writeFile("a.sl", 10);
    writeFile("b.sl", 20);
    writeFile("c.sl", 30);
    ageIs("a.sl", 50);
    ageIs("b.sl", 10);
    ageIs("c.sl", 90);
    std::ofstream(directory_ / "b.sl.1") << "kept";
    std::ofstream(directory_ / "notes") << "newest";
    fs::create_directory(directory_ / "directory.sl");
    request_.last = 1;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), Lines{"9 Ctl/Flood flood n=23"});
    EXPECT_EQ(errors_.str(), "from " + (directory_ / "b.sl").string() + "\n");
}

TEST_F(ShowTraceTest, WithoutAnyFile) {
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(errors_.str(), "error: no ring-buffer file (*.sl) in " + directory_.string() + "\n");
    request_.directory = directory_ / "none";
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(errors_.str(),
              "error: " + (directory_ / "none").string() + ": No such file or directory\n");
    request_.file = directory_ / "none.sl";
    EXPECT_EQ(show(), 1);
    EXPECT_NE(errors_.str().find("none.sl"), std::string::npos);
    EXPECT_NE(errors_.str().find("No such file or directory"), std::string::npos);
    EXPECT_EQ(out_.str(), "");
}

TEST_F(ShowTraceTest, WhatIsNoSuchFileFails) {
    std::ofstream(directory_ / "bad.sl") << std::string(10000, 'x');
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(out_.str(), "");
    std::string file = (directory_ / "bad.sl").string();
    EXPECT_EQ(errors_.str().find("from " + file + "\n" + file + ": "), 0u) << errors_.str();
}

TEST_F(ShowTraceTest, OfATruncatedFileWhatThereIs) {
    writeFile("test.sl");
    fs::resize_file(directory_ / "test.sl", 4096 + 24 * 1024 + 4096);
    request_.file = directory_ / "test.sl";
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), (Lines{"0 Ctl/Rare rare n=1", "0 Ctl/Rare rare n=3"}));
    EXPECT_EQ(errors_.str().find(request_.file + ": "), 0u) << errors_.str();
}

TEST_F(ShowTraceTest, AnObjectPerRecordAsJson) {
    writeFile("test.sl");
    request_.file = directory_ / "test.sl";
    request_.json = true;
    EXPECT_EQ(show(), 0);
    const auto records = boost::json::parse(out_.str()).as_array();
    ASSERT_EQ(records.size(), 4u);
    for (const auto& record : records) {
        // 2025-03-01T12:00:00.123456Z
        std::string time = boost::json::value_to<std::string>(record.at("time"));
        EXPECT_EQ(time.size(), 27u) << time;
        EXPECT_EQ(time[10], 'T');
        EXPECT_EQ(time[26], 'Z');
    }
    auto last = records[3].as_object();
    last.erase("time");
    EXPECT_EQ(last,
              boost::json::parse(R"({"level":9,"unit":"Ctl/Flood","event":"flood","text":"n=4"})"));

    request_.level = 5;
    request_.last = 1;
    EXPECT_EQ(show(), 0);
    ASSERT_EQ(boost::json::parse(out_.str()).as_array().size(), 1u);
    EXPECT_EQ(boost::json::parse(out_.str()).at(0).at("text"), "n=3");
    request_.last = 0;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(out_.str(), "[]\n");
}

TEST_F(ShowTraceTest, OnlyThoseWithAnAddressOnAVlan) {
    struct Event {
        uint16_t vlanId;
        Zinc::IpGenAddr address;
    };
    struct Unplaced {
        Zinc::IpGenAddr address;
    };
    static const Vela::SwiftlogType<Event> event{
        "Ctl/E", "e", 5, {{"<vlanId=", &Event::vlanId}, {" a=", &Event::address}}};
    static const Vela::SwiftlogType<Unplaced> unplaced{
        "Ctl/U", "u", 5, {{"a=", &Unplaced::address}}};
    Vela::Swiftlog::initialize({.fileName = "test.sl"});
    event.write({10, Zinc::IpGenAddr("10.0.0.1")});
    event.write({10, Zinc::IpGenAddr("10.0.0.2")});
    event.write({20, Zinc::IpGenAddr("10.0.0.1")});
    unplaced.write({Zinc::IpGenAddr("10.0.0.1")});
    event.write({10, Zinc::IpGenAddr("10.0.0.1")});
    Vela::Swiftlog::close();
    request_.file = directory_ / "test.sl";
    request_.address = Zinc::IpGenAddr("10.0.0.1");
    const Lines ten = {"5 Ctl/E e <vlanId=10 a=10.0.0.1", "5 Ctl/U u a=10.0.0.1",
                       "5 Ctl/E e <vlanId=10 a=10.0.0.1"};
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines().size(), 4u);
    request_.vlanId = Bridging::VlanId(10);
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), ten);
    request_.last = 2;
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), Lines(ten.begin() + 1, ten.end()));
    request_.address.reset();
    request_.vlanId = Bridging::VlanId(20);
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(lines(), (Lines{"5 Ctl/E e <vlanId=20 a=10.0.0.1", "5 Ctl/U u a=10.0.0.1"}));
    request_.address = Zinc::IpGenAddr("10.0.0.9");
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(out_.str(), "");
}

TEST_F(ShowTraceTest, AFullOutputFails) {
    writeFile("test.sl");
    request_.file = directory_ / "test.sl";
    std::ofstream full("/dev/full");
    EXPECT_EQ(showTrace(request_, full, errors_), 1);
    EXPECT_EQ(errors_.str(), "error: the records cannot be written\n");
}

} // namespace
} // namespace Ctl
