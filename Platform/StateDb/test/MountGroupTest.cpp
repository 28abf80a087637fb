#include "Platform/StateDb/MountGroup.h"

#include "Platform/State/DumpContext.h"
#include "Platform/StateDb/test/StateDbFixture.h"
#include "Testing/TraceCapture.h"

#include <gtest/gtest.h>

namespace Vela {

namespace {

using Heard = std::vector<MountStatus>;

class MountGroupTest : public StateDbFixture {
  protected:
    static std::string dump(const MountGroup& group) {
        DumpContext context;
        group.dumpState(context, 0);
        return context.text();
    }

    /// A group with one mount, closed.
    Ptr<MountGroup> closedGroup(const std::string& path, const std::string& typeName) {
        auto made = entityManager->mountGroup(mounter);
        made->mount(path, typeName, "r");
        made->close();
        return made;
    }

    RecordingMounter mounter;
    Ptr<MountGroup> group = entityManager->mountGroup(mounter);
};

TEST_F(MountGroupTest, completesFromTheLoop) {
    entityManager->entityIs("fruit", make<Apple>());
    group->mount("fruit", "Test::Apple", "r");
    group->close();
    EXPECT_EQ(mounter.heard, Heard());
    EXPECT_FALSE(group->complete());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
    EXPECT_TRUE(group->complete());
}

TEST_F(MountGroupTest, completesOnce) {
    auto apple = make<Apple>();
    entityManager->entityIs("fruit", apple);
    group->mount("fruit", "Test::Apple", "r");
    group->close();
    runUntilIdle();
    entityManager->entityDel("fruit");
    entityManager->entityIs("fruit", apple);
    entityManager->populatingIs("fruit", true);
    entityManager->populatingIs("fruit", false);
    group->close();
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
    EXPECT_TRUE(group->complete());
}

TEST_F(MountGroupTest, givesTheMounterItsDatabase) {
    Ptr<EntityManager> given;
    mounter.onComplete = [&](const auto& manager) {
        EXPECT_TRUE(group->complete());
        given = manager;
    };
    group->close();
    runUntilIdle();
    EXPECT_EQ(given, entityManager);
}

TEST_F(MountGroupTest, anEmptyGroupCompletesOnceItIsClosed) {
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard());
    group->close();
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
}

TEST_F(MountGroupTest, waitsToBeClosed) {
    group->mount("fruit", "Test::Apple", "r");
    entityManager->entityIs("fruit", make<Apple>());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard());
    group->mount("more", "Test::Pear", "r");
    group->close();
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard());
    entityManager->entityIs("more", make<Pear>());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
}

TEST_F(MountGroupTest, waitsForEveryEntity) {
    for (const char* path : {"b", "c", "a"}) {
        group->mount(path, "Test::Apple", "r");
    }
    group->close();
    for (const char* path : {"a", "b", "c"}) {
        runUntilIdle();
        EXPECT_EQ(mounter.heard, Heard()) << "before " << path;
        entityManager->entityIs(path, make<Apple>());
        EXPECT_EQ(mounter.heard, Heard()) << "not from within the call that publishes";
    }
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
}

TEST_F(MountGroupTest, waitsForPopulation) {
    entityManager->entityIs("fruit", make<Apple>());
    entityManager->populatingIs("fruit", true);
    auto made = closedGroup("fruit", "Test::Apple");
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard());
    entityManager->populatingIs("fruit", false);
    EXPECT_EQ(mounter.heard, Heard());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
}

TEST_F(MountGroupTest, populationMayBeAnnouncedBeforeTheEntity) {
    auto made = closedGroup("fruit", "Test::Apple");
    entityManager->populatingIs("fruit", true);
    entityManager->entityIs("fruit", make<Apple>());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard());
    entityManager->populatingIs("fruit", false);
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
}

TEST_F(MountGroupTest, whatGoesBeforeTheTurnIsAwaitedAgain) {
    auto made = closedGroup("fruit", "Test::Apple");
    entityManager->entityIs("fruit", make<Apple>());
    entityManager->entityDel("fruit");
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard());
    entityManager->entityIs("fruit", make<Apple>());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
}

