#pragma once

#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/State/DumpContext.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

// What all published entities have in common, through their accessors, which are given as pointers
// to members. Keys are given in ascending order.

inline std::string dump(const Vela::Entity& entity, int indent = 0) {
    Vela::DumpContext context;
    entity.dumpState(context, indent);
    return context.text();
}

/// Expects that the setter announces a change only, once, and with the new value in place.
template <class E, class T, class Get, class Argument>
void expectAttribute(E& entity, const Vela::Attribute<T>& (E::*attribute)() const,
                     Get (E::*get)() const, void (E::*set)(Argument),
                     const std::type_identity_t<T>& other) {
    const T first = (entity.*get)();
    ASSERT_NE(first, other);
    std::vector<T> seen;
    auto reaction = (entity.*attribute)().react(nullptr, [&] { seen.push_back((entity.*get)()); });
    (entity.*set)(first);
    (entity.*set)(other);
    (entity.*set)(other);
    (entity.*set)(first);
    EXPECT_EQ(seen, (std::vector<T>{other, first}));
}

/// Expects a collection of values that starts empty and announces the keys of what changes.
template <class E, class Collection, class KeyArgument, class ValueArgument>
void expectValues(E& entity, const Collection& (E::*collection)() const,
                  void (E::*set)(KeyArgument, ValueArgument), void (E::*del)(KeyArgument),
                  void (E::*delAll)(), const typename Collection::Key& a,
                  const typename Collection::Key& b, const typename Collection::Value& one,
                  const typename Collection::Value& other) {
    const Collection& values = (entity.*collection)();
    ASSERT_EQ(values.count(), 0u);
    ASSERT_NE(one, other);
    std::vector<typename Collection::Key> seen, expected;
    auto reaction = values.react(nullptr, [&](const auto& key) { seen.push_back(key); });

    (entity.*set)(b, one);
    (entity.*set)(a, one);
    (entity.*set)(a, one);
    expected = {b, a};
    EXPECT_EQ(seen, expected);
    (entity.*set)(a, other);
    EXPECT_EQ(values.value(a), other);
    EXPECT_EQ(values.value(b), one);
    EXPECT_EQ(values.count(), 2u);

    (entity.*del)(a);
    (entity.*del)(a);
    EXPECT_FALSE(values.has(a));
    EXPECT_TRUE(values.has(b));
    (entity.*set)(a, one);
    (entity.*delAll)();
    (entity.*delAll)();
    EXPECT_EQ(values.count(), 0u);
    expected = {b, a, a, a, a, a, b};
    EXPECT_EQ(seen, expected);
}

/// Expects a set that starts empty and announces the keys of what changes.
template <class E, class Collection, class KeyArgument>
void expectSet(E& entity, const Collection& (E::*collection)() const, void (E::*add)(KeyArgument),
               void (E::*del)(KeyArgument), void (E::*delAll)(), const typename Collection::Key& a,
               const typename Collection::Key& b) {
    const Collection& set = (entity.*collection)();
    ASSERT_EQ(set.count(), 0u);
    std::vector<typename Collection::Key> seen, expected;
    auto reaction = set.react(nullptr, [&](const auto& key) { seen.push_back(key); });

    (entity.*add)(b);
    (entity.*add)(a);
    (entity.*add)(a);
    EXPECT_EQ(set.count(), 2u);
    EXPECT_EQ(set.first().key(), a);
    (entity.*del)(a);
    (entity.*del)(a);
    EXPECT_FALSE(set.has(a));
    (entity.*add)(a);
    (entity.*delAll)();
    (entity.*delAll)();
    EXPECT_EQ(set.count(), 0u);
    expected = {b, a, a, a, a, b};
    EXPECT_EQ(seen, expected);
}

/// Expects a collection of children that starts empty, finds or creates them, and ends their lives
/// with their entries and with `entity`, whose life it ends.
template <class E, class Child, class Collection, class GetArgument, class Is, class DelArgument,
          class KeyOf>
void expectChildren(E& entity, const Collection& (E::*collection)() const,
                    Vela::Ptr<Child> (E::*get)(GetArgument) const, Is is,
                    void (E::*del)(DelArgument), void (E::*delAll)(), KeyOf keyOf,
                    const typename Collection::Key& a, const typename Collection::Key& b) {
    const Collection& children = (entity.*collection)();
    ASSERT_EQ(children.count(), 0u);
    EXPECT_EQ((entity.*get)(a), nullptr);
    std::vector<typename Collection::Key> seen, expected;
    auto reaction = children.react(nullptr, [&](const auto& key) { seen.push_back(key); });

    Vela::Ptr<Child> first = std::invoke(is, entity, a);
    EXPECT_EQ(((*first).*keyOf)(), a);
    EXPECT_EQ(std::invoke(is, entity, a), first);
    EXPECT_EQ((entity.*get)(a), first);
    EXPECT_EQ((entity.*get)(b), nullptr);
    expected = {a};
    EXPECT_EQ(seen, expected);

    // A reaction finds the entry gone and the child still alive.
    bool goneAndAlive = false;
    {
        auto removal = children.react(nullptr, [&](const auto& key) {
            goneAndAlive = !(entity.*get)(key) && !first->destroyed();
        });
        (entity.*del)(b);
        EXPECT_FALSE(goneAndAlive);
        (entity.*del)(a);
    }
    EXPECT_TRUE(goneAndAlive);
    EXPECT_TRUE(first->destroyed());
    expected = {a, a};
    EXPECT_EQ(seen, expected);

    Vela::Ptr<Child> again = std::invoke(is, entity, a);
    EXPECT_NE(again, first);
    Vela::Ptr<Child> second = std::invoke(is, entity, b);
    (entity.*delAll)();
    EXPECT_TRUE(again->destroyed());
    EXPECT_TRUE(second->destroyed());
    EXPECT_EQ(children.count(), 0u);
    expected = {a, a, a, b, a, b};
    EXPECT_EQ(seen, expected);

    Vela::Ptr<Child> last = std::invoke(is, entity, a);
    entity.destroy();
    EXPECT_TRUE(last->destroyed());
    EXPECT_EQ(children.count(), 0u);
    expected.insert(expected.end(), {a, a});
    EXPECT_EQ(seen, expected);
}
