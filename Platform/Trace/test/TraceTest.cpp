#include "Platform/Trace/Trace.h"

#include <array>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>

namespace Vela {
namespace {

struct Value {
    std::string toStrep() const { return "value"; }
};

struct Counted : boost::intrusive_ref_counter<Counted, boost::thread_unsafe_counter> {
    std::string toStrep() const { return "counted"; }
};

class Machine {
  public:
    void formatTraceObject(std::ostream& out) const { out << "Machine(7)"; }
    void work(const TraceHandle& handle) const { TRACE(handle, 8, this, "done=" << true); }
};

/// Has every form there is.
struct Both {
    std::string toStrep() const { return "strep"; }
    void formatTraceObject(std::ostream& out) const { out << "object"; }
    friend std::ostream& operator<<(std::ostream& out, const Both&) { return out << "stream"; }
};

class TraceTest : public testing::Test {
  protected:
    TraceTest() {
        previous_ = traceSinkIs([this](std::string_view line) { lines_.emplace_back(line); });
        handle_.levelsIs(traceLevelsUpTo(9));
    }
    ~TraceTest() override {
        traceLevelsIs("");
        traceSinkIs(previous_);
    }

    /// What the only line since the last call says after its object.
    std::string message() {
        EXPECT_EQ(lines_.size(), 1u);
        std::string line = lines_.empty() ? "" : lines_[0];
        lines_.clear();
        std::string before = " - ";
        return line.substr(line.find(before) + before.size());
    }

