#pragma once

#include "ArpSuppression/RemoteBindingStatusSm.h"
#include "Testing/SwitchFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ArpSuppression {

/// The machine alone, with what it reads and writes. VLAN 10 is in VRF "default"; the configuration
/// is not complete yet.
class RemoteBindingStatusSmFixture : public Testing::SwitchFixture {
  protected:
    /// Address to hosts, and host to addresses, in words: "default 10.0.0.1" to "10 ...:0a" and
    /// whether its segment is ours, "10 02:00:00:00:00:0a" to "10.0.0.1".
    struct Tables {
        std::map<std::string, std::map<std::string, bool>> ipToMac = {};
        std::map<std::string, std::set<std::string>> macToIp = {};
        std::set<unsigned> vlanIds = {};
        std::map<std::string, uint32_t> vrfs = {};

        friend bool operator==(const Tables&, const Tables&) = default;
        friend std::ostream& operator<<(std::ostream& out, const Tables& v) {
            return out << testing::PrintToString(v.ipToMac) << '\n'
                       << testing::PrintToString(v.macToIp) << '\n'
                       << testing::PrintToString(v.vlanIds) << '\n'
                       << testing::PrintToString(v.vrfs);
        }
    };

    RemoteBindingStatusSmFixture() {
        group->mount<RemoteBindingConfig>(path, Quarry::MountType::reader);
        group->close();
        vlanIs(10);
    }
    ~RemoteBindingStatusSmFixture() override {
        changes_.clear();
        if (sm) {
            sm->destroy();
        }
        status->destroy();
        vlanL3InfoStatus->destroy();
        group->destroy();
    }

    void machineIs(const Vela::Ptr<Vela::TaskScheduler>& itsScheduler) {
        sm = Vela::make<RemoteBindingStatusSm>(itsScheduler, config(), group, vlanL3InfoStatus,
                                               status);
    }
    void configReadyIs() { state().remoteBindingConfig->completeIs(true); }
    /// A machine that has seen the empty configuration.
    void startReady() {
        configReadyIs();
        machineIs(scheduler());
        runUntilIdle();
    }

    Vela::Ptr<RemoteBindingConfig> config() { return state().remoteBindingConfig; }
    static RemoteBindingKey key(const std::string& ip, unsigned vlan = 10) {
        return {Bridging::VlanId(vlan), Zinc::IpGenAddr(ip)};
    }
    static VlanIdMacAddress host(const std::string& mac, unsigned vlan = 10) {
        return {Bridging::VlanId(vlan), Zinc::EthAddr(mac)};
    }
    void bindingIs(const std::string& ip, const std::string& mac, unsigned vlan = 10,
                   bool localMultihomed = false) {
        config()->remoteBindingIs({key(ip, vlan), Zinc::EthAddr(mac), 0, localMultihomed});
    }
    void bindingDel(const std::string& ip, unsigned vlan = 10) {
        config()->remoteBindingDel(key(ip, vlan));
    }

    Vela::Ptr<VlanL3Info> vlanIs(unsigned vlan, const char* vrf = "default") {
        auto vlanL3Info = vlanL3InfoStatus->vlanL3InfoIs(vlanL3InfoStatus->vrfInfoIs(vrf),
                                                         Bridging::VlanId(vlan));
        vlanL3InfoStatus->addVrfInterfaceWatch(vlanL3Info);
        return vlanL3Info;
    }
    void vlanDel(unsigned vlan) {
        if (auto vlanL3Info = vlanL3InfoStatus->vlanL3Info(Bridging::VlanId(vlan))) {
            vlanL3InfoStatus->delVrfInterfaceWatch(vlanL3Info);
            vlanL3InfoStatus->vlanL3InfoDel(Bridging::VlanId(vlan));
        }
    }
    void vlanMoves(unsigned vlan, const char* vrf) {
        vlanDel(vlan);
        vlanIs(vlan, vrf);
    }
    Vela::Ptr<RemoteIpToMac> ipToMac(const std::string& ip, unsigned vlan = 10) {
        return status->ipToMac(VrfIpAddress::fromVlanL3Info(
            vlanL3InfoStatus->vlanL3Info(Bridging::VlanId(vlan)), Zinc::IpGenAddr(ip)));
    }

