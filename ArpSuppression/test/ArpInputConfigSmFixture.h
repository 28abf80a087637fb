#pragma once

#include "ArpSuppression/ArpInputConfigSm.h"
#include "Platform/Agent/Toggle.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TemporaryDirectory.h"
#include "Testing/TraceCapture.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <map>
#include <string>
#include <utility>

namespace ArpSuppression {

using Id = ArpSuppressionCounterId;
using Moved = std::map<Id, uint64_t>;

/// The machine alone, with what it reads and writes; the bindings are put there by hand, as the
/// machines that own them do it. VLANs 10 and 20 are in VRF "default" (1), VLAN 30 in "red" (2).
/// It walks on a scheduler of its own, an item a slice; the other one announces what changes in
/// tables.
class ArpInputConfigSmFixture : public Testing::SwitchFixture {
  protected:
    /// "default 10.0.0.1 Vlan10" to "<macAddress=... type=... source=... quickRefresh=...>".
    using Entries = std::map<std::string, std::string>;

    ArpInputConfigSmFixture() {
        tables_->mount<ArpSuppressionCounterStatus>("arpSuppression/counter",
                                                    Quarry::MountType::writer);
        tables_->close();
        counters = tables_->entity<ArpSuppressionCounterStatus>("arpSuppression/counter");
        config().sourceIs(Arp::ArpSource::arpSuppression);
        vlanIs(10);
        vlanIs(20);
        vlanIs(30, "red", 2);
        runUntilIdle();
    }
    ~ArpInputConfigSmFixture() override {
        if (sm) {
            sm->destroy();
        }
        trigger->destroy();
        remote->destroy();
        record->destroy();
        vlans->destroy();
        walks->destroy();
        counters.reset();
        tables_->destroy();
    }

    void machineIs() {
        sm =
            Vela::make<ArpInputConfigSm>(walks, state().l2VpnConfig, record, remote, trigger, vlans,
                                         state().arpStatus, state().arpInputConfig, counters);
    }
    /// A machine that has walked over everything.
    void startComplete() {
        completeIs();
        machineIs();
        walkToTheEnd();
        moved();
    }
    void completeIs() {
        vlans->initialArpSuppressionStatusSyncIs(true);
        remote->initialPopulationCompleteIs(true);
    }
    bool slice() { return walks->turn(Vela::MonotonicTime(0)); }
    unsigned walkToTheEnd() {
        unsigned slices = 0;
        while (slice()) {
            if (++slices > 100'000) {
                ADD_FAILURE() << "the walk has no end";
                break;
            }
        }
        return slices;
    }

    // VLANs and VRFs

    Vela::Ptr<VlanL3Info> vlanIs(unsigned vlan, const char* vrf = "default", uint32_t vrfId = 1) {
        auto vrfInfo = vlans->vrfInfoIs(vrf);
        vrfInfo->vrfIdIs(Vrf::VrfId(vrfId));
        auto info = vlans->vlanL3InfoIs(vrfInfo, Bridging::VlanId(vlan));
        vlans->addVrfInterfaceWatch(info);
        return info;
    }
    void vlanDel(unsigned vlan) {
        vlans->delVrfInterfaceWatch(vlans->vlanL3Info(Bridging::VlanId(vlan)));
        vlans->vlanL3InfoDel(Bridging::VlanId(vlan));
    }
    VrfIpAddress address(const std::string& ip, unsigned vlan = 10) {
        return VrfIpAddress::fromVlanL3Info(vlans->vlanL3Info(Bridging::VlanId(vlan)),
                                            Zinc::IpGenAddr(ip));
    }
    static VlanIdMacAddress host(const std::string& mac, unsigned vlan = 10) {
        return {Bridging::VlanId(vlan), Zinc::EthAddr(mac)};
    }

    // Remote bindings

    void announce(const VrfIpAddress& address) {
        remote->lastVrfIpAddressChangeIs({});
        remote->lastVrfIpAddressChangeIs(address);
    }
    /// One more host that claims the address; announced.
    void remoteIs(const std::string& ip, const std::string& mac, unsigned vlan = 10,
                  bool localMultihomed = false) {
        quietRemoteIs(ip, mac, vlan, localMultihomed);
        announce(address(ip, vlan));
    }
    void quietRemoteIs(const std::string& ip, const std::string& mac, unsigned vlan = 10,
                       bool localMultihomed = false) {
        auto ipToMac = remote->ipToMacIs(address(ip, vlan));
        if (ipToMac->vlanIdMacAddresses() == 0) {
            remote->referenceVrf(ipToMac->vrfIpAddress().vrfInfo());
        }
        ipToMac->vlanIdMacAddressIs(host(mac, vlan), localMultihomed);
    }
    /// All of its hosts go; the VRF is released before anybody is told.
    void remoteDel(const VrfIpAddress& address) {
        quietRemoteDel(address);
        announce(address);
    }
    void quietRemoteDel(const VrfIpAddress& address) {
        ASSERT_TRUE(remote->ipToMacDel(address));
        remote->releaseVrf(address.vrfInfo());
    }
    void remoteDel(const std::string& ip, unsigned vlan = 10) { remoteDel(address(ip, vlan)); }

    // Local bindings and what the kernel knows

