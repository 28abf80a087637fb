#include "Platform/State/test/NotifierFixture.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <type_traits>
#include <vector>

namespace Vela {
namespace {

class NotifierTest : public NotifierFixture {};

static_assert(!std::is_copy_constructible_v<Reaction> && !std::is_copy_assignable_v<Reaction>);
static_assert(std::is_nothrow_move_constructible_v<Reaction>);
static_assert(std::is_nothrow_move_assignable_v<Reaction>);

TEST_F(NotifierTest, ReactionsAreCalledAtOnceInTheOrderOfRegistration) {
    EXPECT_FALSE(notifier->observed());
    EXPECT_EQ(notify(), "");
    // The handles are declared against the order of registration, which is what counts.
    Reaction c, b, a;
    a = reactWith('a');
    b = reactWith('b');
    c = reactWith('c');
    EXPECT_TRUE(notifier->observed());
    EXPECT_EQ(notify(), "abc");
    EXPECT_EQ(notify(), "abc");
}

TEST_F(NotifierTest, AReadOnlyViewCanBeObserved) {
    const Notifier& view = *notifier;
    int called = 0;
    Reaction reaction = view.react(nullptr, [&] { ++called; });
    notifier->notify();
    EXPECT_EQ(called, 1);
}

TEST_F(NotifierTest, RemovingByClearingDestroyingOrReplacingTheHandle) {
    Reaction a = reactWith('a');
    auto b = std::make_unique<Reaction>(reactWith('b'));
    Reaction c = reactWith('c');
    EXPECT_TRUE(a);
    a.clear();
    EXPECT_FALSE(a);
    EXPECT_EQ(notify(), "bc");
    b.reset();
    EXPECT_EQ(notify(), "c");
    c = reactWith('d');
    EXPECT_EQ(notify(), "d");
    c = Reaction();
    EXPECT_FALSE(notifier->observed());
    EXPECT_EQ(notify(), "");
    a.clear();
    EXPECT_FALSE(a);
}

TEST_F(NotifierTest, AMovedHandleKeepsTheReactionInItsPlace) {
    Reaction a = reactWith('a');
    Reaction b = reactWith('b');
    Reaction moved = std::move(a);
    EXPECT_TRUE(moved);
    a.clear(); // moved from: nothing to remove
    EXPECT_EQ(notify(), "ab");
    Reaction& same = moved;
    moved = std::move(same);
    EXPECT_EQ(notify(), "ab");
}

TEST_F(NotifierTest, AnyReactionMayRemoveAnyOther) {
    constexpr size_t count = 4;
    for (size_t remover = 0; remover < count; ++remover) {
        for (size_t removed = 0; removed < count; ++removed) {
            std::array<Reaction, count> reactions;
            std::string expectedNow;
            std::string expectedLater;
            for (size_t i = 0; i < count; ++i) {
                char name = static_cast<char>('a' + i);
                reactions[i] = reactWith(name, [&reactions, i, remover, removed] {
                    if (i == remover) {
                        reactions[removed].clear();
                    }
                });
                expectedNow += i == removed && removed > remover ? "" : std::string(1, name);
                expectedLater += i == removed ? "" : std::string(1, name);
            }
            EXPECT_EQ(notify(), expectedNow) << remover << " removes " << removed;
            EXPECT_EQ(notify(), expectedLater) << remover << " removed " << removed;
        }
    }
}

TEST_F(NotifierTest, AReactionMayRemoveAllOrAllThatFollow) {
    std::array<Reaction, 4> reactions;
    auto removeFrom = [&reactions](size_t from) {
        return [&reactions, from] {
            std::for_each(reactions.begin() + static_cast<ptrdiff_t>(from), reactions.end(),
                          [](Reaction& reaction) { reaction.clear(); });
        };
    };
    reactions[0] = reactWith('a');
    reactions[1] = reactWith('b', removeFrom(2));
    reactions[2] = reactWith('c');
    reactions[3] = reactWith('d');
    EXPECT_EQ(notify(), "ab");

    reactions[1] = reactWith('e', removeFrom(0));
    reactions[2] = reactWith('f');
    EXPECT_EQ(notify(), "ae");
    EXPECT_FALSE(notifier->observed());
}

TEST_F(NotifierTest, OfTwoThatRemoveEachOtherTheFirstStays) {
    Reaction a;
    Reaction b;
    a = reactWith('a', [&] { b.clear(); });
    b = reactWith('b', [&] { a.clear(); });
    EXPECT_EQ(notify(), "a");
    EXPECT_TRUE(a);
    EXPECT_FALSE(b);
}

TEST_F(NotifierTest, OneAddedDuringADispatchFirstSeesTheNextChange) {
    std::vector<Reaction> added;
    Reaction a = reactWith('a', [&] { added.push_back(reactWith('n')); });
    Reaction b = reactWith('b');
    EXPECT_EQ(notify(), "ab");
    EXPECT_EQ(notify(), "abn");
    EXPECT_EQ(notify(), "abnn");
}

TEST_F(NotifierTest, OneAddedByTheLastOfADispatchWaitsAsWell) {
    std::optional<Reaction> added;
    Reaction a = reactWith('a', [&] {
        if (!added) {
            added = reactWith('n');
        }
    });
    EXPECT_EQ(notify(), "a");
    EXPECT_EQ(notify(), "an");
}

TEST_F(NotifierTest, AReactionThatReplacesItselfOrAnotherIsNotCalledTwice) {
    Reaction a;
    Reaction b;
    bool first = true;
    a = reactWith('a', [&] {
        if (std::exchange(first, false)) {
            b = reactWith('B');
            a = reactWith('A');
        }
    });
    b = reactWith('b');
    EXPECT_EQ(notify(), "a");
    EXPECT_EQ(notify(), "BA");
}

TEST_F(NotifierTest, OneAddedAfterAllWereRemovedWaitsAsWell) {
    Reaction a;
    Reaction b;
    a = reactWith('a', [&] {
        b.clear();
        a.clear();
        b = reactWith('n');
    });
    b = reactWith('b');
    EXPECT_EQ(notify(), "a");
    EXPECT_EQ(notify(), "n");
}

TEST_F(NotifierTest, ANestedChangeIsTheNextChangeForOneAddedBefore) {
    Reaction added;
    bool first = true;
    Reaction a = reactWith('a', [&] {
        if (std::exchange(first, false)) {
            added = reactWith('n');
            notifier->notify();
        }
    });
    Reaction b = reactWith('b');
    EXPECT_EQ(notify(), "aabnb");
    EXPECT_EQ(notify(), "abn");
}

TEST_F(NotifierTest, HandlesMayMoveDuringADispatch) {
    std::vector<Reaction> handles;
    handles.reserve(1);
    handles.push_back(reactWith('a', [&] {
        handles.reserve(handles.capacity() + 100); // moves all, the running one included
    }));
    handles.push_back(reactWith('b', [&] { std::reverse(handles.begin(), handles.end()); }));
    handles.push_back(reactWith('c'));
    EXPECT_EQ(notify(), "abc");
    EXPECT_EQ(notify(), "abc");
    handles.erase(handles.begin()); // reversed twice
    EXPECT_EQ(notify(), "bc");
}

TEST_F(NotifierTest, AMovedHandleStillRemovesDuringADispatch) {
    Reaction b;
    Reaction elsewhere;
    Reaction a = reactWith('a', [&] {
        elsewhere = std::move(b);
        elsewhere.clear();
    });
    b = reactWith('b');
    EXPECT_EQ(notify(), "a");
}

TEST_F(NotifierTest, ANestedDispatchTellsAllBeforeTheOuterGoesOn) {
    int depth = 0;
    Reaction a = reactWith('a');
    Reaction b = reactWith('b', [&] {
        if (depth < 2) {
            ++depth;
            notifier->notify();
        }
    });
    Reaction c = reactWith('c');
    EXPECT_EQ(notify(), "ababab"
                        "ccc");
}

TEST_F(NotifierTest, WhatANestedDispatchRemovesTheOuterDoesNotCall) {
    Reaction a, b, c, d;
    int depth = 0;
    a = reactWith('a', [&] {
        if (++depth == 1) {
            notifier->notify();
        }
    });
    b = reactWith('b', [&] {
        b.clear();
        c.clear();
    });
    c = reactWith('c');
    d = reactWith('d');
    EXPECT_EQ(notify(), "aabdd");
}

TEST_F(NotifierTest, AReactionMayRemoveItselfWhileItRunsTwice) {
    auto captured = std::make_shared<int>(7);
    Reaction a;
    int depth = 0;
    a = notifier->react(nullptr, [&, captured] {
        if (++depth == 1) {
            notifier->notify();
            a.clear(); // again
        } else {
            a.clear();
        }
        calls += std::to_string(*captured); // the callable outlasts its removal
    });
    Reaction b = reactWith('b');
    EXPECT_EQ(notify(), "7b7b");
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(NotifierTest, ACallableIsFreedWithItsHandleOrWhenItReturns) {
    auto captured = std::make_shared<int>();
    Reaction idle = notifier->react(nullptr, [captured] {});
    EXPECT_EQ(captured.use_count(), 2);
    idle.clear();
    EXPECT_EQ(captured.use_count(), 1);

    Reaction running;
    running = notifier->react(nullptr, [&running, &captured, captured2 = captured] {
        running.clear();
        EXPECT_EQ(captured.use_count(), 2);
    });
    notifier->notify();
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(NotifierTest, AKeyNotifierTellsTheKey) {
    KeyNotifier<std::string> keyNotifier;
    EXPECT_FALSE(keyNotifier.observed());
    std::vector<std::string> seen;
    Reaction a = keyNotifier.react(nullptr, [&](const std::string& key) { seen.push_back(key); });
    Reaction b = keyNotifier.react(nullptr, [&](std::string key) { seen.push_back(key + "!"); });
    keyNotifier.notify("x");
    keyNotifier.notify("y");
    EXPECT_EQ(seen, (std::vector<std::string>{"x", "x!", "y", "y!"}));
}

TEST_F(NotifierTest, AKeyNotifierKeepsToTheSameContract) {
    auto keyNotifier = std::make_unique<KeyNotifier<int>>();
    KeyNotifier<int>& observed = *keyNotifier;
    std::vector<std::pair<char, int>> seen;
    Reaction a, b, c, added;
    a = observed.react(nullptr, [&](int key) {
        seen.emplace_back('a', key);
        if (key == 1) {
            b.clear();
            added = observed.react(nullptr, [&](int later) { seen.emplace_back('n', later); });
            observed.notify(2);
        } else if (key == 3) {
            keyNotifier.reset();
        }
    });
    b = observed.react(nullptr, [&](int key) { seen.emplace_back('b', key); });
    c = observed.react(nullptr, [&](int key) { seen.emplace_back('c', key); });
    observed.notify(1);
    observed.notify(3);
    EXPECT_EQ(seen, (std::vector<std::pair<char, int>>{
                        {'a', 1}, {'a', 2}, {'c', 2}, {'n', 2}, {'c', 1}, {'a', 3}}));
}

} // namespace
} // namespace Vela
