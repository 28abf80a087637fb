// The input configuration in the neighbour tables of the real kernel, and back.

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Linux/KernelSwitch.h"
#include "Testing/ChildProcess.h"
#include "Testing/NamedNetNs.h"
#include "Testing/VethPort.h"
#include "tests/netns/Kernel.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace Netns {
namespace {

using Arp::InputConfigKey;
using Arp::QuickRefresh;
using Bridging::EntryType;
using Bridging::VlanId;
using Counter = Linux::NeighborCounter;
using Outcome = Linux::NeighborOutcome;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

constexpr auto own = Arp::ArpSource::arpSuppression;

/// VLAN 10 with the bridge Vlan10, its port et1 and the tunnel vx10, 10.0.0.254/16 and
/// 2001:db8::ff/64; VLAN 30 with Vlan30 in the namespace of VRF red.
class NeighborWriterTest : public LiveKernelFixture {
  protected:
    NeighborWriterTest() {
        ip("link add Vlan10 address 02:00:00:00:0b:0b type bridge");
        ip("link set Vlan10 up");
        ip("addr add 10.0.0.254/16 dev Vlan10");
        ip("addr add 2001:db8::ff/64 dev Vlan10 nodad");
        ip("link add vx10 type vxlan id 10 dstport 4789 local 192.0.2.1");
        ip("link set vx10 master Vlan10");
        ip("link set vx10 up");
        port_ = std::make_unique<Testing::VethPort>("et1");
        ip("link set et1 master Vlan10");
        red_ = std::make_unique<Testing::NamedNetNs>("red");
        ip("link add br30 type bridge");
        ip("link add r30 type veth peer name Vlan30 netns red");
        ip("link set r30 master br30 up");
        red_->ip({"link", "set", "Vlan30", "up"});
        configuration_.vrfs = {{"default", Vrf::VrfId(1), "default"},
                               {"red", Vrf::VrfId(7), "red"}};
        configuration_.bridges[VlanId(30)] = "br30";
    }
    ~NeighborWriterTest() override {
        stop();
        port_.reset();
    }

    void start() {
        switch_ = Vela::make<Linux::KernelSwitch>(live().scheduler(), state(), configuration_);
        ASSERT_TRUE(until([this] { return switch_->complete(); }));
        ASSERT_TRUE(settled());
    }
    void stop() {
        if (switch_) {
            switch_->destroy();
            switch_.reset();
        }
    }
    bool until(const std::function<bool()>& condition) { return live().turnUntil(condition); }
    /// The kernel has been told all, and has told all.
    bool settled() {
        return until([this] { return writer().idle(); }) && live().turnUntilIdle() &&
               until([this] { return switch_->synchronized() && writer().idle(); });
    }

    Linux::NeighborWriter& writer() { return switch_->neighborWriter(); }
    uint64_t count(Counter counter) { return writer().counters()[counter]; }
    static InputConfigKey key(const std::string& address, const char* interface = "Vlan10") {
        return {IpGenAddr(address), *interface ? IntfId(interface) : IntfId()};
    }
    Outcome outcome(const std::string& address) {
        auto view = writer().view("default", key(address));
        return view ? view->outcome : Outcome::pending;
    }
    Vela::Ptr<Arp::InputConfigVrf> vrf(const char* name = "default") {
        return state().arpInputConfig->vrfIs(name);
    }
    void permanentIs(const std::string& address, int last) {
        vrf()->afEntryPermanentIs(key(address), EthAddr(mac(last)), own);
    }
    void dynamicIs(const std::string& address, int last,
                   QuickRefresh refresh = QuickRefresh::none) {
        vrf()->afEntryDynamicIs(key(address), EthAddr(mac(last)), own, refresh);
    }
    void del(const std::string& address) { vrf()->afEntryDel(key(address)); }
    std::optional<Arp::Table::ArpEntry> arpEntry(const std::string& address) {
        return state().arpStatus->arpEntryCollection().find(
            {Vrf::VrfId(1), IntfId("Vlan10"), IpGenAddr(address)});
    }

