#include "Platform/State/Entity.h"

#include "Platform/State/DumpContext.h"
#include "Platform/State/test/StateFixture.h"

#include <memory>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace Vela {
namespace {

/// Keeps a record, outside of itself, of what happens to it.
class Witness : public Entity {
  public:
    using Record = std::vector<std::string>;

    explicit Witness(Record& record) : record_(record) { note("constructed"); }
    ~Witness() override { note("freed"); }

    const char* typeName() const noexcept override { return "Witness"; }
    std::string toStrep() const { return "witness"; }

    std::function<void(Witness&)> whenDestroyed;

  protected:
    void handleInitialized() override { note("initialized"); }
    void handleDestroy() noexcept override {
        note(destroyed() ? "destroyed" : "destroyed too early");
        if (whenDestroyed) {
            whenDestroyed(*this);
        }
    }
    void reactorsDel() noexcept override { note("reactors gone"); }
    void handleNotificationActive() noexcept override {
        note(hasNotificationActive() ? "active" : "inactive");
    }

  private:
    void note(const char* what) { record_.emplace_back(what); }

    Record& record_;
};

class EntityTest : public StateFixture {
  protected:
    Witness::Record record;
    const Witness::Record wholeLife = {"constructed", "initialized", "destroyed", "reactors gone",
                                       "freed"};
};

TEST_F(EntityTest, MakeInitializesAfterConstruction) {
    auto witness = make<Witness>(record);
    EXPECT_EQ(record, (Witness::Record{"constructed", "initialized"}));
    EXPECT_FALSE(witness->destroyed());
}

TEST_F(EntityTest, LifeEndsWithTheLastPtr) {
    auto witness = make<Witness>(record);
    Ptr<Witness> other = witness;
    witness.reset();
    EXPECT_EQ(record.size(), 2u);
    other.reset();
    EXPECT_EQ(record, wholeLife);
}

TEST_F(EntityTest, DestroyEndsTheLifeAndTheMemoryWaitsForTheLastPtr) {
    auto witness = make<Witness>(record);
    witness->destroy();
    EXPECT_TRUE(witness->destroyed());
    EXPECT_EQ(record.back(), "reactors gone");
    witness.reset();
    EXPECT_EQ(record, wholeLife);
}

TEST_F(EntityTest, DestroyingAgainDoesNothing) {
    auto witness = make<Witness>(record);
    witness->whenDestroyed = [](Witness& self) { self.destroy(); };
    witness->destroy();
    witness->destroy();
    witness.reset();
    EXPECT_EQ(record, wholeLife);
}

TEST_F(EntityTest, DestroyFromWithinTheEndOfLifeByTheLastPtrDoesNothing) {
    auto witness = make<Witness>(record);
    witness->whenDestroyed = [](Witness& self) { self.destroy(); };
    witness.reset();
    EXPECT_EQ(record, wholeLife);
}

TEST_F(EntityTest, HandleDestroyMayDropTheLastPtr) {
    auto witness = make<Witness>(record);
    Witness& raw = *witness;
    raw.whenDestroyed = [&](Witness&) {
        witness.reset();
        EXPECT_NE(record.back(), "freed");
    };
    raw.destroy();
    EXPECT_EQ(record, wholeLife);
}

TEST_F(EntityTest, HandleDestroyMayPassTheObjectAround) {
    auto witness = make<Witness>(record);
    witness->whenDestroyed = [](Witness& self) {
        Ptr<Witness> passing(&self);
        passing.reset();
    };
    witness.reset();
    EXPECT_EQ(record, wholeLife);
}

TEST_F(EntityTest, APtrTakenByHandleDestroyKeepsTheMemoryAndNotTheLife) {
    Ptr<Witness> kept;
    auto witness = make<Witness>(record);
    witness->whenDestroyed = [&](Witness& self) { kept = &self; };
    witness.reset();
    ASSERT_TRUE(kept);
    EXPECT_TRUE(kept->destroyed());
    EXPECT_EQ(record.back(), "reactors gone");
    kept.reset();
    EXPECT_EQ(record, wholeLife);
}

TEST_F(EntityTest, APtrTakenWhenDestroyEndsTheLifeKeepsTheMemoryAndNotTheLife) {
    Ptr<Witness> kept;
    auto witness = make<Witness>(record);
    witness->whenDestroyed = [&](Witness& self) { kept = &self; };
    witness->destroy();
    witness.reset();
    EXPECT_EQ(record.back(), "reactors gone");
    kept.reset();
    EXPECT_EQ(record, wholeLife);
}

/// Hands out a counted pointer to itself before anybody else could have one.
class SelfPassing : public Entity {
  public:
    SelfPassing() { Ptr<SelfPassing> passing(this); }
    const char* typeName() const noexcept override { return "SelfPassing"; }
    int destroyedTimes = 0;

