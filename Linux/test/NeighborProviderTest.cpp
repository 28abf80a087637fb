#include "Linux/test/ProviderFixture.h"
#include "Platform/State/DumpContext.h"

namespace Linux {
namespace {

using Arp::ArpSource;

class NeighborProviderTest : public ProviderFixture {
  protected:
    void expectLocal(const std::string& address, const std::string& mac, bool isStatic = false,
                     ArpSource source = ArpSource::kernel, const RoutedDevice& device = routed10) {
        auto entry = arpEntry(device, address);
        ASSERT_TRUE(entry) << address;
        EXPECT_EQ(entry->macAddress, Zinc::EthAddr(mac));
        EXPECT_EQ(entry->isStatic, isStatic);
        EXPECT_EQ(entry->source, source);
        EXPECT_FALSE(binding(device.vlanId.value(), address));
    }
    void expectRemote(const std::string& address, const std::string& mac,
                      const RoutedDevice& device = routed10) {
        auto found = binding(device.vlanId.value(), address);
        ASSERT_TRUE(found) << address;
        EXPECT_EQ(found->macAddress, Zinc::EthAddr(mac));
        EXPECT_EQ(found->vxlan, 0);
        EXPECT_EQ(found->localMultihomed, 0);
        EXPECT_FALSE(arpEntry(device, address));
    }
    void expectAbsent(const std::string& address) {
        EXPECT_FALSE(arpEntry(routed10, address));
        EXPECT_FALSE(binding(10, address));
    }
    std::string dump() {
        Vela::DumpContext dump;
        neighbors->dumpState(dump, 0);
        return dump.text();
    }
};

TEST_F(NeighborProviderTest, putsNeighborsWhereTheyBelong) {
    neighborIs(10, ip, a);
    expectLocal(ip, a);
    say(inDefault(), {.ifIndex = 10, .address = ip6, .macAddress = a, .state = NUD_PERMANENT});
    expectLocal(ip6, a, true);
    say(inDefault(), {.ifIndex = 10,
                      .address = "10.0.0.3",
                      .macAddress = b,
                      .state = NUD_PERMANENT,
                      .flags = NTF_EXT_LEARNED,
                      .protocol = 110});
    expectLocal("10.0.0.3", b, true, ArpSource::arpSuppression);
    remoteIs(20, "10.0.0.4", b);
    expectRemote("10.0.0.4", b, routed20);
    say(inRed(), remote(10, "10.0.0.4", a)); // the same index, another namespace
    expectRemote("10.0.0.4", a, routed30);
    say(inRed(), {.ifIndex = 10, .address = ip, .macAddress = b});
    expectLocal(ip, b, false, ArpSource::kernel, routed30);
    expectLocal(ip, a);
    EXPECT_EQ(arpEntries(), 4u);
    EXPECT_EQ(bindings(), 2u);
    EXPECT_TRUE(resyncs.empty());
}

TEST_F(NeighborProviderTest, leavesOutWhatIsNoNeighborOfAVlan) {
    neighborIs(99, ip, a);
    neighborIs(10, "224.0.0.22", "01:00:5e:00:00:16");
    neighborIs(10, "ff02::16", "33:33:00:00:00:16");
    neighborIs(10, "10.0.0.255", "ff:ff:ff:ff:ff:ff");
    neighborIs(10, "10.0.0.254", "00:00:00:00:00:00");
    say(inDefault(), {.ifIndex = 10, .address = ip, .macAddress = a, .flags = NTF_PROXY});
    say(inDefault(), {.ifIndex = 10, .macAddress = a});
    EXPECT_EQ(arpEntries(), 0u);
    EXPECT_EQ(bindings(), 0u);
    std::string text = dump();
    for (const char* line : {"ignored[unknownDevice] 1\n", "ignored[noUnicast] 2\n",
                             "ignored[proxy] 1\n", "ignored[otherFamily] 1\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
}

TEST_F(NeighborProviderTest, announcesNoChangeOfStateAlone) {
    int announced = 0;
    auto reaction = state().arpStatus->arpEntryCollection().react(
        nullptr, [&](const Arp::Table::ArpKey&) { ++announced; });
    for (uint16_t state : std::initializer_list<uint16_t>{NUD_REACHABLE, NUD_STALE, NUD_DELAY,
                                                          NUD_PROBE, NUD_REACHABLE}) {
        say(inDefault(), {.ifIndex = 10, .address = ip, .macAddress = a, .state = state});
    }
    runUntilIdle();
    EXPECT_EQ(announced, 1);
    neighborIs(10, ip, b);
    say(inDefault(), {.ifIndex = 10, .address = ip, .macAddress = b, .state = NUD_PERMANENT});
    say(inDefault(),
        {.ifIndex = 10, .address = ip, .macAddress = b, .state = NUD_PERMANENT, .protocol = 110});
    runUntilIdle();
    EXPECT_EQ(announced, 4);
    for (uint16_t state : std::initializer_list<uint16_t>{NUD_INCOMPLETE, NUD_FAILED}) {
        say(inDefault(), {.ifIndex = 10, .address = ip, .state = state});
        expectAbsent(ip);
    }
    runUntilIdle();
    EXPECT_EQ(announced, 5);
}

TEST_F(NeighborProviderTest, aWithdrawalComesAsAFailureWithTheProtocolLeft) {
    remoteIs(10, ip, a);
    say(inDefault(), {.ifIndex = 10, .address = ip, .state = NUD_FAILED, .protocol = 11});
    expectAbsent(ip);
    say(inDefault(),
        {.ifIndex = 10, .address = ip, .state = NUD_FAILED, .protocol = 11, .removed = true});
    expectAbsent(ip);
    EXPECT_EQ(bindings(), 0u);
}

// One message changes both tables: whoever reacts to either finds both as they are now.
TEST_F(NeighborProviderTest, aMoveChangesBothTablesBeforeAnybodyReacts) {
    for (const std::string& address : {ip, ip6}) {
        int seen = 0;
        bool local = true;
        auto look = [&] {
            ++seen;
            EXPECT_EQ(arpEntry(routed10, address).has_value(), local) << address;
            EXPECT_EQ(binding(10, address).has_value(), !local) << address;
        };
        neighborIs(10, address, a);
        runUntilIdle();
        auto onArp = state().arpStatus->arpEntryCollection().react(nullptr, [&](auto&) { look(); });
        auto onNeighbor =
            state().arpStatus->neighborEntryCollection().react(nullptr, [&](auto&) { look(); });
        auto onBinding = state().remoteBindingConfig->remoteBindingCollection().react(
            nullptr, [&](auto&) { look(); });
        local = false;
        remoteIs(10, address, b);
        EXPECT_EQ(seen, 0);
        runUntilIdle();
        EXPECT_EQ(seen, 2);
        expectRemote(address, b);
        local = true;
        say(inDefault(), {.ifIndex = 10, .address = address, .macAddress = a, .protocol = 11});
        runUntilIdle();
        EXPECT_EQ(seen, 4);
        expectLocal(address, a);
    }
}

TEST_F(NeighborProviderTest, whatGoesGoesFirst) {
    std::vector<const char*> order;
    auto onArp = state().arpStatus->arpEntryCollection().react(
        nullptr, [&](auto&) { order.push_back("arp"); });
    auto onBinding = state().remoteBindingConfig->remoteBindingCollection().react(
        nullptr, [&](auto&) { order.push_back("binding"); });
    neighborIs(10, ip, a);
    remoteIs(10, ip, b);
    neighborIs(10, ip, a);
    runUntilIdle();
    EXPECT_EQ(order, (std::vector<const char*>{"arp", "arp", "binding", "binding", "arp"}));
}

TEST_F(NeighborProviderTest, theRoutedInterfacesWordCountsBeforeThatOfAMacvlan) {
    for (bool macvlanFirst : {false, true}) {
        neighborIs(macvlanFirst ? 11 : 10, ip, macvlanFirst ? b : a);
        neighborIs(macvlanFirst ? 10 : 11, ip, macvlanFirst ? a : b);
        expectLocal(ip, a);
        neighborIs(11, ip, "02:00:00:00:00:0c");
        expectLocal(ip, a);
        neighborDel(10, ip);
        expectLocal(ip, "02:00:00:00:00:0c");
        remoteIs(10, ip, b);
        expectRemote(ip, b);
        neighborDel(11, ip);
        expectRemote(ip, b);
        neighborDel(11, ip); // twice changes nothing
        expectRemote(ip, b);
        neighborDel(10, ip);
        expectAbsent(ip);
        EXPECT_EQ(arpEntries(), 0u);
        EXPECT_EQ(bindings(), 0u);
        EXPECT_NE(dump().find("macvlanAddresses=0"), std::string::npos) << dump();
    }
    remoteIs(11, ip, a);
    expectRemote(ip, a);
    say(inDefault(), {.ifIndex = 11, .address = ip, .state = NUD_FAILED});
    expectAbsent(ip);
}

TEST_F(NeighborProviderTest, sweepsAddressesByDevice) {
    neighborIs(10, ip, a);
    neighborIs(11, ip, b);
    neighborIs(11, "10.0.0.2", b);
    remoteIs(10, "10.0.0.3", b);
    remoteIs(20, ip6, b);
    say(inRed(), remote(10, ip, b)); // has a resync of its own
    inDefault().resyncStarted();
    say(inDefault(), {.ifIndex = 11, .address = ip, .macAddress = b, .dumped = true});
    auto dumped = remote(20, ip6, b);
    dumped.dumped = true;
    say(inDefault(), dumped);
    runUntilIdle();
    expectLocal(ip, a);
    EXPECT_FALSE(neighbors->swept("default"));
    inDefault().resyncFinished();
    runUntilIdle();
    EXPECT_TRUE(neighbors->swept("default"));
    expectLocal(ip, b); // the macvlan still has it
    expectAbsent("10.0.0.2");
    expectAbsent("10.0.0.3");
    expectRemote(ip6, b, routed20);
    expectRemote(ip, b, routed30);
    neighborDel(11, ip);
    expectAbsent(ip);
    EXPECT_EQ(arpEntries(), 0u);
    EXPECT_EQ(bindings(), 2u);
    EXPECT_NE(dump().find("marks=0 macvlanAddresses=0"), std::string::npos) << dump();
    EXPECT_NE(dump().find("entries[remote] 2\n"), std::string::npos) << dump();
}

TEST_F(NeighborProviderTest, anEventOutranksTheDumpThatItOvertook) {
    remoteIs(10, ip, a);
    inDefault().resyncStarted();
    neighborDel(10, ip);
    auto dumped = remote(10, ip, a);
    dumped.dumped = true;
    say(inDefault(), dumped);
    remoteIs(10, ip6, a);
    say(inDefault(), {.ifIndex = 10, .address = ip6, .macAddress = b, .dumped = true});
    inDefault().resyncFinished();
    runUntilIdle();
    expectAbsent(ip);
    expectRemote(ip6, a);
}

TEST_F(NeighborProviderTest, keepsWhatComesDuringTheSweep) {
    constexpr uint32_t hosts = 1000;
    auto address = [](uint32_t i) { return Zinc::IpGenAddr(0x0a000100 + i).toStrep(); };
    for (uint32_t i = 0; i < hosts; ++i) {
        remoteIs(10, address(i), a);
        neighborIs(20, address(i), a);
        say(inRed(), remote(10, address(i), a));
    }
    runUntilIdle();
    inDefault().resyncStarted();
    inDefault().resyncFinished(); // nothing is left of them
    turn();
    for (uint32_t i = 0; i < hosts; i += 2) {
        remoteIs(10, address(i), b);
        remoteIs(20, address(i), b); // was a local one
        neighborIs(10, address(hosts + i), b);
    }
    neighborDel(10, address(hosts));
    runUntilIdle();
    EXPECT_EQ(bindings(), size_t{hosts / 2 + hosts / 2 + hosts});
    EXPECT_EQ(arpEntries(), size_t{hosts / 2 - 1});
    EXPECT_TRUE(neighbors->swept("default"));
    EXPECT_NE(dump().find("marks=0"), std::string::npos);
}

TEST_F(NeighborProviderTest, aResyncThatBeginsOverCountsForNothing) {
    remoteIs(10, ip, a);
    inDefault().resyncStarted();
    remoteIs(10, ip6, a);
    inDefault().resyncFinished();
    turn();
    inDefault().resyncStarted(); // while the sweep is under way
    say(inDefault(), {.ifIndex = 10, .address = ip, .macAddress = b, .dumped = true});
    runUntilIdle();
    expectRemote(ip6, a);
    inDefault().resyncFinished();
    runUntilIdle();
    expectLocal(ip, b);
    expectAbsent(ip6);
    EXPECT_TRUE(neighbors->swept("default"));
}

TEST_F(NeighborProviderTest, entriesGoWithTheirDevice) {
    neighborIs(10, ip, a);
    remoteIs(10, ip6, b);
    neighborIs(11, "10.0.0.2", a);
    neighborIs(20, ip, a);
    say(inRed(), remote(10, ip, b));
    runUntilIdle();
    topology->routedDeviceDel({"default", 11});
    runUntilIdle();
    expectAbsent("10.0.0.2");
    expectLocal(ip, a);
    topology->routedDeviceDel({"default", 10});
    runUntilIdle();
    expectAbsent(ip);
    expectAbsent(ip6);
    expectLocal(ip, a, false, ArpSource::kernel, routed20);
    expectRemote(ip, b, routed30);
    EXPECT_TRUE(resyncs.empty()); // there is nothing to ask for
    neighbors->consumerDel("red");
    topology->routedDeviceDel({"red", 10});
    runUntilIdle();
    EXPECT_EQ(bindings(), 0u);
    EXPECT_EQ(arpEntries(), 1u);
}

TEST_F(NeighborProviderTest, asksForADumpWhenADeviceComesOrChanges) {
    neighborIs(10, ip, a);
    RoutedDevice moved = routed10;
    moved.vrfId = Vrf::VrfId(2);
    topology->routedDeviceIs({"default", 10}, moved);
    EXPECT_EQ(resyncs, std::vector<std::string>{"default"});
    runUntilIdle();
    EXPECT_EQ(arpEntries(), 0u); // nobody of that name is in VRF 1
    inDefault().resyncStarted();
    say(inDefault(), {.ifIndex = 10, .address = ip, .macAddress = a, .dumped = true});
    inDefault().resyncFinished();
    runUntilIdle();
    EXPECT_TRUE(arpEntry(moved, ip));
    EXPECT_EQ(arpEntries(), 1u);
    topology->routedDeviceIs({"blue", 10}, {VlanId(40), Zinc::IntfId("Vlan40"), Vrf::VrfId(9)});
    topology->routedDeviceIs({"red", 11}, {VlanId(40), Zinc::IntfId("Vlan40"), Vrf::VrfId(7)});
    EXPECT_EQ(resyncs, (std::vector<std::string>{"default", "red"})); // none listens in "blue"
    runUntilIdle();
}

TEST_F(NeighborProviderTest, aConfiguredBindingStaysAsItIs) {
    ArpSuppression::RemoteBinding file{{VlanId(10), Zinc::IpGenAddr(ip)}, Zinc::EthAddr(a), 1, 1};
    ArpSuppression::RemoteBinding elsewhere{
        {VlanId(99), Zinc::IpGenAddr(ip)}, Zinc::EthAddr(a), 0, 0};
    configured->keysAre({file.key, elsewhere.key});
    state().remoteBindingConfig->remoteBindingIs(file);
    state().remoteBindingConfig->remoteBindingIs(elsewhere); // of a VLAN that is not routed
    auto expectFile = [&] {
        runUntilIdle();
        EXPECT_EQ(binding(10, ip), file);
        EXPECT_EQ(binding(99, ip), elsewhere);
    };
    remoteIs(10, ip, b);
    expectFile();
    EXPECT_FALSE(arpEntry(routed10, ip));
    neighborIs(11, ip, b);
    expectFile();
    EXPECT_TRUE(arpEntry(routed10, ip));
    neighborDel(11, ip);
    neighborDel(10, ip);
    expectFile();
    EXPECT_FALSE(arpEntry(routed10, ip));
    inDefault().resyncStarted();
    inDefault().resyncFinished();
    expectFile();
    fdbIs(2, b);
    topology->bridgePortDel(2); // all flags are looked at
    expectFile();
    topology->routedDeviceDel({"default", 10});
    expectFile();
    EXPECT_TRUE(resyncs.empty());

    // When the file says no more, the kernel is asked.
    configured->keysAre({elsewhere.key});
    EXPECT_EQ(resyncs, std::vector<std::string>{"default"}); // by its macvlan
    runUntilIdle();
}

TEST_F(NeighborProviderTest, aVlanMovesToAnotherNamespace) {
    neighborIs(20, ip, a);
    remoteIs(20, ip6, b);
    topology->routedDeviceDel({"default", 20});
    topology->routedDeviceIs({"red", 12}, {VlanId(20), Zinc::IntfId("Vlan20"), Vrf::VrfId(7)});
    EXPECT_EQ(resyncs, std::vector<std::string>{"red"});
    runUntilIdle();
    EXPECT_EQ(arpEntries(), 0u);
    inRed().resyncStarted();
    inRed().resyncFinished();
    runUntilIdle();
    EXPECT_EQ(bindings(), 0u);
}

} // namespace
} // namespace Linux
