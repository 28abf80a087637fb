#pragma once

#include "ArpSuppression/VlanL3InfoSm.h"
#include "Platform/Trace/Swiftlog.h"
#include "Testing/SwitchDevices.h"
#include "Testing/SwitchFixture.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace ArpSuppression {

/// The machine that follows VLANs and VRFs, alone. VRFs "red" (3) and "blue" (4) are active; their
/// namespace is the process's own, like that of "default" (0).
class VlanL3InfoSmFixture : public Testing::SwitchFixture {
  protected:
    using Vlans = std::vector<int>;

    VlanL3InfoSmFixture() {
        vrfNameToIdMap->vrfIdIs("default", Vrf::VrfId(0));
        vrfNameToIdMap->vrfIdIs("red", Vrf::VrfId(3));
        vrfNameToIdMap->vrfIdIs("blue", Vrf::VrfId(4));
        localVrfIs("red");
        localVrfIs("blue");
        records_ = l3->vlanL3InfoCollection().react(
            nullptr, [this](Bridging::VlanId vlanId) { announced.push_back(vlanId.value()); });
    }
    ~VlanL3InfoSmFixture() override {
        if (sm) {
            sm->destroy();
        }
        l3->destroy();
        Vela::Swiftlog::close();
    }

    void smIs() {
        sm = vlanL3InfoSmFactory(scheduler(), status(), enabledVlans, state().allVrfStatusLocal,
                                 state().ipStatus, state().ip6Status, vrfNameToIdMap,
                                 state().allIntfStatusDir, state().allIntfStatusLocalDir,
                                 deviceIntfStatusDir, l3, entityManager());
    }
    const Vela::Ptr<ArpSuppressionStatus>& status() { return state().arpSuppressionStatus; }
    void localVrfIs(const char* name) {
        auto local = state().allVrfStatusLocal->vrfIs(name);
        local->networkNamespaceIs("default");
        local->stateIs(Ip::VrfState::active);
    }
    void enable(unsigned vlan) { enabledVlans->vlanIdIs(Bridging::VlanId(vlan)); }
    static Zinc::IntfId intfOf(unsigned vlan) {
        return Zinc::IntfId("Vlan" + std::to_string(vlan));
    }
    Vela::Ptr<Ip::IpIntfStatus> ipv4Is(unsigned vlan, const char* vrf) {
        return state().ipStatus->ipIntfStatusIs(intfOf(vlan), vrf);
    }
    Vela::Ptr<Ip6::IntfStatus> ipv6Is(unsigned vlan, const char* vrf) {
        return state().ip6Status->intfIs(intfOf(vlan), vrf);
    }
    void ipv4Del(unsigned vlan) { state().ipStatus->ipIntfStatusDel(intfOf(vlan)); }
    void ipv6Del(unsigned vlan) { state().ip6Status->intfDel(intfOf(vlan)); }
    static Ip::AddrWithMask addr(const char* text, uint32_t prefixLen = 24) {
        return {Zinc::IpGenAddr(text), prefixLen};
    }

    Vela::Ptr<VlanL3Info> record(unsigned vlan) { return l3->vlanL3Info(Bridging::VlanId(vlan)); }
    /// Of the VLAN's record; "-" without one.
    std::string vrfOf(unsigned vlan) {
        auto vlanL3Info = record(vlan);
        return vlanL3Info ? vlanL3Info->vrfInfo()->vrfName() : "-";
    }
    /// The record's addresses, in the order of their values.
    std::vector<std::string> addressesOf(unsigned vlan) {
        std::vector<std::string> addresses;
        const auto& collection = record(vlan)->ipAddressCollection();
        for (auto address = collection.first(); address; ++address) {
            EXPECT_TRUE(address.value());
            addresses.push_back(address.key().toStrep());
        }
        return addresses;
    }

    const Vela::Ptr<EnabledVlans> enabledVlans = Vela::make<EnabledVlans>();
    const Vela::Ptr<Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap =
        Vela::make<Vrf::VrfIdMap::NameToIdMap>();
    const Vela::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir =
        Vela::make<Interface::DeviceIntfStatusDir>("");
    const Vela::Ptr<VlanL3InfoStatus> l3 = Vela::make<VlanL3InfoStatus>();
    Vela::Ptr<VlanL3InfoSm> sm;
    Vlans announced; // records that were added or removed

  private:
    Vela::Reaction records_;
};

} // namespace ArpSuppression
