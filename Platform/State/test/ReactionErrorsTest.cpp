#include "Platform/Base/Errors.h"
#include "Platform/State/CaughtErrors.h"
#include "Platform/State/Notifier.h"
#include "Platform/State/test/StateFixture.h"
#include "Testing/TraceCapture.h"

#include <csignal>
#include <stdexcept>

namespace Vela {
namespace {

class ReactionErrorsTest : public StateFixture {
  protected:
    uint64_t caught() const { return caughtRangeErrors() - before; }

    Testing::TraceCapture trace{"State=0"};
    const uint64_t before = caughtRangeErrors();
    Notifier notifier;
    std::string calls;
};

TEST_F(ReactionErrorsTest, ARangeErrorEndsItsReactionAlone) {
    auto owner = make<Thing>("b");
    Reaction a = notifier.react(nullptr, [&] { calls += 'a'; });
    owner->reaction = notifier.react(owner.get(), [&] {
        calls += 'b';
        throw RangeError("Bridging::VlanId::value < 1 or > 4094 not allowed");
        calls += 'x';
    });
    Reaction c = notifier.react(nullptr, [&] { calls += 'c'; });
    notifier.notify();
    EXPECT_EQ(calls, "abc");
    EXPECT_EQ(caught(), 1u);
    EXPECT_EQ(trace.count("\n"), 1u);
    EXPECT_TRUE(trace.contains("Thing(b) "));
    EXPECT_TRUE(trace.contains("range error: Bridging::VlanId::value < 1 or > 4094 not allowed"));

    // The reaction stays registered.
    notifier.notify();
    EXPECT_EQ(calls, "abcabc");
    EXPECT_EQ(caught(), 2u);
}

TEST_F(ReactionErrorsTest, WithoutOwnerTheErrorIsTracedAllTheSame) {
    Reaction a = notifier.react(nullptr, [] { throw RangeError("too far"); });
    notifier.notify();
    EXPECT_EQ(caught(), 1u);
    EXPECT_TRUE(trace.contains("range error: too far\n"));
}

TEST_F(ReactionErrorsTest, ARangeErrorOfANestedDispatchDoesNotReachTheOuterReaction) {
    int depth = 0;
    Reaction a = notifier.react(nullptr, [&] {
        if (++depth == 1) {
            notifier.notify();
        }
        calls += 'a';
    });
    Reaction b = notifier.react(nullptr, [&] {
        calls += 'b';
        throw RangeError("too far");
    });
    notifier.notify();
    EXPECT_EQ(calls, "abab");
    EXPECT_EQ(caught(), 2u);
}

TEST_F(ReactionErrorsTest, AReactionMayRemoveItselfAndFreeItsOwnerBeforeTheError) {
    auto owner = make<Thing>("gone");
    owner->reaction = notifier.react(owner.get(), [&] {
        owner->reaction.clear();
        owner.reset();
        throw RangeError("too far");
    });
    Reaction b = notifier.react(nullptr, [&] { calls += 'b'; });
    notifier.notify();
    EXPECT_EQ(calls, "b");
    EXPECT_TRUE(trace.contains("Thing(gone) "));
    EXPECT_EQ(Entity::liveCount(), 0u);
}

TEST_F(ReactionErrorsTest, AReactionMayDestroyTheNotifierBeforeTheError) {
    auto observed = make<Thing>();
    Reaction a = observed->level.react(nullptr, [&] {
        observed.reset();
        throw RangeError("too far");
    });
    observed->level.set(1);
    EXPECT_EQ(caught(), 1u);
    EXPECT_FALSE(a);
}

TEST_F(ReactionErrorsTest, WithoutErrorsNothingIsCountedOrTraced) {
    Reaction a = notifier.react(nullptr, [] {});
    notifier.notify();
    EXPECT_EQ(caught(), 0u);
    EXPECT_EQ(trace.text(), "");
}

template <class Error>
void notifyThrowing(Error error) {
    Notifier notifier;
    Reaction reaction = notifier.react(nullptr, [&] { throw error; });
    notifier.notify();
}

TEST(ReactionErrorsDeathTest, AnyOtherExceptionTerminatesWithItsText) {
    EXPECT_EXIT(notifyThrowing(std::runtime_error("out of luck")), testing::KilledBySignal(SIGABRT),
                "unhandled error \"out of luck\"");
    EXPECT_EXIT(notifyThrowing(ParseError("no value")), testing::KilledBySignal(SIGABRT),
                "unhandled error \"no value\"");
    EXPECT_EXIT(notifyThrowing(EntryExistsError("already there")), testing::KilledBySignal(SIGABRT),
                "unhandled error \"already there\"");
    EXPECT_EXIT(notifyThrowing(7), testing::KilledBySignal(SIGABRT),
                "unhandled error \"not a std::exception\"");
}

} // namespace
} // namespace Vela