    static std::string mac(int last) {
        return EthAddr(EthAddr::Bytes{2, 0, 0, 0, 0, static_cast<uint8_t>(last)}).toStrep();
    }
    static std::string output(std::vector<std::string> arguments) {
        Testing::ChildProcess child("/usr/bin/env", arguments);
        EXPECT_EQ(child.status(), 0) << child.errors();
        return child.output();
    }
    /// What the kernel says of an address: "lladdr 02:… PERMANENT proto 110"; empty if nothing.
    static std::string held(const std::string& address, const std::string& device = "Vlan10",
                            const std::string& netNs = "") {
        std::vector<std::string> words{"ip"};
        if (!netNs.empty()) {
            words.insert(words.end(), {"-n", netNs});
        }
        words.insert(words.end(), {"neigh", "show", "to", address, "dev", device, "nud", "all"});
        std::string text = output(words);
        text.erase(text.find_last_not_of(" \n") + 1);
        return text.empty() ? text : text.substr(text.find(' ') + 1);
    }
    static std::string permanent(int last) {
        return "lladdr " + mac(last) + " PERMANENT proto 110";
    }
    /// A host on et1 speaks.
    void hostSpeaks(uint8_t last) {
        std::vector<uint8_t> frame(60, 0);
        std::fill_n(frame.begin(), 6, 0xff);
        frame[6] = 2;
        frame[11] = last;
        frame[12] = 0x88;
        frame[13] = 0xb5;
        port_->inject(frame);
        Bridging::HostKey host{Bridging::Fid(10), EthAddr(mac(last))};
        ASSERT_TRUE(until([&] {
            return state().bridgingStatus->quarryFdbStatus(host).entryType ==
                   EntryType::learnedDynamic;
        }));
    }
    /// ARP requests to a host that have left through et1 since the last call.
    size_t probes(int last) {
        size_t count = 0;
        EthAddr::Bytes to = EthAddr(mac(last)).bytes();
        for (const auto& frame : port_->sent()) {
            count += frame.size() >= 42 && frame[12] == 8 && frame[13] == 6 && frame[21] == 1 &&
                     std::equal(to.begin(), to.end(), frame.begin());
        }
        return count;
    }

