#include "Platform/State/test/NotifierFixture.h"

#include <array>

namespace Vela {
namespace {

// Observers and what they observe, ending in any order.
class ReactionLifeTest : public NotifierFixture {};

TEST_F(ReactionLifeTest, HandlesMayOutliveTheNotifier) {
    Reaction a = reactWith('a');
    Reaction b = reactWith('b');
    notifier.reset();
    EXPECT_FALSE(a);
    Reaction moved = std::move(b);
    EXPECT_FALSE(moved);
    moved.clear();
}

TEST_F(ReactionLifeTest, TheNotifierMayBeDestroyedDuringItsDispatch) {
    for (int when = 0; when < 3; ++when) {
        notifier = std::make_unique<Notifier>();
        std::array<Reaction, 3> reactions;
        for (int i = 0; i < 3; ++i) {
            reactions[static_cast<size_t>(i)] =
                reactWith(static_cast<char>('a' + i), [this, when, i] {
                    if (i == when) {
                        notifier.reset();
                    }
                });
        }
        Notifier& observed = *notifier;
        EXPECT_EQ(callsOf(observed), std::string("abc").substr(0, static_cast<size_t>(when) + 1));
        EXPECT_FALSE(reactions[0] || reactions[1] || reactions[2]);
    }
}

TEST_F(ReactionLifeTest, TheNotifierMayBeDestroyedInANestedDispatchByAReactionThatDiesWithIt) {
    Reaction a, b;
    int depth = 0;
    a = reactWith('a', [&] {
        if (++depth < 3) {
            notifier->notify();
        } else {
            b.clear();
            notifier.reset();
            a.clear();
        }
    });
    b = reactWith('b');
    Notifier& observed = *notifier;
    EXPECT_EQ(callsOf(observed), "aaa");
}

TEST_F(ReactionLifeTest, OneNotifierMayBeReplacedByAnotherDuringItsDispatch) {
    Reaction a, b;
    a = reactWith('a', [&] {
        notifier = std::make_unique<Notifier>();
        b = reactWith('B');
    });
    b = reactWith('b');
    Notifier& observed = *notifier;
    EXPECT_EQ(callsOf(observed), "a");
    EXPECT_EQ(notify(), "B");
}

TEST_F(ReactionLifeTest, ADestroyedOwnerIsSkippedThoughItsMemoryAndHandleRemain) {
    auto owner = make<Thing>();
    owner->reaction = reactWith('o', owner.get());
    Reaction b = reactWith('b');
    EXPECT_EQ(notify(), "ob");
    owner->destroy();
    EXPECT_EQ(notify(), "b");
}

TEST_F(ReactionLifeTest, AnInactiveOwnerIsSkippedAndSeesTheNextChangeOnceActive) {
    auto owner = make<Thing>();
    owner->reaction = reactWith('o', owner.get());
    owner->hasNotificationActiveIs(false);
    EXPECT_EQ(notify(), "");
    calls.clear();
    owner->hasNotificationActiveIs(true);
    EXPECT_EQ(calls, "");
    EXPECT_EQ(notify(), "o");
}

TEST_F(ReactionLifeTest, WhetherAnOwnerReactsIsAskedWhenItsTurnComes) {
    auto owner = make<Thing>();
    bool active = false;
    Reaction a = reactWith('a', [&] { owner->hasNotificationActiveIs(active); });
    owner->reaction = reactWith('o', owner.get());
    EXPECT_EQ(notify(), "a");
    active = true;
    EXPECT_EQ(notify(), "ao");
    Reaction d = reactWith('d', [&] { owner->destroy(); });
    EXPECT_EQ(notify(), "aod");
    EXPECT_EQ(notify(), "ad");
}

TEST_F(ReactionLifeTest, AnOwnerDestroyedByAnEarlierReactionIsNotCalled) {
    auto owner = make<Thing>();
    Reaction a = reactWith('a', [&] { owner->destroy(); });
    owner->reaction = reactWith('o', owner.get());
    Reaction b = reactWith('b');
    EXPECT_EQ(notify(), "ab");
}

TEST_F(ReactionLifeTest, AnOwnerFreedByAnEarlierReactionIsNotCalled) {
    auto owner = make<Thing>();
    Reaction a = reactWith('a', [&] { owner.reset(); });
    owner->reaction = reactWith('o', owner.get());
    Reaction b = reactWith('b');
    EXPECT_EQ(notify(), "ab");
    EXPECT_EQ(notify(), "ab");
}

TEST_F(ReactionLifeTest, AnOwnerMayBeDestroyedByItsOwnReaction) {
    auto owner = make<Thing>();
    owner->reaction = reactWith(
        'o', [&] { owner->destroy(); }, owner.get());
    Reaction b = reactWith('b');
    EXPECT_EQ(notify(), "ob");
    EXPECT_EQ(notify(), "b");
}

TEST_F(ReactionLifeTest, AnOwnerFreedByItsOwnReactionLastsUntilThatReturns) {
    auto owner = make<Thing>("owner");
    Thing* raw = owner.get();
    owner->reaction = reactWith(
        'o',
        [this, &owner, raw] {
            owner.reset();
            EXPECT_EQ(Entity::liveCount(), 1u);
            EXPECT_FALSE(raw->destroyed()); // the dispatch holds it
            raw->level.set(7);
        },
        raw);
    Reaction b = reactWith('b', [] { EXPECT_EQ(Entity::liveCount(), 0u); });
    EXPECT_EQ(notify(), "ob");
    EXPECT_EQ(notify(), "b");
}

TEST_F(ReactionLifeTest, AnOwnerFreedInANestedDispatchLastsUntilTheOuterReactionReturns) {
    auto owner = make<Thing>();
    Thing* raw = owner.get();
    int depth = 0;
    owner->reaction = reactWith(
        'o',
        [&, raw] {
            if (++depth == 1) {
                notifier->notify();
            } else {
                owner.reset();
            }
            EXPECT_FALSE(raw->destroyed());
        },
        raw);
    EXPECT_EQ(notify(), "oo");
    EXPECT_EQ(Entity::liveCount(), 0u);
    EXPECT_FALSE(notifier->observed());
}

/// Observes something from its constructor on, when nobody holds it yet.
class Early : public Entity {
  public:
    explicit Early(Notifier& notifier) : reaction_(notifier.react(this, [this] { ++called; })) {
        notifier.notify();
    }
    const char* typeName() const noexcept override { return "Early"; }
    int called = 0;

