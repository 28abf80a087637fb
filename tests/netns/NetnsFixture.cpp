#include "tests/netns/NetnsFixture.h"

#include <cstdlib>
#include <string_view>

namespace Netns {

const std::string NetnsFixture::senderMac = "02:00:00:00:00:01";
const std::string NetnsFixture::remoteMac = "02:00:00:00:00:02";
const std::string NetnsFixture::bridgeMac = "02:00:00:00:0b:0b";
const std::string NetnsFixture::broadcast = "ff:ff:ff:ff:ff:ff";
const std::string NetnsFixture::noMac = "00:00:00:00:00:00";

NetnsFixture::NetnsFixture() {
    Testing::enterOwnNetworkNamespace();
    const char* setting = std::getenv("VELA_ALWAYS_YIELD");
    live_ = std::make_unique<Testing::LiveSwitch>(
        Vela::TaskScheduler::Settings{.alwaysYield = setting && std::string_view(setting) == "1"});
    agent_ = ArpSuppression::arpSuppressionAgentFactory("ArpSuppression");
}

NetnsFixture::~NetnsFixture() {
    if (!agent_) {
        return;
    }
    state().arpSuppressionStatus->vlanIdDelAll();
    state().evpnStatus->mplsConfiguredIs(false);
    live_->turnUntilIdle();
    agent_->destroy();
    agent_.reset();
    live_.reset();
    EXPECT_EQ(Vela::Entity::liveCount(), entitiesBefore_) << "the test left entities behind";
}

void NetnsFixture::start(Hardware hardware) {
    portIs("fabric");
    if (hardware == Hardware::simulated) {
        portIs("arpsnoop");
        portIs("arpinject");
    }
    state().bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr(bridgeMac));
    state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
    state().evpnStatus->mplsConfiguredIs(true);
    state().evpnStatus->imetLabelIs(Bridging::VlanId(10),
                                    Evpn::ImetLabel(0x12345, Evpn::EncapType::mpls));
    state().remoteBindingConfig->remoteBindingIs(
        {{Bridging::VlanId(10), Zinc::IpGenAddr("10.0.0.2")}, Zinc::EthAddr(remoteMac), 0, 0});
    live_->start(*agent_, hardware == Hardware::physical);

    // By hand, what other machines of the agent find out from the switch's state.
    auto& root = *agent_->rootSm()->root();
    state().arpSuppressionStatus->vlanIdIs(Bridging::VlanId(10), true);
    auto vrfInfo = root.vlanL3InfoStatus()->vrfInfo("default");
    vrfInfo->vrfIdIs(Vrf::VrfId(0));
    vrfInfo->netNsIs("default");
    vrfInfo->netlinkSocketIs(7);
    root.deviceIntfStatusDir()->deviceIntfStatusIs(11, {Zinc::IntfId("Ethernet1"), "et1"});
    for (const auto& [name, port] : ports_) {
        ifIndexIs(name, port->ifIndex());
    }
    turnUntilIdle();
    ASSERT_TRUE(trapSm().fileDescriptor());
    ASSERT_TRUE(reinjectSm().fileDescriptor());
    ASSERT_EQ(movedSoFar(), Moved{});
}

void NetnsFixture::portIs(const std::string& name) {
    ports_[name] = std::make_unique<Testing::VethPort>(name);
}

void NetnsFixture::ifIndexIs(const std::string& name, uint32_t ifIndex) {
    auto watch = agent_->rootSm()->root()->vlanL3InfoStatus()->vrfInterfaceWatch(name);
    ASSERT_TRUE(watch) << name;
    watch->kniIntfIfIndexIs(ifIndex);
}

std::vector<Frame> NetnsFixture::sent(const std::string& name, size_t count) {
    std::vector<Frame> frames;
    auto take = [&] {
        auto more = port(name).sent();
        frames.insert(frames.end(), more.begin(), more.end());
        return frames.size() >= count;
    };
    EXPECT_TRUE(live_->turnUntil(take)) << frames.size() << " frames out of " << name;
    EXPECT_TRUE(live_->turnUntilIdle());
    take();
    return frames;
}

Moved NetnsFixture::movedSoFar() const {
    Moved moved;
    const auto& status = *agent_->mounts()->arpSuppressionCounterStatus();
    for (uint32_t number = 0; number < counters_.size(); ++number) {
        if (uint64_t count = status.count(Id(number)) - counters_[number]) {
            moved[Id(number)] = count;
        }
    }
    return moved;
}

Moved NetnsFixture::moved(const Moved& expected) {
    live_->turnUntil([&] { return movedSoFar() == expected; });
    EXPECT_TRUE(live_->turnUntilIdle());
    Moved moved = movedSoFar();
    for (const auto& [id, count] : moved) {
        counters_[static_cast<size_t>(id)] += count;
    }
    return moved;
}

boost::json::array NetnsFixture::replyLayers() {
    return {ether(senderMac, remoteMac, 0x8100), dot1q(10, 0x0806),
            arp(2, remoteMac, "10.0.0.2", senderMac, "10.0.0.1")};
}

} // namespace Netns