  protected:
    void handleDestroy() noexcept override { ++destroyedTimes; }
};

TEST_F(EntityTest, TheConstructorMayPassTheObjectAround) {
    auto entity = make<SelfPassing>();
    EXPECT_FALSE(entity->destroyed());
    EXPECT_EQ(entity->destroyedTimes, 0);
    EXPECT_EQ(Entity::liveCount(), 1u);
}

/// Points at its parent, and passes it around at the end of its own life.
class Child : public Entity {
  public:
    explicit Child(Entity& parent) : parent_(parent) {}
    const char* typeName() const noexcept override { return "Child"; }

  protected:
    void handleDestroy() noexcept override { Ptr<Entity> passing(&parent_); }

  private:
    Entity& parent_;
};

class Parent : public Entity {
  public:
    const char* typeName() const noexcept override { return "Parent"; }
    Owned<Child> child;

  protected:
    void handleInitialized() override { child = make<Child>(*this); }
};

TEST_F(EntityTest, AChildThatEndsWithTheParentsMemoryMayPassTheParentAround) {
    auto parent = make<Parent>();
    ASSERT_TRUE(parent->child);
    EXPECT_EQ(Entity::liveCount(), 2u);
    parent.reset();
    EXPECT_EQ(Entity::liveCount(), 0u);
}

class Refusing : public Entity {
  public:
    Refusing(bool inConstructor, int& destroyedTimes) : destroyedTimes_(destroyedTimes) {
        if (inConstructor) {
            throw std::invalid_argument("constructor");
        }
    }
    const char* typeName() const noexcept override { return "Refusing"; }

  protected:
    void handleInitialized() override { throw std::invalid_argument("handleInitialized"); }
    void handleDestroy() noexcept override { ++destroyedTimes_; }

