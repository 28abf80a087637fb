#include "Platform/Model/Vrf/VrfIdMapStatus.h"
#include "Platform/Model/Vrf/VrfIdReverseMapper.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/Model/test/TableFixture.h"

#include <map>

namespace Vrf::VrfIdMap {

namespace {

using Ids = std::map<std::string, uint32_t>;

class VrfIdMapTest : public TableFixture {
  protected:
    void mapperIs() { mapper = Vela::make<ReverseMapper>(status, names); }
    Ids ids() {
        runUntilIdle();
        Ids all;
        for (auto cursor = names->vrfIdCollection().first(); cursor; ++cursor) {
            all[cursor.key().bytes()] = cursor.value().value();
        }
        return all;
    }

    Vela::Ptr<Status> status = table<Status>("vrf/vrfIdMapStatus");
    Vela::Ptr<NameToIdMap> names = Vela::make<NameToIdMap>();
    Vela::Ptr<ReverseMapper> mapper;
};

TEST_F(VrfIdMapTest, holdsNames) {
    EXPECT_EQ(sizeof(VrfIdEntry), 108u);
    EXPECT_STREQ(status->typeName(), "Vrf::VrfIdMap::Status");
    expectRecords(
        status->vrfCollection(), VrfIdEntry(VrfId(1), "red"), VrfIdEntry(VrfId(1), "blue"),
        VrfIdEntry(VrfId(2), "red"),
        [&](const auto& entry) { return status->vrfIs(entry.key, entry.vrfName()); },
        [&](const auto& key) { return status->vrfDel(key); }, [&] { runUntilIdle(); });
}

TEST_F(VrfIdMapTest, namesOfEveryLength) {
    for (size_t length = 0; length <= 100; ++length) {
        L3::VrfName name = std::string(length, 'v');
        EXPECT_EQ(VrfIdEntry(VrfId(1), name).vrfName(), name);
    }
    EXPECT_EQ(VrfIdEntry(VrfId(1), "red"), VrfIdEntry(VrfId(1), "red"));
    EXPECT_NE(VrfIdEntry(VrfId(1), "red"), VrfIdEntry(VrfId(1), "reds"));
    EXPECT_NE(VrfIdEntry(VrfId(1), "red"), VrfIdEntry(VrfId(2), "red"));
}

TEST_F(VrfIdMapTest, takesUpTheIdsThatAreThere) {
    status->vrfIs(VrfId(0), "default");
    status->vrfIs(VrfId(7), "red");
    mapperIs();
    EXPECT_EQ(names->vrfId("default"), VrfId(0)) << "at once";
    EXPECT_EQ(ids(), (Ids{{"default", 0}, {"red", 7}}));
}

TEST_F(VrfIdMapTest, followsTheTableThroughTheLoop) {
    mapperIs();
    status->vrfIs(VrfId(7), "red");
    EXPECT_EQ(names->vrfId("red"), VrfId());
    EXPECT_EQ(ids(), (Ids{{"red", 7}}));
    status->vrfIs(VrfId(8), "blue");
    status->vrfDel(VrfId(7));
    EXPECT_EQ(ids(), (Ids{{"blue", 8}}));
}

TEST_F(VrfIdMapTest, anIdIsRenamed) {
    mapperIs();
    status->vrfIs(VrfId(7), "red");
    runUntilIdle();
    status->vrfIs(VrfId(7), "blue");
    EXPECT_EQ(ids(), (Ids{{"blue", 7}}));
    status->vrfDel(VrfId(7));
    EXPECT_EQ(ids(), Ids());
}

TEST_F(VrfIdMapTest, twoIdsSwapTheirNames) {
    for (bool atOnce : {false, true}) {
        mapperIs();
        status->vrfIs(VrfId(7), "red");
        status->vrfIs(VrfId(8), "blue");
        EXPECT_EQ(ids(), (Ids{{"red", 7}, {"blue", 8}}));
        status->vrfIs(VrfId(7), "blue");
        if (!atOnce) {
            EXPECT_EQ(ids(), (Ids{{"blue", 7}}));
        }
        status->vrfIs(VrfId(8), "red");
        EXPECT_EQ(ids(), (Ids{{"red", 8}, {"blue", 7}}));
        names->vrfIdDelAll();
    }
}

TEST_F(VrfIdMapTest, aVrfIsRecreatedWithAnotherId) {
    mapperIs();
    status->vrfIs(VrfId(7), "red");
    runUntilIdle();
    status->vrfDel(VrfId(7));
    status->vrfIs(VrfId(8), "red");
    EXPECT_EQ(ids(), (Ids{{"red", 8}}));
    status->vrfIs(VrfId(9), "red");
    status->vrfDel(VrfId(8));
    EXPECT_EQ(ids(), (Ids{{"red", 9}}));
}

TEST_F(VrfIdMapTest, ofTwoIdsOfOneNameTheLastOneCountsUntilItGoes) {
    mapperIs();
    status->vrfIs(VrfId(7), "red");
    runUntilIdle();
    status->vrfIs(VrfId(8), "red");
    EXPECT_EQ(ids(), (Ids{{"red", 8}}));
    status->vrfDel(VrfId(8));
    EXPECT_EQ(ids(), (Ids{{"red", 7}}));
    status->vrfIs(VrfId(6), "red");
    EXPECT_EQ(ids(), (Ids{{"red", 6}}));
    status->vrfIs(VrfId(6), "blue");
    EXPECT_EQ(ids(), (Ids{{"red", 7}, {"blue", 6}}));
    status->vrfDel(VrfId(7));
    EXPECT_EQ(ids(), (Ids{{"blue", 6}}));
}

TEST_F(VrfIdMapTest, theOtherOfTwoIdsGoesUnnoticed) {
    mapperIs();
    status->vrfIs(VrfId(7), "red");
    runUntilIdle();
    status->vrfIs(VrfId(8), "red");
    runUntilIdle();
    size_t announced = 0;
    auto reaction = names->vrfIdCollection().react(nullptr, [&](const auto&) { ++announced; });
    status->vrfDel(VrfId(7));
    EXPECT_EQ(ids(), (Ids{{"red", 8}}));
    EXPECT_EQ(announced, 0u);
}

TEST_F(VrfIdMapTest, whatComesAndGoesBetweenTwoTurnsLeavesNothing) {
    mapperIs();
    status->vrfIs(VrfId(7), "red");
    status->vrfDel(VrfId(7));
    EXPECT_EQ(ids(), Ids());
}

TEST_F(VrfIdMapTest, theMapKeepsItsEntriesWhenTheMapperEnds) {
    mapperIs();
    status->vrfIs(VrfId(7), "red");
    runUntilIdle();
    mapper->destroy();
    status->vrfIs(VrfId(8), "blue");
    status->vrfDel(VrfId(7));
    EXPECT_EQ(ids(), (Ids{{"red", 7}}));
}

TEST_F(VrfIdMapTest, withoutATableTheMapStaysAsItIs) {
    names->vrfIdIs("red", VrfId(7));
    auto idle = Vela::make<ReverseMapper>(nullptr, names);
    EXPECT_EQ(ids(), (Ids{{"red", 7}}));
    idle->destroy();
    EXPECT_EQ(ids(), (Ids{{"red", 7}}));
}

TEST_F(VrfIdMapTest, dumpsItsMap) {
    mapperIs();
    status->vrfIs(VrfId(7), "red");
    runUntilIdle();
    EXPECT_EQ(dump(*mapper), "Vrf::VrfIdMap::ReverseMapper\n"
                             "  Vrf::VrfIdMap::NameToIdMap\n"
                             "    vrfId[] #1\n"
                             "      red -> 7\n");
}

} // namespace

} // namespace Vrf::VrfIdMap