TEST_F(MountGroupTest, otherPathsDoNotWakeIt) {
    auto made = closedGroup("fruit", "Test::Apple");
    runUntilIdle();
    entityManager->entityIs("fruit/more", make<Apple>());
    entityManager->populatingIs("fruits", true);
    EXPECT_EQ(runUntilIdle(), 0u);
}

TEST_F(MountGroupTest, anEntityOfAnotherTypeFailsAndIsReported) {
    entityManager->entityIs("fruit", make<Pear>());
    entityManager->entityIs("more", make<Apple>());
    group->mount("fruit", "Test::Apple", "r");
    group->mount("more", "Test::Apple", "r");
    group->close();
    Testing::TraceCapture trace("StateDb=0");
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::failed});
    EXPECT_TRUE(group->complete());
    EXPECT_EQ(trace.count("path=fruit is no Test::Apple but a Test::Pear"), 1u);
    EXPECT_EQ(trace.count("\n"), 1u) << trace.text();
}

TEST_F(MountGroupTest, populationOfAnotherTypeIsNotWaitedFor) {
    entityManager->entityIs("fruit", make<Pear>());
    entityManager->populatingIs("fruit", true);
    auto made = closedGroup("fruit", "Test::Apple");
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::failed});
}

TEST_F(MountGroupTest, aFailureIsReportedOnceHoweverLongTheOthersTake) {
    entityManager->entityIs("fruit", make<Pear>());
    group->mount("fruit", "Test::Apple", "r");
    group->mount("more", "Test::Apple", "r");
    group->mount("most", "Test::Apple", "r");
    group->close();
    Testing::TraceCapture trace("StateDb=0");
    runUntilIdle();
    entityManager->entityIs("more", make<Apple>());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard()) << "the others are waited for";
    entityManager->entityIs("most", make<Apple>());
    runUntilIdle();
    group->close();
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::failed});
    EXPECT_EQ(trace.count("is no Test::Apple"), 1u) << trace.text();
}

TEST_F(MountGroupTest, anotherTypeMayStillBeReplacedWhileTheOthersAreAwaited) {
    entityManager->entityIs("fruit", make<Pear>());
    group->mount("fruit", "Test::Apple", "r");
    group->mount("more", "Test::Apple", "r");
    group->close();
    Testing::TraceCapture trace("StateDb=0");
    runUntilIdle();
    entityManager->entityIs("fruit", make<Apple>());
    entityManager->entityIs("more", make<Apple>());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
    EXPECT_EQ(trace.text(), "");
}

TEST_F(MountGroupTest, aSlashAtTheEndOfThePathMeansNothing) {
    group->mount("bridging/config/", "Test::Apple", "wc");
    group->close();
    auto apple = make<Apple>();
    entityManager->entityIs("bridging/config", apple);
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
    EXPECT_EQ(entityManager->writableEntity<Apple>("bridging/config"), apple);
}

TEST_F(MountGroupTest, tracesEachMount) {
    Testing::TraceCapture trace("StateDb=5");
    group->mount("bridging/config/", "Test::Apple", "wc");
    EXPECT_EQ(trace.count("path=bridging/config/ typeName=Test::Apple mode=wc\n"), 1u)
        << trace.text();
    EXPECT_EQ(trace.count("\n"), 1u) << trace.text();
}

TEST_F(MountGroupTest, anEndedGroupIsSilent) {
    auto waiting = closedGroup("fruit", "Test::Apple");
    runUntilIdle();
    waiting->destroy();
    entityManager->entityIs("fruit", make<Apple>());
    entityManager->populatingIs("fruit", true);
    entityManager->populatingIs("fruit", false);
    EXPECT_EQ(runUntilIdle(), 0u);
    EXPECT_EQ(mounter.heard, Heard());
    EXPECT_FALSE(waiting->complete());
}

TEST_F(MountGroupTest, aGroupThatEndsBeforeItsTurnIsSilent) {
    entityManager->entityIs("fruit", make<Apple>());
    auto ready = closedGroup("fruit", "Test::Apple");
    ready->destroy();
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard());

    closedGroup("fruit", "Test::Apple"); // nobody keeps it
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard());
}

