#pragma once

#include "Platform/Quarry/TableService.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"

#include <functional>
#include <string>
#include <vector>

/// A table service for published tables.
class TableFixture : public Testing::CoreFixture {
  protected:
    ~TableFixture() override {
        group->destroy();
        service->destroy();
    }

    /// The table that this process writes at `path`.
    template <class T>
    Vela::Ptr<T> table(const std::string& path,
                       std::vector<Quarry::CollectionDeclaration> declarations = {}) {
        group->mount<T>(path, Quarry::MountType::writer, std::move(declarations));
        return group->entity<T>(path);
    }

    Testing::TemporaryDirectory directory;
    Vela::Ptr<Quarry::TableService> service =
        Vela::make<Quarry::TableService>(scheduler(), directory.path(), 64);
    Vela::Ptr<Quarry::MountGroup> group = service->mountGroup();
};

/// Expects a collection of `table` that holds a record by its key, and announces each change of it
/// from the loop.
template <class Collection, class Record, class Set, class Del>
void expectRecords(const Collection& collection, const Record& a, const Record& changedA,
                   const Record& b, Set set, Del del, const std::function<void()>& runUntilIdle) {
    ASSERT_EQ(a.key, changedA.key);
    ASSERT_NE(a, changedA);
    std::vector<typename Record::Key> seen, expected;
    auto reaction = collection.react(nullptr, [&](const auto& key) { seen.push_back(key); });
    EXPECT_TRUE(set(a));
    EXPECT_TRUE(set(a));
    EXPECT_TRUE(set(b));
    EXPECT_TRUE(set(changedA));
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(collection.count(), 2u);
    EXPECT_EQ(collection.value(a.key), changedA);
    EXPECT_EQ(collection.value(b.key), b);
    EXPECT_TRUE(del(a.key));
    EXPECT_FALSE(del(a.key));
    EXPECT_FALSE(collection.has(a.key));
    EXPECT_EQ(collection.value(a.key), Record());
    EXPECT_EQ(collection.count(), 1u);
    runUntilIdle();
    expected = {a.key, b.key, a.key, a.key};
    EXPECT_EQ(seen, expected);
}
