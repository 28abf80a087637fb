#include "Platform/StateDb/EntityManager.h"

#include "Platform/State/DumpContext.h"
#include "Platform/StateDb/test/StateDbFixture.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace Vela {

namespace {

class EntityManagerTest : public StateDbFixture {
  protected:
    /// Keeps what the collections announce.
    std::vector<std::string> seen;
    Reaction entityReaction = entityManager->entityCollection().react(
        nullptr, [this](const std::string& path) { seen.push_back(path); });
    Reaction populatingReaction = entityManager->populatingCollection().react(
        nullptr, [this](const std::string& path) { seen.push_back("populating " + path); });

    /// Mounts for writing.
    void mountForWriting(const std::string& path, const std::string& typeName,
                         const std::string& mode = "wS") {
        RecordingMounter mounter;
        entityManager->mountGroup(mounter)->mount(path, typeName, mode);
    }
};

TEST_F(EntityManagerTest, givesAReadOnlyViewOfTheTypeThatIsThere) {
    static_assert(
        std::is_same_v<decltype(entityManager->entity<Apple>("fruit")), Ptr<const Apple>>);
    auto apple = make<Apple>("red");
    entityManager->entityIs("fruit", apple);
    EXPECT_EQ(entityManager->entity<Apple>("fruit"), apple);
    EXPECT_EQ(entityManager->entity<Entity>("fruit"), apple);
    EXPECT_FALSE(entityManager->entity<Pear>("fruit"));
    EXPECT_FALSE(entityManager->entity<Apple>("fruit/more"));
    EXPECT_FALSE(entityManager->entity<Apple>(""));
    EXPECT_EQ(entityManager->entityCollection().count(), 1u) << "a look-up adds nothing";
}

TEST_F(EntityManagerTest, keepsAnEntityAliveWhileItIsPublished) {
    uint64_t before = Entity::liveCount();
    entityManager->entityIs("fruit", make<Apple>());
    EXPECT_EQ(Entity::liveCount(), before + 1);
    entityManager->entityDel("fruit");
    EXPECT_EQ(Entity::liveCount(), before);
    EXPECT_FALSE(entityManager->entity<Apple>("fruit"));
}

TEST_F(EntityManagerTest, aPathHasOneEntity) {
    uint64_t before = Entity::liveCount();
    entityManager->entityIs("fruit", make<Apple>());
    auto pear = make<Pear>();
    entityManager->entityIs("fruit", pear);
    EXPECT_EQ(Entity::liveCount(), before + 1);
    EXPECT_FALSE(entityManager->entity<Apple>("fruit"));
    EXPECT_EQ(entityManager->entity<Pear>("fruit"), pear);
}

TEST_F(EntityManagerTest, announcesWhatAppearsIsReplacedOrGoes) {
    auto apple = make<Apple>();
    entityManager->entityIs("a", apple);
    entityManager->entityIs("a", apple);
    entityManager->entityIs("b", apple);
    entityManager->entityIs("a", make<Apple>());
    entityManager->entityDel("c");
    entityManager->entityDel("b");
    EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "a", "b"}));
}

TEST_F(EntityManagerTest, announcesAChangeOfPopulatingOnly) {
    EXPECT_FALSE(entityManager->populating("a"));
    entityManager->populatingIs("a", false);
    entityManager->populatingIs("a", true);
    entityManager->populatingIs("a", true);
    EXPECT_TRUE(entityManager->populating("a"));
    EXPECT_FALSE(entityManager->populating("b"));
    entityManager->populatingIs("a", false);
    EXPECT_FALSE(entityManager->populating("a"));
    EXPECT_EQ(seen, (std::vector<std::string>{"populating a", "populating a"}));
}

TEST_F(EntityManagerTest, nobodyWritesWhatNobodyHasMountedForWriting) {
    static_assert(
        std::is_same_v<decltype(entityManager->writableEntity<Apple>("fruit")), Ptr<Apple>>);
    auto apple = make<Apple>();
    entityManager->entityIs("fruit", apple);
    EXPECT_FALSE(entityManager->writableEntity<Apple>("fruit"));
    mountForWriting("vegetables", "Test::Apple");
    mountForWriting("fruit", "Test::Apple", "r");
    EXPECT_FALSE(entityManager->writableEntity<Apple>("fruit"));
}

TEST_F(EntityManagerTest, aWritableMountGivesTheEntityItself) {
    for (const char* mode : {"wc", "wS"}) {
        std::string path = std::string("fruit/") + mode;
        auto apple = make<Apple>();
        entityManager->entityIs(path, apple);
        mountForWriting(path, "Test::Apple", mode);
        EXPECT_EQ(entityManager->writableEntity<Apple>(path), apple);
        EXPECT_FALSE(entityManager->writableEntity<Pear>(path));
        entityManager->entityDel(path);
        EXPECT_FALSE(entityManager->writableEntity<Apple>(path));
    }
}

TEST_F(EntityManagerTest, makesALocalEntityWithItsName) {
    entityManager->localEntityIs<Apple>("local", "mine");
    auto apple = entityManager->entity<Apple>("local");
    ASSERT_TRUE(apple);
    EXPECT_EQ(apple->name(), "mine");
    EXPECT_EQ(seen, std::vector<std::string>{"local"});
}

TEST_F(EntityManagerTest, findsALocalEntityThatIsThere) {
    auto apple = make<Apple>("theirs");
    entityManager->entityIs("local", apple);
    uint64_t before = Entity::liveCount();
    entityManager->localEntityIs<Apple>("local", "mine");
    EXPECT_EQ(entityManager->entity<Apple>("local"), apple);
    EXPECT_EQ(Entity::liveCount(), before);
    EXPECT_EQ(seen, std::vector<std::string>{"local"});
}

TEST_F(EntityManagerTest, pathsOfTheCell) {
    EXPECT_EQ(EntityManager::cellPath("ip/vrf/status/local"), "cell/1/ip/vrf/status/local");
}

TEST_F(EntityManagerTest, givesTheTableService) {
    EXPECT_EQ(entityManager->tableService(), tableService);
}

TEST_F(EntityManagerTest, dumpsPathsAndTypes) {
    entityManager->entityIs("b", make<Pear>());
    entityManager->entityIs("a", make<Apple>());
    entityManager->populatingIs("a", true);
    mountForWriting("b", "Test::Pear");
    DumpContext dump;
    entityManager->dumpState(dump, 2);
    EXPECT_EQ(dump.text(), "  EntityManager\n"
                           "    a Test::Apple populating\n"
                           "    b Test::Pear writable\n");
}

} // namespace

} // namespace Vela