TEST_F(MountGroupTest, theMounterMayEndTheGroup) {
    Owned<MountGroup> mine;
    mine = closedGroup("fruit", "Test::Apple");
    mounter.onComplete = [&](const Ptr<EntityManager>& manager) {
        mine.reset();
        EXPECT_TRUE(manager->entity<Apple>("fruit")) << "what the call was given outlasts it";
    };
    entityManager->entityIs("fruit", make<Apple>());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
    entityManager->entityDel("fruit");
    EXPECT_EQ(runUntilIdle(), 0u);
}

TEST_F(MountGroupTest, theMounterMayMountMore) {
    RecordingMounter second;
    Ptr<MountGroup> more;
    mounter.onComplete = [&](const Ptr<EntityManager>& manager) {
        more = manager->mountGroup(second);
        more->mount("fruit", "Test::Apple", "wS");
        more->close();
        EXPECT_EQ(second.heard, Heard());
    };
    entityManager->entityIs("fruit", make<Apple>());
    group->close();
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
    EXPECT_EQ(second.heard, Heard{MountStatus::complete});
}

TEST_F(MountGroupTest, groupsDoNotWaitForEachOther) {
    RecordingMounter second;
    auto other = entityManager->mountGroup(second);
    other->mount("more", "Test::Apple", "r");
    other->close();
    group->mount("fruit", "Test::Apple", "r");
    group->close();
    entityManager->entityIs("fruit", make<Apple>());
    runUntilIdle();
    EXPECT_EQ(mounter.heard, Heard{MountStatus::complete});
    EXPECT_EQ(second.heard, Heard());
}

TEST_F(MountGroupTest, dumpsWhatIsAwaited) {
    EXPECT_EQ(dump(*group), "MountGroup complete=no\n");
    entityManager->entityIs("failed", make<Pear>());
    entityManager->entityIs("mounted", make<Apple>());
    entityManager->entityIs("populating", make<Apple>());
    entityManager->populatingIs("populating", true);
    for (const char* path : {"populating/", "mounted", "failed", "awaited"}) {
        group->mount(path, "Test::Apple", "r");
    }
    group->close();
    runUntilIdle();
    EXPECT_EQ(dump(*group), "MountGroup complete=no\n"
                            "  awaited Test::Apple awaited\n"
                            "  failed Test::Apple failed\n"
                            "  mounted Test::Apple mounted\n"
                            "  populating Test::Apple populating\n");
    entityManager->populatingIs("populating", false);
    entityManager->entityIs("awaited", make<Apple>());
    runUntilIdle();
    EXPECT_EQ(dump(*group), "MountGroup complete=yes\n"
                            "  awaited Test::Apple mounted\n"
                            "  failed Test::Apple failed\n"
                            "  mounted Test::Apple mounted\n"
                            "  populating Test::Apple mounted\n");
}

TEST_F(MountGroupTest, mountsTheAddressesThatAreAskedFor) {
    const std::string header = "MountGroup complete=no\n";
    const std::string ip = "  ip/status Ip::Status awaited\n";
    const std::string ip6 = "  ip6/status Ip6::Status awaited\n";
    for (auto [withIp, withIp6] :
         {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
        auto addresses = entityManager->mountGroup(mounter);
        mountIpStatus(*addresses, withIp, withIp6);
        EXPECT_EQ(dump(*addresses), header + (withIp ? ip : "") + (withIp6 ? ip6 : ""));
    }
    entityManager->entityIs("ip/status", make<Apple>());
    entityManager->entityIs("ip6/status", make<Apple>());
    mountIpStatus(*group, true, true);
    EXPECT_FALSE(entityManager->writableEntity<Apple>("ip/status"));
    EXPECT_FALSE(entityManager->writableEntity<Apple>("ip6/status"));
}

using MountGroupDeathTest = MountGroupTest;

TEST_F(MountGroupDeathTest, knowsThreeModes) {
    for (const char* mode : {"", "w", "rw", "R"}) {
        EXPECT_EXIT(group->mount("fruit", "Test::Apple", mode), testing::KilledBySignal(SIGABRT),
                    "assertion failed \"mode == \"r\"");
    }
}

TEST_F(MountGroupDeathTest, nothingIsMountedAfterItIsClosed) {
    group->close();
    EXPECT_EXIT(group->mount("fruit", "Test::Apple", "r"), testing::KilledBySignal(SIGABRT),
                "assertion failed \"!closed_\"");
}

} // namespace

} // namespace Vela
