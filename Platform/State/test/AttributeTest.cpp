#include "Platform/State/Attribute.h"

#include "Platform/State/test/StateFixture.h"

#include <memory>
#include <vector>

namespace Vela {
namespace {

class AttributeTest : public StateFixture {};

TEST_F(AttributeTest, StartsWithItsValueOrAnEmptyOne) {
    EXPECT_EQ(Attribute<int>().get(), 0);
    EXPECT_EQ(Attribute<int>(7).get(), 7);
}

TEST_F(AttributeTest, SetAnnouncesWhatDiffers) {
    Attribute<int> level(1);
    int announced = 0;
    Reaction reaction = level.react(nullptr, [&] { ++announced; });
    EXPECT_FALSE(level.set(1));
    EXPECT_EQ(announced, 0);
    EXPECT_TRUE(level.set(2));
    EXPECT_EQ(announced, 1);
    EXPECT_EQ(level.get(), 2);
    EXPECT_FALSE(level.set(2));
    EXPECT_EQ(announced, 1);
}

TEST_F(AttributeTest, SetAlwaysAnnouncesEveryCall) {
    Attribute<int> level(1);
    int announced = 0;
    Reaction reaction = level.react(nullptr, [&] { ++announced; });
    level.setAlways(1);
    level.setAlways(2);
    EXPECT_EQ(announced, 2);
    EXPECT_EQ(level.get(), 2);
}

TEST_F(AttributeTest, AReadOnlyViewCanBeObserved) {
    Attribute<int> level;
    const Attribute<int>& view = level;
    int seen = 0;
    Reaction reaction = view.react(nullptr, [&] { seen = view.get(); });
    level.set(7);
    EXPECT_EQ(seen, 7);
}

TEST_F(AttributeTest, AReactionReadsTheNewValue) {
    Attribute<std::string> text("old");
    std::vector<std::string> seen;
    Reaction reaction = text.react(nullptr, [&] { seen.push_back(text.get()); });
    text.set("new");
    text.setAlways("newer");
    EXPECT_EQ(seen, (std::vector<std::string>{"new", "newer"}));
}

TEST_F(AttributeTest, AfterANestedSetNobodyReadsTheOldValue) {
    Attribute<int> level;
    std::vector<std::pair<char, int>> seen;
    Reaction a = level.react(nullptr, [&] {
        seen.emplace_back('a', level.get());
        if (level.get() < 3) {
            EXPECT_TRUE(level.set(level.get() + 1));
        }
    });
    Reaction b = level.react(nullptr, [&] { seen.emplace_back('b', level.get()); });
    EXPECT_TRUE(level.set(1));
    EXPECT_EQ(seen, (std::vector<std::pair<char, int>>{
                        {'a', 1}, {'a', 2}, {'a', 3}, {'b', 3}, {'b', 3}, {'b', 3}}));
}

TEST_F(AttributeTest, ANestedSetToTheSameValueIsSilent) {
    Attribute<int> level;
    int announced = 0;
    Reaction reaction = level.react(nullptr, [&] {
        ++announced;
        EXPECT_FALSE(level.set(level.get()));
    });
    level.set(1);
    EXPECT_EQ(announced, 1);
}

TEST_F(AttributeTest, AReplacedObjectLivesUntilItsReplacementIsAnnounced) {
    Attribute<Ptr<Thing>> current;
    Ptr<Thing> second = make<Thing>("second");
    std::string order;
    current.set(make<Thing>("first"));
    current.get()->whenDestroyed = [&] {
        order += "first ends;";
        EXPECT_EQ(current.get(), second);
    };
    Reaction reaction = current.react(nullptr, [&] { order += "announced;"; });
    current.set(second);
    EXPECT_EQ(order, "announced;first ends;");
    current.setAlways(nullptr);
    EXPECT_EQ(order, "announced;first ends;announced;");
}

TEST_F(AttributeTest, TheEndOfAReplacedObjectMayEndTheAttribute) {
    for (bool always : {false, true}) {
        auto current = std::make_unique<Attribute<Ptr<Thing>>>();
        Attribute<Ptr<Thing>>& attribute = *current;
        attribute.set(make<Thing>("first"));
        attribute.get()->whenDestroyed = [&] { current.reset(); };
        int announced = 0;
        Reaction reaction = attribute.react(nullptr, [&] { ++announced; });
        if (always) {
            attribute.setAlways(nullptr);
        } else {
            EXPECT_TRUE(attribute.set(nullptr));
        }
        EXPECT_FALSE(current);
        EXPECT_EQ(announced, 1);
    }
}

TEST_F(AttributeTest, TheEntityMayDieInTheAnnouncement) {
    auto thing = make<Thing>();
    Thing& raw = *thing;
    int announced = 0;
    Reaction a = raw.level.react(nullptr, [&] {
        ++announced;
        thing.reset();
    });
    Reaction b = raw.level.react(nullptr, [&] { ++announced; });
    EXPECT_TRUE(raw.level.set(1));
    EXPECT_EQ(announced, 1);
    EXPECT_FALSE(a || b);
    EXPECT_EQ(Entity::liveCount(), 0u);
}

} // namespace
} // namespace Vela