    Vela::Ptr<LocalBinding> localIs(const std::string& ip, const std::string& mac,
                                    unsigned vlan = 10) {
        return record->createLocalBinding(address(ip, vlan), host(mac, vlan));
    }
    void localDel(const std::string& ip, unsigned vlan = 10) {
        record->deleteLocalBinding(record->binding(address(ip, vlan)));
    }
    static Arp::Table::ArpKey kernelKey(const std::string& ip, unsigned vlan = 10) {
        return {Vrf::VrfId(vlan == 30 ? 2 : 1), Zinc::IntfId("Vlan" + std::to_string(vlan)),
                Zinc::IpGenAddr(ip)};
    }
    void kernelIs(const std::string& ip, const std::string& mac, bool isStatic = false,
                  Arp::ArpSource source = Arp::ArpSource::kernel, unsigned vlan = 10) {
        state().arpStatus->entryIs({kernelKey(ip, vlan), Zinc::EthAddr(mac), isStatic, source});
        runUntilIdle();
    }
    void kernelDel(const std::string& ip, unsigned vlan = 10) {
        state().arpStatus->entryDel(kernelKey(ip, vlan));
        runUntilIdle();
    }

    void selectiveIs(bool selective) { state().l2VpnConfig->selectiveArpInstallIs(selective); }

    // Entries

    Arp::InputConfig& config() { return *state().arpInputConfig; }
    static Arp::InputConfigKey key(const std::string& ip, const std::string& intf = "Vlan10") {
        return {Zinc::IpGenAddr(ip), Zinc::IntfId(intf)};
    }
    void permanentIs(const std::string& ip, const std::string& mac,
                     const std::string& intf = "Vlan10", const char* vrf = "default") {
        config().vrfIs(vrf)->afEntryPermanentIs(key(ip, intf), Zinc::EthAddr(mac),
                                                config().source());
    }
    Entries entries() {
        Entries seen;
        for (auto vrf = config().vrfCollection().first(); vrf; ++vrf) {
            EXPECT_GT(vrf.value()->ipv4Entries() + vrf.value()->ipv6Entries(), 0u);
            for (const auto* entries :
                 {&vrf.value()->ipv4EntryCollection(), &vrf.value()->ipv6EntryCollection()}) {
                for (auto entry = entries->first(); entry; ++entry) {
                    seen[vrf.key().bytes() + " " + entry.key().ipAddress().toStrep() + " " +
                         entry.key().intfId().toStrep()] = entry.value().toStrep();
                }
            }
        }
        return seen;
    }
    static std::string permanent(const std::string& mac) {
        return "<macAddress=" + mac + " type=permanent source=arpSuppression quickRefresh=none>";
    }
    static std::string dynamic(const std::string& mac) {
        return "<macAddress=" + mac + " type=dynamic source=arpSuppression quickRefresh=none>";
    }
    static std::string refreshed(const std::string& mac) {
        return "<macAddress=" + mac + " type=dynamic source=arpSuppression quickRefresh=immediate>";
    }

    /// What was counted since the last call.
    Moved moved() {
        Moved since;
        for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
            uint64_t count = counters->count(Id(number));
            if (count != counted_[number]) {
                since[Id(number)] = count - std::exchange(counted_[number], count);
            }
        }
        return since;
    }
    static Moved once(Id id) { return {{id, 1}}; }

    /// Shadows are those of the IPv4 entries, and no others.
    void expectShadowsOfEntries() {
        Entries shadows;
        for (auto shadow = sm->ipv4VlanIntfIdShadowCollection().first(); shadow; ++shadow) {
            shadows[shadow.key().vrfInfo()->vrfName() + " " + shadow.key().ipAddress().toStrep() +
                    " " + shadow.value().toStrep()];
        }
        Entries ipv4;
        for (const auto& [name, entry] : entries()) {
            if (name.find(':') == std::string::npos) {
                ipv4[name];
            }
        }
        EXPECT_EQ(shadows, ipv4);
        EXPECT_EQ(sm->ipv4VlanIntfIdShadowCollection().size(), ipv4.size());
    }

    const std::string macA = "02:00:00:00:00:0a";
    const std::string macB = "02:00:00:00:00:0b";
    const std::string ip1 = "10.0.0.1";
    const std::string ip2 = "10.0.0.2";
    const std::string at1 = "default 10.0.0.1 Vlan10";
    const Vela::Ptr<Vela::TaskScheduler> walks = Vela::make<Vela::TaskScheduler>(
        clock(), Vela::TaskScheduler::Settings{.alwaysYield = true});
    const Vela::Ptr<VlanL3InfoStatus> vlans = Vela::make<VlanL3InfoStatus>();
    const Vela::Ptr<LocalBindingRecord> record = localBindingRecordFactory(vlans);
    const Vela::Ptr<RemoteBindingStatus> remote = Vela::make<RemoteBindingStatus>(vlans);
    const Vela::Ptr<ArpInputConfigTrigger> trigger = arpInputConfigTriggerFactory();
    Vela::Ptr<ArpSuppressionCounterStatus> counters;
    Vela::Ptr<ArpInputConfigSm> sm;

  private:
    const Vela::Ptr<Quarry::MountGroup> tables_ = tableService()->mountGroup();
    std::array<uint64_t, arpSuppressionCounters> counted_{};
};

/// Toggles are read once per process: a test each.
class ArpInputConfigSmToggleTest : public ArpInputConfigSmFixture {
  protected:
    ~ArpInputConfigSmToggleTest() override { Vela::toggleDirectoryIs("/etc/arpsup/toggles"); }

    void toggleIs(const std::string& file, const std::string& toggle, bool enabled) {
        std::ofstream(directory_.path() + "/" + file)
            << "{\"" << toggle << "\": " << (enabled ? "true" : "false") << "}";
        Vela::toggleDirectoryIs(directory_.path());
    }
    void refreshToggleIs(bool enabled) {
        toggleIs("EvpnLib.json", "EvpnMplsProxyArpRefresh", enabled);
    }
    void installToggleIs(bool enabled) {
        toggleIs("ArpSuppression.json", "LocalMultihomeSelectiveArpInstall", enabled);
    }

  private:
    Testing::TemporaryDirectory directory_;
};

} // namespace ArpSuppression