  private:
    Reaction reaction_;
};

TEST_F(ReactionLifeTest, AnOwnerMayBeCalledWhileItIsConstructed) {
    auto early = make<Early>(*notifier);
    EXPECT_EQ(early->called, 1);
    EXPECT_FALSE(early->destroyed());
    notifier->notify();
    EXPECT_EQ(early->called, 2);
}

TEST_F(ReactionLifeTest, ObserverAndObservedMayDieTogetherInEitherOrder) {
    for (bool observerFirst : {true, false}) {
        for (bool freed : {true, false}) {
            auto observed = make<Thing>("observed");
            auto observer = make<Thing>("observer");
            auto end = [freed](Ptr<Thing>& thing) {
                thing->destroy();
                if (freed) {
                    thing.reset();
                }
            };
            observer->reaction = observed->level.react(observer.get(), [&] {
                calls += 'o';
                end(observerFirst ? observer : observed);
                end(observerFirst ? observed : observer);
            });
            Reaction b = observed->level.react(nullptr, [&] { calls += 'b'; });
            calls.clear();
            observed->level.set(1);
            EXPECT_EQ(calls, freed ? "o" : "ob") << observerFirst;
            EXPECT_EQ(static_cast<bool>(b), !freed);
        }
    }
}

} // namespace
} // namespace Vela
