// The tables that are filled from the kernel's FDB and neighbours, against the real kernel.

#include "Linux/KernelSwitch.h"
#include "Testing/ChildProcess.h"
#include "Testing/NamedNetNs.h"
#include "Testing/TemporaryDirectory.h"
#include "Testing/VethPort.h"
#include "tests/netns/Kernel.h"

#include <boost/json.hpp>
#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace Netns {
namespace {

using Bridging::EntryType;
using Bridging::VlanId;
using Texts = std::set<std::string>;

std::string outputOf(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> all{program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    Testing::ChildProcess child("/usr/bin/env", all);
    EXPECT_EQ(child.status(), 0) << child.errors();
    return child.output();
}

bool has(const boost::json::value& list, const char* text) {
    for (const auto& element : list.as_array()) {
        if (element.as_string() == text) {
            return true;
        }
    }
    return false;
}

/// iproute2 with many lines, while the switch runs on.
class Batch {
  public:
    Batch(const std::string& program, const std::string& lines) {
        std::string file = directory_.path() + "/batch";
        std::ofstream(file) << lines;
        child_ = std::make_unique<Testing::ChildProcess>(
            "/usr/bin/env", std::vector<std::string>{program, "-batch", file});
    }
    bool ended() const {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(child_->pid()), &info,
                      WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid != 0;
    }
    Testing::ChildProcess& child() { return *child_; }

  private:
    Testing::TemporaryDirectory directory_;
    std::unique_ptr<Testing::ChildProcess> child_;
};

/// VLAN 10 with the bridge Vlan10, a macvlan on it, its ports et1, et2 (on an Ethernet segment) and
/// the tunnel vx10. VRF 7 is that of namespace "red", and VLAN 30 has the bridge br30.
class TablesTest : public LiveKernelFixture {
  protected:
    TablesTest() {
        // Or else the kernel sends frames of its own, of which bridges learn.
        std::ofstream("/proc/sys/net/ipv6/conf/default/disable_ipv6") << 1;
        ip("link add Vlan10 address 02:00:00:00:0b:0b type bridge");
        ip("link set Vlan10 up");
        ip("link add vx10 type vxlan id 10 dstport 4789 local 127.0.0.1 nolearning");
        ip("link set vx10 master Vlan10 up");
        ip("link add mv10 link Vlan10 type macvlan mode private");
        ip("link set mv10 up");
        for (const char* name : {"et1", "et2"}) {
            ports_.push_back(std::make_unique<Testing::VethPort>(name));
            ip("link set " + ports_.back()->name() + " master Vlan10");
        }
        configuration_.vrfs = {{"default", Vrf::VrfId(1), "default"},
                               {"red", Vrf::VrfId(7), "red"}};
        configuration_.bridges[VlanId(30)] = "br30";
        configuration_.segments = {"et2"};
    }
    ~TablesTest() override {
        if (switch_) {
            switch_->destroy();
        }
        ports_.clear();
    }

    void start() {
        switch_ = Vela::make<Linux::KernelSwitch>(live().scheduler(), state(), configuration_);
        ASSERT_TRUE(live().turnUntil([this] { return switch_->complete(); }));
        ASSERT_TRUE(settled());
    }
    /// Whether all dumps are over and what they did not show is swept out.
    bool settled() {
        return live().turnUntil([this] { return switch_->synchronized(); }) &&
               live().turnUntilIdle();
    }
    Testing::VethPort& port(size_t number) { return *ports_.at(number - 1); }

    /// A frame of no meaning from a MAC address that ends so.
    static std::vector<uint8_t> frameFrom(uint8_t last) {
        std::vector<uint8_t> frame(60, 0);
        std::fill_n(frame.begin(), 6, 0xff);
        frame[6] = 2;
        frame[11] = last;
        frame[12] = 0x88;
        frame[13] = 0xb5;
        return frame;
    }
    static std::string mac(uint8_t last) {
        return Zinc::EthAddr(Zinc::EthAddr::Bytes{2, 0, 0, 0, 0, last}).toStrep();
    }

    EntryType typeOf(uint8_t last) {
        return state()
            .bridgingStatus->quarryFdbStatus({Bridging::Fid(10), Zinc::EthAddr(mac(last))})
            .entryType;
    }
    bool becomes(uint8_t last, EntryType type) {
        return live().turnUntil([&] { return typeOf(last) == type; });
    }
    std::optional<ArpSuppression::RemoteBinding> binding(const std::string& address,
                                                         uint16_t vlan = 10) {
        return state().remoteBindingConfig->remoteBindingCollection().find(
            {VlanId(vlan), Zinc::IpGenAddr(address)});
    }
    std::optional<Arp::Table::ArpEntry> arpEntry(const std::string& address) {
        return state().arpStatus->arpEntryCollection().find(
            {Vrf::VrfId(1), Zinc::IntfId("Vlan10"), Zinc::IpGenAddr(address)});
    }

    /// What the tables say, and what iproute2 reads from the kernel, in the same words.
    Texts tableNeighbors();
    Texts tableFdb();
    static Texts kernelNeighbors();
    static Texts kernelFdb();

    Linux::LinuxConfiguration configuration_;
    std::vector<std::unique_ptr<Testing::VethPort>> ports_;
    Vela::Ptr<Linux::KernelSwitch> switch_;
};

Texts TablesTest::tableNeighbors() {
    Texts texts;
    for (const auto* table : {&state().arpStatus->arpEntryCollection(),
                              &state().arpStatus->neighborEntryCollection()}) {
        for (auto entry = table->first(); entry; ++entry) {
            texts.insert(entry.key().addr().toStrep() + " " + entry.value().macAddress.toStrep() +
                         (entry.value().isStatic ? " static" : " dynamic"));
        }
    }
    auto binding = state().remoteBindingConfig->remoteBindingCollection().first();
    for (; binding; ++binding) {
        texts.insert(binding.key().ipAddress().toStrep() + " " +
                     binding.value().macAddress.toStrep() + " remote");
    }
    return texts;
}

Texts TablesTest::kernelNeighbors() {
    Texts texts;
    auto all =
        boost::json::parse(outputOf("ip", {"-j", "neigh", "show", "nud", "all", "dev", "Vlan10"}));
    for (const auto& element : all.as_array()) {
        const auto& entry = element.as_object();
        Zinc::IpGenAddr address{std::string_view(entry.at("dst").as_string())};
        if (!entry.contains("lladdr") || address.isMulticast()) {
            continue;
        }
        const auto& state = entry.at("state");
        bool isStatic = has(state, "PERMANENT") || has(state, "NOARP");
        texts.insert(address.toStrep() + " " + std::string(entry.at("lladdr").as_string()) +
                     (entry.contains("extern_learn") ? " remote"
                      : isStatic                     ? " static"
                                                     : " dynamic"));
    }
    return texts;
}

Texts TablesTest::tableFdb() {
    Texts texts;
    auto entry = state().bridgingStatus->quarryFdbStatusCollection().first();
    for (; entry; ++entry) {
        texts.insert(entry.key().macAddress.toStrep() + " " + entry.value().intf.toStrep() + " " +
                     Bridging::toStrep(entry.value().entryType));
    }
    return texts;
}

Texts TablesTest::kernelFdb() {
    Texts texts;
    auto all = boost::json::parse(outputOf("bridge", {"-j", "fdb", "show", "br", "Vlan10"}));
    for (const auto& element : all.as_array()) {
        const auto& entry = element.as_object();
        std::string device(entry.at("ifname").as_string());
        std::string entryState(entry.contains("state") ? entry.at("state").as_string() : "");
        if (has(entry.at("flags"), "self") || entryState == "permanent" || device == "Vlan10") {
            continue;
        }
        bool isStatic = entryState == "static";
        const char* type =
            device == "vx10" ? isStatic ? "evpnConfiguredRemote" : "evpnDynamicRemote"
            : isStatic       ? "configuredStatic"
            : device == "et2" && has(entry.at("flags"), "extern_learn") ? "evpnLocalSegment"
                                                                        : "learnedDynamic";
        texts.insert(std::string(entry.at("mac").as_string()) + " " + device + " " + type);
    }
    return texts;
}

TEST_F(TablesTest, theFdbOfABridge) {
    port(1).inject(frameFrom(1));
    bridgeBatch("fdb add 02:00:00:00:00:02 dev vx10 master extern_learn dynamic\n"
                "fdb append 00:00:00:00:00:00 dev vx10 dst 192.0.2.1\n"
                "fdb append 02:00:00:00:00:02 dev vx10 dst 192.0.2.1\n"
                "fdb add 02:00:00:00:00:03 dev vx10 master static sticky\n"
                "fdb add 02:00:00:00:00:04 dev et1 master static\n");
    start();
    EXPECT_EQ(typeOf(1), EntryType::learnedDynamic);
    EXPECT_EQ(typeOf(2), EntryType::evpnDynamicRemote);
    EXPECT_EQ(typeOf(3), EntryType::evpnConfiguredRemote);
    EXPECT_EQ(typeOf(4), EntryType::configuredStatic);
    EXPECT_EQ(state().bridgingStatus->quarryFdbStatusCollection().count(), 4u);

    port(1).inject(frameFrom(2)); // from remote to local, and back
    EXPECT_TRUE(becomes(2, EntryType::learnedDynamic));
    bridgeBatch("fdb replace 02:00:00:00:00:02 dev vx10 master extern_learn dynamic\n"
                "fdb del 02:00:00:00:00:04 dev et1 master\n"
                "fdb add 02:00:00:00:00:05 dev et2 master extern_learn dynamic\n");
    EXPECT_TRUE(becomes(2, EntryType::evpnDynamicRemote));
    EXPECT_TRUE(becomes(4, EntryType::none));
    EXPECT_TRUE(becomes(5, EntryType::evpnLocalSegment));
    bridgeBatch("fdb del 02:00:00:00:00:02 dev vx10 master\n");
    EXPECT_TRUE(becomes(2, EntryType::none));
    EXPECT_EQ(tableFdb(), kernelFdb());

    state().bridgingConfig->vlanToFidIs(VlanId(10), Bridging::Fid(1010));
    ASSERT_TRUE(settled());
    EXPECT_EQ(tableFdb(), kernelFdb());
    EXPECT_EQ(typeOf(1), EntryType::none);
}

TEST_F(TablesTest, neighborsOfARoutedInterface) {
    const std::string remote = " nud noarp extern_learn proto 11";
    ip("neigh replace 10.0.0.2 lladdr " + mac(2) + " dev Vlan10" + remote);
    ip("neigh replace 10.0.0.3 lladdr " + mac(3) + " dev Vlan10 nud permanent proto 110");
    start();
    ASSERT_TRUE(binding("10.0.0.2"));
    EXPECT_EQ(binding("10.0.0.2")->macAddress, Zinc::EthAddr(mac(2)));
    EXPECT_EQ(binding("10.0.0.2")->vxlan, 0);
    ASSERT_TRUE(arpEntry("10.0.0.3"));
    EXPECT_TRUE(arpEntry("10.0.0.3")->isStatic);
    EXPECT_EQ(arpEntry("10.0.0.3")->source, Arp::ArpSource::arpSuppression);

    // The host moves here in one message, which leaves the protocol as it was.
    ip("neigh replace 10.0.0.2 lladdr " + mac(2) + " dev Vlan10 nud reachable");
    ASSERT_TRUE(live().turnUntil([&] { return arpEntry("10.0.0.2").has_value(); }));
    EXPECT_FALSE(binding("10.0.0.2"));
    EXPECT_FALSE(arpEntry("10.0.0.2")->isStatic);
    ip("neigh replace 10.0.0.2 lladdr " + mac(9) + " dev Vlan10" + remote);
    ASSERT_TRUE(live().turnUntil([&] { return binding("10.0.0.2").has_value(); }));
    EXPECT_FALSE(arpEntry("10.0.0.2"));
    EXPECT_EQ(binding("10.0.0.2")->macAddress, Zinc::EthAddr(mac(9)));

    // The macvlan knows it as well, and for a while better.
    ip("neigh replace 10.0.0.2 lladdr " + mac(2) + " dev mv10 nud reachable");
    ip("neigh del 10.0.0.2 dev Vlan10");
    ASSERT_TRUE(live().turnUntil([&] { return arpEntry("10.0.0.2").has_value(); }));
    EXPECT_FALSE(binding("10.0.0.2"));
    ip("neigh del 10.0.0.2 dev mv10");
    ASSERT_TRUE(live().turnUntil([&] { return !arpEntry("10.0.0.2"); }));
    EXPECT_EQ(tableNeighbors(), kernelNeighbors());

    // Everything goes with the device.
    ip("link set Vlan10 down");
    ASSERT_TRUE(live().turnUntil([&] { return !arpEntry("10.0.0.3"); }));
    EXPECT_EQ(tableNeighbors(), Texts());
}

TEST_F(TablesTest, aHostOnAnEthernetSegmentIsLocallyMultihomed) {
    start();
    ip("neigh replace 10.0.0.7 lladdr " + mac(7) + " dev Vlan10 nud noarp extern_learn proto 11");
    ASSERT_TRUE(live().turnUntil([&] { return binding("10.0.0.7").has_value(); }));
    EXPECT_EQ(binding("10.0.0.7")->localMultihomed, 0);
    port(2).inject(frameFrom(7));
    EXPECT_TRUE(live().turnUntil([&] { return binding("10.0.0.7")->localMultihomed == 1; }));
    port(1).inject(frameFrom(7));
    EXPECT_TRUE(live().turnUntil([&] { return binding("10.0.0.7")->localMultihomed == 0; }));
}

TEST_F(TablesTest, aVrfInANamespaceOfItsOwn) {
    start();
    for (int time = 0; time < 2; ++time) { // it comes back, too
        Testing::NamedNetNs red("red");
        ip("link add br30 type bridge");
        ip("link add r30 type veth peer name Vlan30 netns red");
        ip("link set r30 master br30 up");
        red.ip({"link", "set", "Vlan30", "up"});
        red.ip({"neigh", "replace", "10.0.0.2", "lladdr", mac(2), "dev", "Vlan30", "nud", "noarp",
                "extern_learn"});
        EXPECT_TRUE(live().turnUntil([&] { return binding("10.0.0.2", 30).has_value(); }));
        red.ip({"neigh", "replace", "10.0.0.3", "lladdr", mac(3), "dev", "Vlan30", "nud",
                "permanent"});
        Arp::Table::ArpKey key(Vrf::VrfId(7), Zinc::IntfId("Vlan30"), Zinc::IpGenAddr("10.0.0.3"));
        EXPECT_TRUE(
            live().turnUntil([&] { return state().arpStatus->arpEntryCollection().has(key); }));
        if (time == 0) {
            ip("link del br30");
            red.ip({"link", "del", "Vlan30"});
            EXPECT_TRUE(live().turnUntil([&] { return tableNeighbors().empty(); }));
        }
    }
    // With the namespace, which says nothing any more, they go as well.
    EXPECT_TRUE(live().turnUntil([&] { return tableNeighbors().empty(); }));
}

TEST_F(TablesTest, entriesFollowWhatTheirDevicesAre) {
    port(1).inject(frameFrom(1));
    ip("neigh replace 10.0.0.2 lladdr " + mac(2) + " dev Vlan10 nud noarp extern_learn");
    start();
    EXPECT_TRUE(binding("10.0.0.2"));
    EXPECT_EQ(tableFdb(), Texts{mac(1) + " et1 learnedDynamic"});

    configuration_.vrfs[0].id = Vrf::VrfId(2);
    switch_->configurationIs(configuration_);
    ip("neigh replace 10.0.0.3 lladdr " + mac(3) + " dev Vlan10 nud permanent");
    Arp::Table::ArpKey key(Vrf::VrfId(2), Zinc::IntfId("Vlan10"), Zinc::IpGenAddr("10.0.0.3"));
    EXPECT_TRUE(live().turnUntil([&] { return state().arpStatus->arpEntryCollection().has(key); }));
    // The bridge is VLAN 20 from now on, with all that the kernel keeps of it.
    ip("link set Vlan10 down");
    ip("link set Vlan10 name Vlan20");
    ip("link set Vlan20 up");
    ip("neigh replace 10.0.0.4 lladdr " + mac(4) + " dev Vlan20 nud noarp extern_learn");
    port(1).inject(frameFrom(1));
    EXPECT_TRUE(live().turnUntil([&] {
        return binding("10.0.0.4", 20) && !binding("10.0.0.2") &&
               state().bridgingStatus->quarryFdbStatusCollection().has(
                   {Bridging::Fid(20), Zinc::EthAddr(mac(1))});
    }));
    ASSERT_TRUE(settled());
    EXPECT_EQ(tableNeighbors(), Texts{"10.0.0.4 " + mac(4) + " remote"});
    EXPECT_EQ(state().bridgingStatus->quarryFdbStatusCollection().count(), 1u);
}

TEST_F(TablesTest, afterAStormTheTablesEqualTheKernel) {
    constexpr int hosts = 2500;
    constexpr int rounds = 10;
    configuration_.receiveBuffer = 4096;
    start();
    auto host = [](int i) { return Zinc::IpGenAddr(0x0a010000u + static_cast<uint32_t>(i)); };
    auto hostMac = [](int i) {
        return Zinc::EthAddr(Zinc::EthAddr::Bytes{2, 0, 0, 1, static_cast<uint8_t>(i >> 8),
                                                  static_cast<uint8_t>(i)})
            .toStrep();
    };
    // 100 000 changes: hosts become remote and then local or unknown, as one in three is in the
    // end.
    std::string neighborLines;
    std::string fdbLines;
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < hosts; ++i) {
            std::string words = host(i).toStrep() + " lladdr " + hostMac(i) + " dev Vlan10 nud ";
            neighborLines += "neigh replace " + words + "noarp extern_learn proto 11\n";
            neighborLines += (i + round) % 3 ? "neigh replace " + words + "permanent\n"
                                             : "neigh del " + host(i).toStrep() + " dev Vlan10\n";
            fdbLines += "fdb replace " + hostMac(i) + " dev vx10 master extern_learn dynamic\n";
            fdbLines += (i + round) % 3 ? "fdb replace " + hostMac(i) + " dev et1 master static\n"
                                        : "fdb del " + hostMac(i) + " dev vx10 master\n";
        }
    }
    Batch neighbors("ip", neighborLines);
    Batch fdb("bridge", fdbLines);
    ASSERT_TRUE(live().turnUntil([&] { return neighbors.ended() && fdb.ended(); }));
    auto end = std::chrono::steady_clock::now();
    ASSERT_EQ(neighbors.child().status(), 0) << neighbors.child().errors();
    ASSERT_EQ(fdb.child().status(), 0) << fdb.child().errors();
    ASSERT_TRUE(live().turnUntilIdle());
    ASSERT_TRUE(settled());
    auto took = std::chrono::steady_clock::now() - end;
    RecordProperty("milliseconds", static_cast<int>(took / std::chrono::milliseconds(1)));
    EXPECT_LT(took, std::chrono::seconds(1));
    EXPECT_EQ(tableNeighbors(), kernelNeighbors());
    EXPECT_EQ(tableFdb(), kernelFdb());
    EXPECT_EQ(tableFdb().size(), size_t{hosts - (hosts + 2) / 3});
    EXPECT_GT(switch_->socket("default")->statistics().overruns, 0u);
}

} // namespace
} // namespace Netns