    Linux::LinuxConfiguration configuration_;
    std::unique_ptr<Testing::VethPort> port_;
    std::unique_ptr<Testing::NamedNetNs> red_;
    Vela::Ptr<Linux::KernelSwitch> switch_;
};

TEST_F(NeighborWriterTest, permanentEntriesInTheNamespacesOfTheirVrfs) {
    start();
    permanentIs("10.0.0.2", 2);
    vrf()->afEntryPermanentIs(key("2001:db8::2", ""), EthAddr(mac(2)), own);
    vrf()->afEntryPermanentIs(key("2001:db9::2", ""), EthAddr(mac(2)), own);
    vrf()->afEntryPermanentIs(key("fe80::2"), EthAddr(mac(2)), own);
    vrf("red")->afEntryPermanentIs(key("10.0.0.2", "Vlan30"), EthAddr(mac(3)), own);
    ASSERT_TRUE(settled());
    EXPECT_EQ(held("10.0.0.2"), permanent(2));
    EXPECT_EQ(held("2001:db8::2"), permanent(2));
    EXPECT_EQ(held("2001:db9::2"), "");
    EXPECT_EQ(held("fe80::2"), permanent(2));
    EXPECT_EQ(held("10.0.0.2", "Vlan30", "red"), permanent(3));
    EXPECT_EQ(count(Counter::noConnectedVlan), 1u);
    ASSERT_TRUE(until([&] { return arpEntry("10.0.0.2").has_value(); }));
    EXPECT_TRUE(arpEntry("10.0.0.2")->isStatic);
    EXPECT_EQ(arpEntry("10.0.0.2")->source, own);

    permanentIs("10.0.0.2", 4);
    state().arpInputConfig->vrfDel("red");
    ASSERT_TRUE(settled());
    EXPECT_EQ(held("10.0.0.2"), permanent(4));
    EXPECT_EQ(held("10.0.0.2", "Vlan30", "red"), "");
    state().arpInputConfig->vrfDelAll();
    ASSERT_TRUE(settled());
    for (const char* address : {"10.0.0.2", "2001:db8::2", "fe80::2"}) {
        EXPECT_EQ(held(address), "");
    }
    EXPECT_EQ(count(Counter::removed), 4u);
    EXPECT_EQ(count(Counter::refused) + count(Counter::unanswered), 0u);
}

TEST_F(NeighborWriterTest, whatAnEarlierRunLeftIsReadBackBeforeTheTablesAreComplete) {
    start();
    permanentIs("10.0.0.2", 2);
    permanentIs("10.0.0.3", 3);
    vrf()->afEntryPermanentIs(key("2001:db8::2", ""), EthAddr(mac(2)), own);
    vrf("red")->afEntryPermanentIs(key("10.0.0.2", "Vlan30"), EthAddr(mac(3)), own);
    dynamicIs("10.0.0.4", 4);
    ip("neigh add 10.0.0.5 lladdr " + mac(5) + " dev Vlan10 nud permanent proto static");
    ASSERT_TRUE(settled());
    stop();
    state().arpInputConfig->vrfDelAll(); // nobody carries this out: as if all had died
    EXPECT_EQ(held("10.0.0.2"), permanent(2));

    bool readBackFirst = false;
    auto complete = state().arpStatus->completeAttribute().react(nullptr, [&] {
        auto config = state().arpInputConfig->vrf("default");
        readBackFirst = config && config->ipv4Entries() == 2 && config->ipv6Entries() == 1;
    });
    state().arpStatus->completeIs(false);
    start();
    EXPECT_TRUE(readBackFirst);
    EXPECT_EQ(count(Counter::readBack), 4u);
    EXPECT_EQ(vrf()->ipv4Entries(), 2u);
    ASSERT_TRUE(vrf()->afEntry(key("2001:db8::2", "")));
    EXPECT_TRUE(vrf("red")->afEntry(key("10.0.0.2", "Vlan30")));
    // The agent confirms one and withdraws the other.
    permanentIs("10.0.0.2", 2);
    del("10.0.0.3");
    ASSERT_TRUE(settled());
    EXPECT_EQ(held("10.0.0.2"), permanent(2));
    EXPECT_EQ(held("10.0.0.3"), "");
    EXPECT_NE(held("10.0.0.4"), "");
    EXPECT_NE(held("10.0.0.5"), "");
    EXPECT_EQ(count(Counter::added) + count(Counter::replaced), 0u);
    EXPECT_EQ(count(Counter::removed), 1u);
}

/// An agent comes where an earlier one has left entries, and is not to run.
class WithdrawnAtTheStartTest : public NeighborWriterTest {
  protected:
    WithdrawnAtTheStartTest() {
        start();
        permanentIs("10.0.0.2", 2);
        vrf()->afEntryPermanentIs(key("2001:db8::2", ""), EthAddr(mac(2)), own);
        vrf("red")->afEntryPermanentIs(key("10.0.0.2", "Vlan30"), EthAddr(mac(3)), own);
        EXPECT_TRUE(settled());
        stop();
        state().arpInputConfig->vrfDelAll(); // nobody carries this out: as if all had died
        EXPECT_EQ(held("10.0.0.2"), permanent(2));
    }

