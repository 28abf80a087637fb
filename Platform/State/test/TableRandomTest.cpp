#include "Platform/State/test/StateFixture.h"
#include "Platform/State/test/TableKinds.h"

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <vector>

namespace Vela {
namespace {

/// Does many random things to a table, to some walks over it and to a model of both, which must
/// agree at all times. What a walk promises is checked twice: its every step against the order of
/// the model, and at its end, without any order, that it met each entry that was there all the
/// time and none twice.
template <class T>
class TableRandomTest : public StateFixture {
  protected:
    using Table = T;
    using Key = typename Table::Key;
    using Model = std::map<Key, uint32_t, TableOrder<Table>>;

    struct Walk {
        typename Table::Cursor cursor;
        std::optional<Key> bookmark; // left there, to be resumed
        std::set<uint32_t> toMeet;   // there since the walk began
        std::set<uint32_t> met;
    };

    void run(uint32_t seed, uint32_t keys, int operations) {
        random.seed(seed);
        ASSERT_EQ(table.size(), 0u);
        walks.assign(4, Walk{table.first(), {}, {}, {}});
        for (int operation = 0; operation < operations && !HasFailure(); ++operation) {
            // From time to time the table gets another size to drift to, often next to none.
            if (below(keys * 8) == 0) {
                wanted = below(3) == 0 ? below(4) : below(keys);
            }
            act(keys);
            ASSERT_EQ(table.size(), model.size());
        }
        EXPECT_GT(std::exchange(finished, 0), 0);
        while (!model.empty() && !HasFailure()) {
            remove(model.begin()->first.number);
        }
    }

    void act(uint32_t keys) {
        Walk& walk = walks[below(walks.size())];
        uint32_t number = below(keys);
        switch (below(8)) {
        case 0:
        case 1:
            table.size() < wanted ? add(number) : remove(number);
            break;
        case 2:
            below(2) ? add(number) : remove(number);
            break;
        case 3:
            find(number);
            break;
        case 4: // what the walk stands at, or what comes next
            if (!walk.bookmark && walk.cursor) {
                auto it = below(2) ? model.lower_bound(walk.cursor.key())
                                   : model.upper_bound(walk.cursor.key());
                if (it != model.end()) {
                    remove(it->first.number);
                }
            }
            break;
        case 5:
            leaveOrResume(walk);
            break;
        default:
            step(walk);
        }
    }

    void add(uint32_t number) {
        bool added = insert(table, number);
        EXPECT_EQ(added, model.emplace(Key{number}, number).second) << number;
    }

    void remove(uint32_t number) {
        auto gone = table.erase(Key{number});
        EXPECT_EQ(gone.has_value(), model.erase(Key{number}) == 1) << number;
        if (gone) {
            EXPECT_EQ(numberOf(*gone), number);
            for (Walk& walk : walks) {
                walk.toMeet.erase(number);
            }
        }
    }

    void find(uint32_t number) const {
        auto* found = table.find(Key{number});
        EXPECT_EQ(found != nullptr, model.contains(Key{number})) << number;
        if (found) {
            EXPECT_EQ(numberOf(*found), number);
        }
    }

    void begin(Walk& walk) {
        walk.cursor = table.first();
        walk.bookmark.reset();
        walk.met.clear();
        walk.toMeet.clear();
        for (const auto& [key, value] : model) {
            walk.toMeet.insert(value);
        }
        arrived(walk, model.begin());
    }

    void step(Walk& walk) {
        if (walk.bookmark) {
            return;
        }
        if (!walk.cursor) {
            EXPECT_TRUE(walk.toMeet.empty()) << *walk.toMeet.begin() << " was missed";
            ++finished;
            begin(walk);
            return;
        }
        auto expected = model.upper_bound(walk.cursor.key());
        ++walk.cursor;
        arrived(walk, expected);
    }

    void leaveOrResume(Walk& walk) {
        if (walk.bookmark) {
            walk.cursor = table.atOrAfter(*walk.bookmark);
            auto expected = model.lower_bound(*std::exchange(walk.bookmark, std::nullopt));
            arrived(walk, expected);
        } else if (walk.cursor) {
            // As walks do: the bookmark is the entry still to be visited.
            walk.bookmark = walk.cursor.key();
            if (walk.met.erase(walk.bookmark->number) && model.contains(*walk.bookmark)) {
                walk.toMeet.insert(walk.bookmark->number);
            }
        }
    }

    void arrived(Walk& walk, typename Model::const_iterator expected) {
        ASSERT_EQ(static_cast<bool>(walk.cursor), expected != model.end());
        if (walk.cursor) {
            uint32_t number = walk.cursor.key().number;
            ASSERT_EQ(number, expected->first.number);
            ASSERT_EQ(numberOf(walk.cursor.value()), expected->second);
            EXPECT_TRUE(walk.met.insert(number).second) << number << " was met twice";
            walk.toMeet.erase(number);
        }
    }

    uint32_t below(size_t limit) {
        return static_cast<uint32_t>(std::uniform_int_distribution<size_t>(0, limit - 1)(random));
    }

    std::mt19937 random;
    Table table;
    Model model;
    std::vector<Walk> walks;
    uint32_t wanted = 0;
    int finished = 0;
};

TYPED_TEST_SUITE(TableRandomTest, TableKinds, TableKindNames);

TYPED_TEST(TableRandomTest, AgreesWithAModelWhateverIsDoneToIt) {
    for (auto [keys, operations] : {std::pair(3u, 20'000), {40u, 60'000}, {2000u, 120'000}}) {
        uint32_t seed = std::random_device()();
        SCOPED_TRACE("keys " + std::to_string(keys) + " seed " + std::to_string(seed));
        this->run(seed, keys, operations);
    }
}

} // namespace
} // namespace Vela