    /// "default 10.0.0.1"; "-" for no address.
    static std::string text(const VrfIpAddress& address) {
        if (!address) {
            return "-";
        }
        std::string intf = address.intfId().toStrep();
        return (address.vrfInfo() ? address.vrfInfo()->vrfName() : "NULL") + " " +
               address.ipAddress().toStrep() + (intf.empty() ? "" : "%" + intf);
    }
    static std::string text(const VlanIdMacAddress& host) {
        return host.vlanId().toStrep() + " " + host.macAddress().toStrep();
    }

    Tables tables() const {
        Tables seen;
        for (auto entry = status->ipToMacCollection().first(); entry; ++entry) {
            const auto& hosts = entry.value()->vlanIdMacAddressCollection();
            auto& row = seen.ipToMac[text(entry.key())];
            EXPECT_TRUE(row.empty()) << "two VRFs of one name in " << text(entry.key());
            for (size_t i = 0; i < hosts.size(); ++i) {
                row[text(hosts[i].vlanIdMacAddress)] = hosts[i].localMultihomed;
            }
        }
        for (auto entry = status->macToIpCollection().first(); entry; ++entry) {
            auto& row = seen.macToIp[text(entry.key())];
            entry.value()->ipAddressCollection().each(
                [&](const Zinc::IpGenAddr& address) { row.insert(address.toStrep()); });
        }
        for (auto vlanId = status->vlanIdCollection().first(); vlanId; ++vlanId) {
            seen.vlanIds.insert(vlanId.key().value());
        }
        for (auto vrf = status->vrfReferenceCountCollection().first(); vrf; ++vrf) {
            seen.vrfs[vrf.key()->vrfName()] += vrf.value();
        }
        return seen;
    }
    /// What configuration and VLANs say now.
    Tables wanted() {
        Tables want;
        for (auto entry = config()->remoteBindingCollection().first(); entry; ++entry) {
            const RemoteBinding& binding = entry.value();
            if (binding.macAddress.isZero()) {
                continue;
            }
            auto vlanId = binding.key.vlanId();
            std::string hostText = text(VlanIdMacAddress(vlanId, binding.macAddress));
            want.macToIp[hostText].insert(binding.key.ipAddress().toStrep());
            want.vlanIds.insert(vlanId.value());
            if (auto vlanL3Info = vlanL3InfoStatus->vlanL3Info(vlanId)) {
                auto address = VrfIpAddress::fromVlanL3Info(vlanL3Info, binding.key.ipAddress());
                if (want.ipToMac[text(address)].empty()) {
                    ++want.vrfs[vlanL3Info->vrfInfo()->vrfName()];
                }
                want.ipToMac[text(address)][hostText] = binding.localMultihomed != 0;
            }
        }
        return want;
    }
    /// The tables say what the configuration says, and the machine counts right.
    void expectMirrored() {
        EXPECT_EQ(tables(), wanted());
        std::map<unsigned, int32_t> counts;
        std::map<unsigned, int32_t> countsSeen;
        size_t bindings = 0;
        for (auto entry = config()->remoteBindingCollection().first(); entry; ++entry) {
            if (!entry.value().macAddress.isZero()) {
                ++bindings;
                ++counts[entry.key().vlanId().value()];
                EXPECT_EQ(sm->knownMacAddress(entry.key()), entry.value().macAddress);
            }
        }
        EXPECT_EQ(sm->knownBindingCollection().size(), bindings);
        for (auto count = sm->vlanBindingCountCollection().first(); count; ++count) {
            countsSeen[count.key().value()] = count.value();
        }
        EXPECT_EQ(countsSeen, counts);
    }

    using Changes = std::vector<std::string>;
    /// The announced addresses since the last call.
    Changes changes() { return std::exchange(announced_, {}); }

    const std::string macA = "02:00:00:00:00:0a";
    const std::string macB = "02:00:00:00:00:0b";
    const std::string path = "arpSuppression/remoteBindingConfig/evpn";
    const Vela::Ptr<Quarry::MountGroup> group = tableService()->mountGroup();
    const Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus = Vela::make<VlanL3InfoStatus>();
    const Vela::Ptr<RemoteBindingStatus> status = Vela::make<RemoteBindingStatus>(vlanL3InfoStatus);
    Vela::Ptr<RemoteBindingStatusSm> sm;

  private:
    Changes announced_;
    Vela::Reaction changes_ = status->lastVrfIpAddressChangeAttribute().react(
        nullptr, [this] { announced_.push_back(text(status->lastVrfIpAddressChange())); });
};

} // namespace ArpSuppression