  private:
    int& destroyedTimes_;
};

TEST_F(EntityTest, AnObjectWhoseConstructorThrowsNeverLived) {
    int destroyedTimes = 0;
    EXPECT_THROW(make<Refusing>(true, destroyedTimes), std::invalid_argument);
    EXPECT_EQ(destroyedTimes, 0);
    EXPECT_EQ(Entity::liveCount(), 0u);
}

TEST_F(EntityTest, AnObjectThatCannotInitializeEndsItsLife) {
    int destroyedTimes = 0;
    EXPECT_THROW(make<Refusing>(false, destroyedTimes), std::invalid_argument);
    EXPECT_EQ(destroyedTimes, 1);
    EXPECT_EQ(Entity::liveCount(), 0u);
}

TEST_F(EntityTest, LiveCountIsTheNumberOfObjectsWhoseMemoryLasts) {
    auto first = make<Thing>();
    auto second = make<Thing>();
    EXPECT_EQ(Entity::liveCount(), 2u);
    first->destroy();
    EXPECT_EQ(Entity::liveCount(), 2u);
    first.reset();
    EXPECT_EQ(Entity::liveCount(), 1u);
}

TEST_F(EntityTest, NotificationIsActiveFromConstructionAndTellsOfChangesOnly) {
    auto witness = make<Witness>(record);
    record.clear();
    EXPECT_TRUE(witness->hasNotificationActive());
    witness->hasNotificationActiveIs(true);
    EXPECT_TRUE(record.empty());
    witness->hasNotificationActiveIs(false);
    witness->hasNotificationActiveIs(false);
    witness->hasNotificationActiveIs(true);
    EXPECT_EQ(record, (Witness::Record{"inactive", "active"}));
}

TEST_F(EntityTest, ReactsWhileActiveAndNotDestroyed) {
    auto thing = make<Thing>();
    EXPECT_TRUE(thing->reacts());
    thing->hasNotificationActiveIs(false);
    EXPECT_FALSE(thing->reacts());
    thing->hasNotificationActiveIs(true);
    thing->destroy();
    EXPECT_FALSE(thing->reacts());
}

TEST_F(EntityTest, TraceObjectIsTypeAndDistinction) {
    auto thing = make<Thing>("af=ipv4 vlanId=10");
    std::ostringstream out;
    thing->formatTraceObject(out);
    EXPECT_EQ(out.str(), "Thing(af=ipv4 vlanId=10)");
}

TEST_F(EntityTest, TraceObjectWithoutDistinctionIsToldByItsAddress) {
    auto witness = make<Witness>(record);
    std::ostringstream expected;
    expected << "Witness(" << static_cast<const void*>(static_cast<const Entity*>(witness.get()))
             << ')';
    std::ostringstream out;
    witness->formatTraceObject(out);
    EXPECT_EQ(out.str(), expected.str());
}

TEST_F(EntityTest, DumpIsTheTypeUnlessTheObjectHasMoreToSay) {
    auto thing = make<Thing>("af=ipv4");
    DumpContext dump;
    thing->dumpState(dump, 2);
    EXPECT_EQ(dump.text(), "  Thing\n");
}

TEST_F(EntityTest, TextOfAPtrIsThatOfTheObjectOrNull) {
    auto witness = make<Witness>(record);
    EXPECT_EQ(toStrep(witness), "witness");
    EXPECT_EQ(toStrep(Ptr<Witness>()), "NULL");
}

class OwnedTest : public StateFixture {
  protected:
    Ptr<Thing> watched(const char* name) {
        auto thing = make<Thing>(name);
        thing->whenDestroyed = [this, name] { ended += name; };
        return thing;
    }
    std::string ended; // names, in the order in which their lives ended
};

TEST_F(OwnedTest, ClearingEndsTheChildsLifeThoughOthersHoldIt) {
    Ptr<Thing> held = watched("a");
    Owned<Thing> owned;
    EXPECT_FALSE(owned);
    owned = held;
    EXPECT_TRUE(owned);
    EXPECT_EQ(owned.ptr(), held);
    EXPECT_EQ(&*owned, held.get());
    EXPECT_EQ(ended, "");
    owned.reset();
    EXPECT_FALSE(owned);
    EXPECT_EQ(ended, "a");
    EXPECT_TRUE(held->destroyed());
}

TEST_F(OwnedTest, AssigningNullClears) {
    Ptr<Thing> held = watched("a");
    Owned<Thing> owned;
    owned = held;
    owned = nullptr;
    EXPECT_FALSE(owned);
    EXPECT_TRUE(held->destroyed());
}

TEST_F(OwnedTest, OutlivingTheHolderEndsTheChildsLife) {
    Ptr<Thing> held = watched("a");
    {
        Owned<Thing> owned;
        owned = held;
    }
    EXPECT_TRUE(held->destroyed());
}

TEST_F(OwnedTest, WhenAReplacedChildsLifeEndsTheNewOneIsInPlace) {
    Owned<Thing> owned;
    auto first = watched("a");
    auto second = watched("b");
    Thing* seen = nullptr;
    first->whenDestroyed = [&] { seen = owned.ptr().get(); };
    owned = first;
    owned = second;
    EXPECT_EQ(seen, second.get());
    EXPECT_TRUE(first->destroyed());
    EXPECT_FALSE(second->destroyed());
}

TEST_F(OwnedTest, WhenAClearedChildsLifeEndsItIsOutOfSight) {
    Owned<Thing> owned;
    auto child = watched("a");
    bool seen = true;
    child->whenDestroyed = [&] { seen = static_cast<bool>(owned); };
    owned = child;
    owned.reset();
    EXPECT_FALSE(seen);
}

TEST_F(OwnedTest, AChildThatReplacesItselfAtTheEndOfItsLifeLeavesTheLatestOne) {
    Owned<Thing> owned;
    auto last = watched("c");
    auto first = watched("a");
    first->whenDestroyed = [&] { owned = last; };
    owned = first;
    owned = watched("b");
    EXPECT_EQ(owned.ptr(), last);
    EXPECT_EQ(ended, "b");
}

TEST_F(OwnedTest, AssigningTheSameChildKeepsItAlive) {
    Owned<Thing> owned;
    auto child = watched("a");
    owned = child;
    owned = child;
    EXPECT_FALSE(child->destroyed());
    EXPECT_EQ(owned.ptr(), child);
}

TEST_F(OwnedTest, MovingHandsTheChildOverAlive) {
    Owned<Thing> first;
    first = watched("a");
    Owned<Thing> second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(ended, "");

    Owned<Thing> third;
    third = watched("b");
    third = std::move(second);
    EXPECT_FALSE(second);
    EXPECT_TRUE(third);
    EXPECT_EQ(ended, "b");

    Owned<Thing>& same = third;
    third = std::move(same);
    EXPECT_TRUE(third);
    EXPECT_EQ(ended, "b");
}

TEST_F(OwnedTest, AChildMayEndItsHolder) {
    auto owned = std::make_unique<Owned<Thing>>();
    Owned<Thing>& holder = *owned;
    auto child = watched("a");
    child->whenDestroyed = [&] { owned.reset(); };
    holder = child;
    child.reset();
    holder.reset();
    EXPECT_FALSE(owned);
    EXPECT_EQ(Entity::liveCount(), 0u);
}

} // namespace
} // namespace Vela