    void expectWithdrawal() {
        switch_ = Vela::make<Linux::KernelSwitch>(live().scheduler(), state(), configuration_);
        auto agent = ArpSuppression::arpSuppressionAgentFactory("ArpSuppression");
        agent->platformIs({live().scheduler(), state().entityManager, false});
        agent->doInit();
        EXPECT_TRUE(until([&] { return switch_->complete() && agent->rootSm(); }));
        EXPECT_TRUE(settled());
        EXPECT_EQ(count(Counter::readBack), 3u);
        EXPECT_EQ(count(Counter::removed), 3u);
        EXPECT_EQ(held("10.0.0.2"), "");
        EXPECT_EQ(held("2001:db8::2"), "");
        EXPECT_EQ(held("10.0.0.2", "Vlan30", "red"), "");
        EXPECT_EQ(state().arpInputConfig->vrfs(), 0u);
        EXPECT_FALSE(state().arpSuppressionStatus->runnable());
        agent->destroy();
    }
};

TEST_F(WithdrawnAtTheStartTest, whereTheEarlierOneDied) {
    state().arpSuppressionStatus->runnableIs(true);
    expectWithdrawal();
}

TEST_F(WithdrawnAtTheStartTest, whereTheEarlierOneWasKilledAtItOrItsStatusIsLost) {
    ASSERT_FALSE(state().arpSuppressionStatus->runnable());
    expectWithdrawal();
}

TEST_F(NeighborWriterTest, aSeedStaysTheKernelsWhateverBecomesOfTheEntry) {
    start();
    dynamicIs("10.0.0.2", 2);
    ASSERT_TRUE(settled());
    EXPECT_EQ(held("10.0.0.2"), "lladdr " + mac(2) + " REACHABLE proto kernel");
    ASSERT_TRUE(until([&] { return arpEntry("10.0.0.2").has_value(); }));
    EXPECT_FALSE(arpEntry("10.0.0.2")->isStatic);
    del("10.0.0.2");
    ASSERT_TRUE(settled());
    EXPECT_TRUE(arpEntry("10.0.0.2"));
    EXPECT_NE(held("10.0.0.2"), "");
    EXPECT_EQ(count(Counter::requests), 1u);
}

TEST_F(NeighborWriterTest, entriesOfOthersStand) {
    const std::string remote = " dev Vlan10 nud noarp extern_learn proto 11";
    start();
    ip("neigh add 10.0.0.2 lladdr " + mac(9) + " dev Vlan10 nud reachable");
    ip("neigh add 10.0.0.3 lladdr " + mac(9) + remote);
    ip("neigh add 10.0.0.4 lladdr " + mac(9) + " dev Vlan10 nud permanent proto static");
    for (int last : {2, 3, 4}) {
        permanentIs("10.0.0." + std::to_string(last), last);
    }
    ASSERT_TRUE(settled());
    EXPECT_EQ(held("10.0.0.2"), "lladdr " + mac(9) + " REACHABLE");
    EXPECT_EQ(held("10.0.0.3"), "lladdr " + mac(9) + " extern_learn NOARP proto zebra");
    EXPECT_EQ(held("10.0.0.4"), "lladdr " + mac(9) + " PERMANENT proto static");
    EXPECT_EQ(outcome("10.0.0.2"), Outcome::stands);
    EXPECT_EQ(outcome("10.0.0.3"), Outcome::satisfied);
    EXPECT_EQ(outcome("10.0.0.4"), Outcome::stands);
    EXPECT_EQ(count(Counter::exists), 3u);

    // The control plane takes an entry of the agent over, and is not contradicted.
    permanentIs("10.0.0.5", 5);
    ASSERT_TRUE(settled());
    ip("neigh replace 10.0.0.5 lladdr " + mac(9) + remote);
    EXPECT_TRUE(until([&] { return outcome("10.0.0.5") == Outcome::satisfied; }));
    EXPECT_EQ(held("10.0.0.5"), "lladdr " + mac(9) + " extern_learn NOARP proto zebra");
    // An operator does, and the kernel keeps the tag.
    permanentIs("10.0.0.6", 6);
    ASSERT_TRUE(settled());
    ip("neigh replace 10.0.0.6 lladdr " + mac(9) + " dev Vlan10 nud permanent");
    EXPECT_TRUE(until([&] { return outcome("10.0.0.6") == Outcome::stands; }));
    for (int last : {2, 3, 4, 5, 6}) {
        del("10.0.0." + std::to_string(last));
    }
    ASSERT_TRUE(settled());
    for (int last : {2, 3, 4, 5, 6}) {
        EXPECT_NE(held("10.0.0." + std::to_string(last)), "");
    }
    EXPECT_EQ(count(Counter::removed), 0u);

    // What stood in the way goes.
    permanentIs("10.0.0.2", 2);
    permanentIs("10.0.0.3", 3);
    ASSERT_TRUE(settled());
    ip("neigh del 10.0.0.2 dev Vlan10");
    ip("neigh del 10.0.0.3 dev Vlan10");
    EXPECT_TRUE(until([&] {
        return outcome("10.0.0.2") == Outcome::installed &&
               outcome("10.0.0.3") == Outcome::installed;
    }));
    EXPECT_EQ(held("10.0.0.2"), permanent(2));
    EXPECT_EQ(held("10.0.0.3"), permanent(3));
}

TEST_F(NeighborWriterTest, onlyAHostOnALocalPortIsProbedAtOnce) {
    start();
    hostSpeaks(2);
    permanentIs("10.0.0.2", 2);
    permanentIs("10.0.0.3", 3);
    ASSERT_TRUE(settled());
    EXPECT_EQ(probes(2) + probes(3), 0u);
    dynamicIs("10.0.0.2", 2, QuickRefresh::immediate);
    dynamicIs("10.0.0.3", 3, QuickRefresh::immediate);
    size_t seen = 0;
    ASSERT_TRUE(until([&] { return (seen += probes(2)) > 0; }));
    EXPECT_EQ(held("10.0.0.3"), "lladdr " + mac(3) + " STALE proto kernel");
    EXPECT_EQ(count(Counter::refreshSent), 1u);
    EXPECT_EQ(count(Counter::refreshSkipped), 1u);
    // Nobody answers: the kernel gives the host up, and nobody puts it back.
    ASSERT_TRUE(until([&] { return !arpEntry("10.0.0.2"); }));
    ASSERT_TRUE(settled());
    EXPECT_EQ(count(Counter::requests), 6u);
    // A failed entry is no obstacle.
    permanentIs("10.0.0.2", 2);
    ASSERT_TRUE(settled());
    EXPECT_EQ(held("10.0.0.2"), permanent(2));
}

TEST_F(NeighborWriterTest, entriesReturnAfterTheirDeviceAndAfterASingleLoss) {
    start();
    permanentIs("10.0.0.2", 2);
    ASSERT_TRUE(settled());
    ip("neigh del 10.0.0.2 dev Vlan10");
    EXPECT_TRUE(until([&] { return count(Counter::lost) == 1; }));
    EXPECT_EQ(held("10.0.0.2"), permanent(2));

    red_->ip({"link", "del", "Vlan30"});
    vrf("red")->afEntryPermanentIs(key("10.0.0.2", "Vlan30"), EthAddr(mac(3)), own);
    ASSERT_TRUE(until([&] { return count(Counter::interfaceGone) >= 1; }));
    ip("link add r30 type veth peer name Vlan30 netns red");
    ip("link set r30 master br30 up");
    red_->ip({"link", "set", "Vlan30", "up"});
    EXPECT_TRUE(until([&] { return held("10.0.0.2", "Vlan30", "red") == permanent(3); }));
}

TEST_F(NeighborWriterTest, aHundredThousandEntriesComeAndGo) {
    start();
    // One item a slice takes its time, and so does a look at every access to memory.
#ifdef __SANITIZE_ADDRESS__
    const uint32_t hosts = 10'000;
#else
    const uint32_t hosts = std::getenv("VELA_ALWAYS_YIELD") ? 10'000 : 100'000;
#endif
    auto config = vrf();
    for (uint32_t i = 0; i < hosts; ++i) {
        config->afEntryPermanentIs({IpGenAddr(0x0a010000u + i), IntfId("Vlan10")}, EthAddr(mac(2)),
                                   own);
    }
    auto allSettled = [&](const std::function<bool()>& condition) {
        return until([&] { return writer().idle() && switch_->synchronized() && condition(); });
    };
    const auto& table = state().arpStatus->arpEntryCollection();
    ASSERT_TRUE(allSettled([&] { return table.count() == hosts; }));
    EXPECT_EQ(count(Counter::added), uint64_t{hosts});
    EXPECT_EQ(held("10.1.0.0"), permanent(2));
    EXPECT_EQ(held(IpGenAddr(0x0a010000u + hosts - 1).toStrep()), permanent(2));
    state().arpInputConfig->vrfDelAll();
    ASSERT_TRUE(allSettled([&] { return table.count() == 0; }));
    EXPECT_EQ(output({"ip", "neigh", "show", "dev", "Vlan10", "nud", "permanent"}), "");
    EXPECT_EQ(count(Counter::refused) + count(Counter::leftAlone), 0u);
    EXPECT_EQ(count(Counter::unanswered), 0u) << "a batch's answers fit the socket's queue";
}

} // namespace
} // namespace Netns
