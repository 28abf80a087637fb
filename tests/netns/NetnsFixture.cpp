#include "tests/netns/NetnsFixture.h"

#include "Testing/IpCommand.h"
#include "Testing/SwitchDevices.h"

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
    // The kernel must not give this index to any of the other devices.
    Testing::ip({"link", "add", "et1", "index", std::to_string(ethernet1Index), "type", "veth",
                 "peer", "name", "far-et1"});
    const char* setting = std::getenv("VELA_ALWAYS_YIELD");
    live_ = std::make_unique<Testing::LiveSwitch>(
        Vela::TaskScheduler::Settings{.alwaysYield = setting && std::string_view(setting) == "1"});
    agent_ = ArpSuppression::arpSuppressionAgentFactory("ArpSuppression");
}

NetnsFixture::~NetnsFixture() {
    if (!agent_) {
        return;
    }
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

    Testing::routedVlanIs(state(), Bridging::VlanId(10), 1010);
    Testing::portIs(state(), "Ethernet1", "et1", ethernet1Index);
    for (const auto& [name, port] : ports_) {
        Testing::deviceIs(state(), name, port->ifIndex());
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
    Testing::deviceIs(state(), name, ifIndex);
    turnUntilIdle();
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

/// What is learnt from the sender, and asked of the kernel for that, has tests of its own.
static bool isOfTheRoad(Id id) {
    bool isDiscovery = id >= Id::bindingBadMac && id <= Id::bindingDeleted;
    return !isDiscovery && id > Id::inputNoVlanL3Info;
}

Moved NetnsFixture::movedSoFar() const {
    Moved moved;
    const auto& status = *agent_->mounts()->arpSuppressionCounterStatus();
    for (uint32_t number = 0; number < counters_.size(); ++number) {
        uint64_t count = status.count(Id(number)) - counters_[number];
        if (count != 0 && isOfTheRoad(Id(number))) {
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