    TraceHandle handle_{"TraceTest"};
    std::vector<std::string> lines_;
    TraceSink previous_;
};

TEST_F(TraceTest, ALineNamesTimeHandleLevelPlaceMethodAndObject) {
    Machine machine;
    machine.work(handle_);
    ASSERT_EQ(lines_.size(), 1u);
    EXPECT_TRUE(testing::internal::RE::FullMatch(
        lines_[0], "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} TraceTest 8 "
                   "[^ ]*Platform/Trace/test/TraceTest:[0-9]+ work Machine\\(7\\) done=yes\n"))
        << lines_[0];
}

TEST_F(TraceTest, WithoutAnObjectADashStandsInItsPlace) {
    const Machine* none = nullptr;
    TRACE(handle_, 0, nullptr, "a");
    EXPECT_EQ(message(), "a\n");
    TRACE(handle_, 0, none, "b");
    EXPECT_EQ(message(), "b\n");
}

TEST_F(TraceTest, SwitchedOffNothingIsEvaluated) {
    int evaluated = 0;
    auto object = [&] {
        ++evaluated;
        return static_cast<const Machine*>(nullptr);
    };
    handle_.levelsIs(traceLevelsUpTo(7));
    TRACE(handle_, 8, object(), "evaluated=" << ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(lines_.size(), 0u);

    TRACE(handle_, 7, object(), "evaluated=" << ++evaluated);
    EXPECT_EQ(evaluated, 2);
    EXPECT_EQ(lines_.size(), 1u);
}

TEST_F(TraceTest, IsOneStatement) {
    bool otherwise = false;
    if (handle_.enabled(9))
        TRACE(handle_, 1, nullptr, "then");
    else
        otherwise = true;
    EXPECT_EQ(message(), "then\n");
    EXPECT_FALSE(otherwise);
}

TEST_F(TraceTest, PiecesMayHoldCommas) {
    TRACE(handle_, 1, nullptr, "pair=" << std::pair<int, int>(1, 2).second);
    EXPECT_EQ(message(), "pair=2\n");
}

TEST_F(TraceTest, BooleansAreYesAndNo) {
    bool yes = true;
    const bool no = false;
    TRACE(handle_, 1, nullptr, yes << ' ' << no);
    EXPECT_EQ(message(), "yes no\n");
}

TEST_F(TraceTest, IntegersOfEightBitsAreNumbersAndCharactersAreCharacters) {
    TRACE(handle_, 1, nullptr, uint8_t{65} << ' ' << int8_t{-3} << ' ' << 'A');
    EXPECT_EQ(message(), "65 -3 A\n");
}

TEST_F(TraceTest, OrdinaryValuesPrintAsInAnyStream) {
    TRACE(handle_, 1, nullptr,
          -5 << ' ' << 16777215u << ' ' << 1.5 << ' ' << std::string("s") << ' '
             << std::string_view("view") << ' ' << std::hex << 255);
    EXPECT_EQ(message(), "-5 16777215 1.5 s view ff\n");
}

TEST_F(TraceTest, ValuesAndPointersToThemPrintTheirStrep) {
    Value value;
    const Value* pointer = &value;
    Value* none = nullptr;
    TRACE(handle_, 1, nullptr, value << ' ' << pointer << ' ' << &value << ' ' << none);
    EXPECT_EQ(message(), "value value value NULL\n");
}

TEST_F(TraceTest, IntrusivePointersPrintWhatTheyPointTo) {
    boost::intrusive_ptr<Counted> counted(new Counted);
    boost::intrusive_ptr<const Counted> constant = counted;
    boost::intrusive_ptr<Counted> none;
    TRACE(handle_, 1, nullptr, counted << ' ' << constant << ' ' << none);
    EXPECT_EQ(message(), "counted counted NULL\n");
}

TEST_F(TraceTest, ObjectsPrintAsTraceObjects) {
    Machine machine;
    Machine* none = nullptr;
    TRACE(handle_, 1, nullptr, machine << ' ' << &machine << ' ' << none);
    EXPECT_EQ(message(), "Machine(7) Machine(7) NULL\n");
}

TEST_F(TraceTest, StrepComesBeforeOtherForms) {
    TRACE(handle_, 1, nullptr, Both());
    EXPECT_EQ(message(), "strep\n");
    std::ostringstream elsewhere;
    elsewhere << Both();
    EXPECT_EQ(elsewhere.str(), "stream");
}

TEST_F(TraceTest, CharacterPointersAreText) {
    const char* text = "text";
    const char* none = nullptr;
    char buffer[] = "buffer";
    TRACE(handle_, 1, nullptr, text << ' ' << none << ' ' << buffer);
    EXPECT_EQ(message(), "text NULL buffer\n");
}

TEST_F(TraceTest, AFrameIsHexadecimal) {
    const uint8_t frame[] = {0xff, 0x08, 0x06};
    TRACE(handle_, 8, nullptr,
          "too short"
              << " data=" << hex(frame));
    EXPECT_EQ(message(), "too short data=ff0806\n");
}

TEST_F(TraceTest, NothingTracedBreaksTheLine) {
    TRACE(handle_, 1, nullptr, "name=" << std::string("a\nb\x1b[2J"));
    EXPECT_EQ(message(), "name=a\\nb\\x1b[2J\n");
}

TEST_F(TraceTest, ALineTracedInsideAPieceComesFirstAndWhole) {
    struct Chatty {
        const TraceHandle& handle;
        std::string toStrep() const {
            TRACE(handle, 1, nullptr, "inner");
            return "chatty";
        }
    };
    TRACE(handle_, 1, nullptr, "outer " << Chatty{handle_});
    ASSERT_EQ(lines_.size(), 2u);
    EXPECT_TRUE(lines_[0].ends_with(" - inner\n"));
    EXPECT_TRUE(lines_[1].ends_with(" - outer chatty\n"));
}

TEST_F(TraceTest, APieceThatThrowsLeavesNoLine) {
    struct Thrower {
        std::string toStrep() const { throw std::runtime_error("out of range"); }
    };
    EXPECT_THROW(TRACE(handle_, 1, nullptr, "a" << Thrower()), std::runtime_error);
    EXPECT_EQ(lines_.size(), 0u);
    TRACE(handle_, 1, nullptr, "next");
    EXPECT_EQ(message(), "next\n");
}

TEST_F(TraceTest, ALineLeavesTheErrorNumberAsItWas) {
    traceSinkIs([](std::string_view) { errno = EPIPE; });
    errno = ENETDOWN;
    TRACE(handle_, 1, nullptr, "read failed");
    EXPECT_EQ(errno, ENETDOWN);
}

TEST_F(TraceTest, ReplacingTheSinkReturnsThePreviousOne) {
    std::vector<std::string> others;
    TraceSink mine = traceSinkIs([&](std::string_view line) { others.emplace_back(line); });
    TRACE(handle_, 1, nullptr, "to the other");
    EXPECT_EQ(lines_.size(), 0u);
    EXPECT_EQ(others.size(), 1u);
    traceSinkIs(mine);
    TRACE(handle_, 1, nullptr, "mine again");
    EXPECT_EQ(others.size(), 1u);
    EXPECT_EQ(message(), "mine again\n");
}

TEST_F(TraceTest, TheEmptySinkIsStandardError) {
    TraceSink mine = traceSinkIs({});
    testing::internal::CaptureStderr();
    TRACE(handle_, 1, nullptr, "to the operator");
    std::string captured = testing::internal::GetCapturedStderr();
    traceSinkIs(mine);
    EXPECT_TRUE(captured.ends_with(" - to the operator\n")) << captured;
    EXPECT_EQ(lines_.size(), 0u);
}

TEST_F(TraceTest, LevelsAreIndependentBits) {
    handle_.levelsIs(1u << 5);
    EXPECT_EQ(handle_.levels(), 1u << 5);
    for (int level = 0; level <= 9; ++level) {
        EXPECT_EQ(handle_.enabled(level), level == 5) << level;
    }
}

TEST_F(TraceTest, SettingsReachAllHandlesOfANameAndThoseToCome) {
    TraceHandle first("Twin");
    TraceHandle second("Twin");
    TraceHandle other("Other");
    EXPECT_EQ(traceLevelsIs("Twin=4"), std::vector<std::string>{});
    TraceHandle third("Twin");
    for (const TraceHandle* handle : {&first, &second, &third}) {
        EXPECT_EQ(handle->levels(), traceLevelsUpTo(4));
    }
    EXPECT_EQ(other.levels(), 0u);
    EXPECT_EQ(handle_.levels(), 0u);

    EXPECT_EQ(traceLevelsIs("Twin,Other=2").size(), 1u);
    EXPECT_EQ(first.levels(), 0u);
    EXPECT_EQ(other.levels(), traceLevelsUpTo(2));
}

TEST_F(TraceTest, AHandleThatIsGoneIsForgotten) {
    alignas(TraceHandle) std::array<std::byte, sizeof(TraceHandle)> memory;
    TraceHandle* brief = new (memory.data()) TraceHandle("Brief");
    brief->~TraceHandle();
    memory.fill(std::byte{0});
    EXPECT_EQ(traceLevelsIs("*=3"), std::vector<std::string>{});
    EXPECT_EQ(handle_.levels(), traceLevelsUpTo(3));
    for (std::byte byte : memory) {
        EXPECT_EQ(byte, std::byte{0});
    }
}

/// The environment is read once per process, so each case is a process of its own.
class TraceEnvironmentTest : public testing::Test {
  protected:
    TraceEnvironmentTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
    ~TraceEnvironmentTest() override { unsetenv("VELA_TRACE"); }

    [[noreturn]] static void traceOnceAndExit() {
        TraceHandle on("FromEnvironment");
        TraceHandle off("Elsewhere");
        TRACE(on, 6, nullptr, "on at 6");
        TRACE(on, 7, nullptr, "on at 7");
        TRACE(off, 0, nullptr, "off at 0");
        std::exit(0);
    }
};

TEST_F(TraceEnvironmentTest, SwitchesLevelsOn) {
    setenv("VELA_TRACE", "FromEnvironment=6", 1);
    EXPECT_EXIT(traceOnceAndExit(), testing::ExitedWithCode(0),
                "^[-0-9]+ [0-9:.]+ FromEnvironment 6 [^\n]* - on at 6\n$");
}

TEST_F(TraceEnvironmentTest, UnsetSwitchesNothingOn) {
    unsetenv("VELA_TRACE");
    EXPECT_EXIT(traceOnceAndExit(), testing::ExitedWithCode(0), "^$");
}

TEST_F(TraceEnvironmentTest, MalformedPiecesAreReportedOnceAndTheRestApplies) {
    setenv("VELA_TRACE", "Elsewhere=high,FromEnvironment=6,", 1);
    EXPECT_EXIT(traceOnceAndExit(), testing::ExitedWithCode(0),
                "^VELA_TRACE: \"Elsewhere=high\": expected handle=level[^\n]*\n"
                "VELA_TRACE: \"\": expected handle=level[^\n]*\n"
                "[^\n]* FromEnvironment 6 [^\n]* - on at 6\n$");
}

} // namespace
} // namespace Vela
