#include "ArpSuppression/LocalRequestRecord.h"

#include "ArpSuppression/test/RoadFixture.h"

#include <gtest/gtest.h>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Testing::TrapFrame;

/// What the whole agent remembers of the requests that come in.
class LocalRequestRecordRoadTest : public RoadFixture {
  protected:
    LocalRequestRecordRoadTest() {
        startRoad();
        Testing::routedVlanIs(state(), VlanId(20), 1020);
        runUntilIdle();
    }

    void request(unsigned vlan) {
        ports.inject(arpsnoop, TrapFrame{.vlanId = vlan}.bytes());
        runUntilIdle();
    }
    bool isRecorded(unsigned vlan, const std::string& target = "10.0.0.2") {
        return root().localRequestRecord()->entry({VlanId(vlan), Zinc::IpGenAddr(target)}) !=
               nullptr;
    }
};

TEST_F(LocalRequestRecordRoadTest, arpRequestsAreRememberedFourMinutesInTheirVlan) {
    request(10);
    request(20);
    EXPECT_TRUE(isRecorded(10));
    EXPECT_TRUE(isRecorded(20));
    EXPECT_EQ(root().localRequestRecord()->entries(), 2u);
    runFor(200);
    request(10);
    runFor(40);
    EXPECT_TRUE(isRecorded(10)) << "asked for again meanwhile";
    EXPECT_FALSE(isRecorded(20));
    runFor(200);
    EXPECT_EQ(root().localRequestRecord()->entries(), 0u);
    EXPECT_FALSE(rootSm().localRequestRecordSm()->walkScheduled());
}

TEST_F(LocalRequestRecordRoadTest, soAreSolicitations) {
    root().receivedRequestTrapV6()->lastTrappedMessageIs(trappedMessageFactory(
        VlanId(20), MessageType::v6NeighborSolicitation, ethernet1, false,
        Zinc::IpGenAddr("fe80::1"), Zinc::EthAddr("02:00:00:00:00:01"),
        Zinc::IpGenAddr("2001:db8::2"), Vela::pktManager().newPkt(TrapFrame{}.bytes())));
    EXPECT_TRUE(isRecorded(20, "2001:db8::2"));
    EXPECT_FALSE(isRecorded(10, "2001:db8::2"));
    runFor(240);
    EXPECT_EQ(root().localRequestRecord()->entries(), 0u);
}

TEST_F(LocalRequestRecordRoadTest, aVlanThatGoesDoesNotTakeItsRequestsAlong) {
    request(10);
    state().evpnStatus->vlanToDot1qDel(VlanId(10));
    runUntilIdle();
    request(10);
    EXPECT_TRUE(isRecorded(10));
    runFor(240);
    EXPECT_EQ(root().localRequestRecord()->entries(), 0u) << "not asked for since";
}

TEST_F(LocalRequestRecordRoadTest, theNextRunRemembersNothingOfTheOneBefore) {
    request(10);
    auto before = root().localRequestRecord();
    runFor(100);
    stop();
    EXPECT_EQ(before->entries(), 0u);
    runFor(50);
    state().evpnStatus->mplsConfiguredIs(true);
    runUntilIdle();
    EXPECT_NE(root().localRequestRecord(), before);
    EXPECT_FALSE(isRecorded(10));
    request(10);
    runFor(90); // when the first would have been forgotten
    EXPECT_TRUE(isRecorded(10));
    runFor(150);
    EXPECT_FALSE(isRecorded(10));
    EXPECT_EQ(before->entries(), 0u);
}

} // namespace

} // namespace ArpSuppression
