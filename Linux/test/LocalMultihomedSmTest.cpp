#include "Linux/test/ProviderFixture.h"

namespace Linux {
namespace {

class LocalMultihomedSmTest : public ProviderFixture {
  protected:
    int flag(uint16_t vlan, const std::string& address) {
        auto found = binding(vlan, address);
        return found ? found->localMultihomed : -1;
    }
};

TEST_F(LocalMultihomedSmTest, theBindingFollowsItsHost) {
    fdbIs(2, a, NUD_REACHABLE, NTF_EXT_LEARNED);
    remoteIs(10, ip, a);
    EXPECT_EQ(flag(10, ip), 1); // at once, if the MAC table knows
    remoteIs(10, "10.0.0.2", a);
    remoteIs(10, "10.0.0.3", b);
    remoteIs(20, ip, a); // another VLAN
    EXPECT_EQ(flag(10, "10.0.0.3"), 0);
    EXPECT_EQ(flag(20, ip), 0);

    fdbIs(3, a, NUD_REACHABLE, NTF_EXT_LEARNED); // to the tunnel
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 0);
    EXPECT_EQ(flag(10, "10.0.0.2"), 0);
    fdbIs(2, a); // learnt from frames
    fdbIs(2, b, NUD_NOARP);
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 1);
    EXPECT_EQ(flag(10, "10.0.0.2"), 1);
    EXPECT_EQ(flag(10, "10.0.0.3"), 1);
    EXPECT_EQ(flag(20, ip), 0);
    fdbDel(2, a);
    fdbIs(1, b);
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 0);
    EXPECT_EQ(flag(10, "10.0.0.2"), 0);
    EXPECT_EQ(flag(10, "10.0.0.3"), 0);
}

TEST_F(LocalMultihomedSmTest, aSweptHostIsNotOnTheSegmentAnyMore) {
    fdbIs(2, a);
    remoteIs(10, ip, a);
    fdb->resyncStarted();
    fdb->resyncFinished();
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 0);
}

TEST_F(LocalMultihomedSmTest, followsThePortsFlag) {
    fdbIs(1, a);
    remoteIs(10, ip, a);
    EXPECT_EQ(flag(10, ip), 0);
    BridgePort port = topology->bridgePort(1);
    port.ethernetSegment = true;
    topology->bridgePortIs(1, port);
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 1);
    topology->bridgePortDel(2); // of no concern to it
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 1);
    topology->bridgePortDel(1);
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 0);
}

TEST_F(LocalMultihomedSmTest, followsTheFid) {
    fdbIs(2, a);
    remoteIs(10, ip, a);
    state().bridgingConfig->vlanToFidIs(VlanId(10), Bridging::Fid(1010));
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 0); // nothing stands there yet
    fdb->resyncStarted();
    say(*fdb, {.ifIndex = 2, .macAddress = a, .dumped = true});
    fdb->resyncFinished();
    runUntilIdle();
    EXPECT_EQ(flag(10, ip), 1);
}

TEST_F(LocalMultihomedSmTest, findsHostsThatMoveDuringTheWalk) {
    constexpr uint32_t hosts = 2000;
    auto address = [](uint32_t i) { return Zinc::IpGenAddr(0x0a000100 + i).toStrep(); };
    for (uint32_t i = 0; i < hosts; ++i) {
        remoteIs(10, address(i), i % 2 ? a : b);
    }
    runUntilIdle();
    fdbIs(2, a);
    turn();
    turn();
    fdbIs(2, b);
    fdbIs(1, a);
    runUntilIdle();
    for (uint32_t i = 0; i < hosts; ++i) {
        ASSERT_EQ(flag(10, address(i)), i % 2 ? 0 : 1) << i;
    }
}

TEST_F(LocalMultihomedSmTest, findsMoreHostsThanItRemembers) {
    auto mac = [](size_t i) {
        return Zinc::EthAddr(Zinc::EthAddr::Bytes{2, 0, 0, 1, static_cast<uint8_t>(i >> 8),
                                                  static_cast<uint8_t>(i)})
            .toStrep();
    };
    size_t hosts = LocalMultihomedSm::mostHosts + 2;
    remoteIs(10, "10.0.0.1", mac(0));
    remoteIs(10, "10.0.0.2", mac(hosts - 1));
    remoteIs(10, "10.0.0.3", mac(hosts));
    runUntilIdle();
    for (size_t i = 0; i < hosts; ++i) {
        fdbIs(2, mac(i));
    }
    runUntilIdle();
    EXPECT_EQ(flag(10, "10.0.0.1"), 1);
    EXPECT_EQ(flag(10, "10.0.0.2"), 1);
    EXPECT_EQ(flag(10, "10.0.0.3"), 0);
}

} // namespace
} // namespace Linux
