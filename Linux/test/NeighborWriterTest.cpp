#include "Linux/NeighborWriter.h"

#include "Linux/test/FakeKernel.h"
#include "Linux/test/ProviderFixture.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <set>

namespace Linux {
namespace {

using Arp::ArpSource;
using Arp::InputConfigKey;
using Arp::QuickRefresh;
using Counter = NeighborCounter;
using Held = FakeKernel::Held;
using Outcome = NeighborOutcome;
using Verb = NeighborRequest::Verb;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

constexpr auto own = ArpSource::arpSuppression;
constexpr uint8_t tag = 110;

/// The writer between an input configuration, which the test writes as the agent does, and kernels
/// whose announcements the providers turn into tables again: the loops are closed.
class NeighborWriterTest : public ProviderFixture {
  protected:
    static inline const std::string ip2 = "10.0.0.2";
    static inline const EthAddr a{"02:00:00:00:00:0a"};
    static inline const EthAddr b{"02:00:00:00:00:0b"};
    static inline const EthAddr c{"02:00:00:00:00:0c"};

    NeighborWriterTest() {
        writer = Vela::make<NeighborWriter>(
            NeighborWriter::Inputs{.scheduler = scheduler(),
                                   .inputConfig = state().arpInputConfig,
                                   .topology = topology,
                                   .ip6Status = state().ip6Status,
                                   .arpStatus = state().arpStatus,
                                   .remoteBindingConfig = state().remoteBindingConfig,
                                   .configuredBindings = configured,
                                   .bridgingConfig = state().bridgingConfig,
                                   .bridgingStatus = state().bridgingStatus});
        writer->vrfsAre(vrfs());
        writer->netNsIs("default", kernel.channel());
        writer->netNsIs("red", redKernel.channel());
    }
    ~NeighborWriterTest() override { writer->destroy(); }

    static std::vector<VrfSetting> vrfs() {
        return {{"default", Vrf::VrfId(1), "default"}, {"red", Vrf::VrfId(7), "red"}};
    }
    void start() {
        announce();
        writer->start();
        settle();
        ASSERT_TRUE(writer->started());
        kernel.requests.clear();
    }
    /// The kernels' announcements arrive.
    void announce() {
        for (const NeighborSpecimen& specimen : kernel.announcements()) {
            say(inDefault(), specimen);
        }
        for (const NeighborSpecimen& specimen : redKernel.announcements()) {
            say(inRed(), specimen);
        }
    }
    void settle() {
        for (int round = 0; round < 3; ++round) {
            runUntilIdle();
            announce();
        }
        runUntilIdle();
        EXPECT_TRUE(writer->idle());
    }
    /// The same, and time passes.
    void settleFor(double seconds) {
        for (double passed = 0; passed < seconds; passed += 0.5) {
            runFor(0.5);
            announce();
            runUntilIdle();
        }
    }

    static InputConfigKey key(const std::string& address, const char* interface = "Vlan10") {
        return {IpGenAddr(address), *interface ? IntfId(interface) : IntfId()};
    }
    Vela::Ptr<Arp::InputConfigVrf> vrf(const char* name = "default") {
        return state().arpInputConfig->vrfIs(name);
    }
    void permanentIs(const std::string& address, const EthAddr& mac) {
        vrf()->afEntryPermanentIs(key(address), mac, own);
    }
    void dynamicIs(const std::string& address, const EthAddr& mac,
                   QuickRefresh refresh = QuickRefresh::none) {
        vrf()->afEntryDynamicIs(key(address), mac, own, refresh);
    }
    void del(const std::string& address) { vrf()->afEntryDel(key(address)); }
    Outcome outcome(const std::string& address, const char* interface = "Vlan10") {
        auto view = writer->view("default", key(address, interface));
        EXPECT_TRUE(view) << address;
        return view ? view->outcome : Outcome::pending;
    }
    uint64_t count(Counter counter) const { return writer->counters()[counter]; }

    static Held permanent(const EthAddr& mac, uint8_t protocol = tag) {
        return {mac, NUD_PERMANENT, 0, protocol};
    }
    static Held learnt(const EthAddr& mac) { return {mac, NUD_REACHABLE, 0, 0}; }
    static Held controlPlane(const EthAddr& mac) { return {mac, NUD_NOARP, NTF_EXT_LEARNED, 11}; }
    static Held seed(const EthAddr& mac, uint16_t state = NUD_REACHABLE) {
        return {mac, state, 0, 2};
    }

    FakeKernel kernel;
    FakeKernel redKernel;
    Vela::Ptr<NeighborWriter> writer;
};

TEST_F(NeighborWriterTest, everyCounterAndOutcomeHasAName) {
    std::set<std::string> names;
    for (size_t number = 0; number < neighborCounters; ++number) {
        names.insert(toString(static_cast<Counter>(number)));
    }
    EXPECT_EQ(names.size(), neighborCounters);
    EXPECT_STREQ(toString(Counter::requests), "requests");
    EXPECT_STREQ(toString(Counter::refreshSkipped), "refreshSkipped");
    EXPECT_STREQ(toString(Counter::contested), "contested");
    for (int number = 0; number <= static_cast<int>(Outcome::noDevice); ++number) {
        names.insert(toString(static_cast<Outcome>(number)));
        NeighborMarks marks{static_cast<Outcome>(number), 2};
        EXPECT_EQ(NeighborMarks::of(marks.bits()).outcome, marks.outcome);
        EXPECT_EQ(NeighborMarks::of(marks.bits()).losses, 2);
    }
    EXPECT_EQ(names.size(), neighborCounters + 9);
}

TEST_F(NeighborWriterTest, permanentEntriesAreInstalledChangedAndWithdrawn) {
    start();
    permanentIs(ip, a);
    vrf("red")->afEntryPermanentIs(key(ip, "Vlan30"), b, own);
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
    EXPECT_EQ(redKernel.held(10, ip), permanent(b));
    EXPECT_EQ(outcome(ip), Outcome::installed);
    EXPECT_EQ(arpEntry(routed10, ip)->source, own);
    EXPECT_EQ(kernel.requests.size(), 1u);

    permanentIs(ip, c);
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(c));
    EXPECT_EQ(count(Counter::replaced), 1u);
    del(ip);
    settle();
    EXPECT_EQ(kernel.count(), 0u);
    state().arpInputConfig->vrfDelAll();
    settle();
    EXPECT_EQ(redKernel.count(), 0u);
    EXPECT_EQ(count(Counter::added), 2u);
    EXPECT_EQ(count(Counter::removed), 2u);
    EXPECT_EQ(count(Counter::exists) + count(Counter::missing) + count(Counter::stood), 0u);
}

TEST_F(NeighborWriterTest, whatCarriesTheTagIsReadBackAndNothingElse) {
    state().ip6Status->intfIs(IntfId("Vlan10"), "default")->addrIs({IpGenAddr("2001:db8::9"), 64});
    kernel.heldIs(10, ip, permanent(a));
    kernel.heldIs(10, ip6, permanent(a));
    kernel.heldIs(10, "fe80::1", permanent(a));
    kernel.heldIs(10, ip2, permanent(b, 4));
    kernel.heldIs(10, "10.0.0.3", {b, NUD_REACHABLE, 0, tag});
    kernel.heldIs(10, "10.0.0.4", controlPlane(b));
    kernel.heldIs(10, "10.0.0.5", {b, NUD_NOARP, 0, tag});
    redKernel.heldIs(10, ip, permanent(c));
    announce();
    EXPECT_EQ(state().arpInputConfig->vrfs(), 0u);
    int announced = 0;
    auto started = writer->startedAttribute().react(nullptr, [&] {
        ++announced;
        EXPECT_EQ(state().arpInputConfig->vrf("default")->ipv4Entries(), 1u);
    });
    start();
    EXPECT_EQ(announced, 1);
    auto config = state().arpInputConfig->vrf("default");
    ASSERT_TRUE(config);
    EXPECT_EQ(config->ipv4Entries(), 1u);
    EXPECT_EQ(config->ipv6Entries(), 2u);
    for (const auto& k : {key(ip), key(ip6, ""), key("fe80::1")}) {
        ASSERT_TRUE(config->afEntry(k)) << k;
        EXPECT_EQ(*config->afEntry(k),
                  Arp::InputConfigEntry(a, Arp::ArpType::ArpTypeId::permanent, own));
    }
    EXPECT_TRUE(state().arpInputConfig->vrf("red")->afEntry(key(ip, "Vlan30")));
    EXPECT_EQ(count(Counter::readBack), 4u);
    EXPECT_EQ(kernel.changesAsked(), 0u);

    // Confirmed, it stays without being touched; what is not is withdrawn.
    permanentIs(ip, a);
    config->afEntryDel(key(ip6, ""));
    config->afEntryDel(key("fe80::1"));
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
    EXPECT_EQ(kernel.count(), 5u);
    EXPECT_FALSE(kernel.held(10, ip6));
    EXPECT_EQ(kernel.changesAsked(), 2u);
}

TEST_F(NeighborWriterTest, beforeTheStartNothingIsWritten) {
    permanentIs(ip, a);
    runUntilIdle();
    EXPECT_TRUE(kernel.requests.empty());
    EXPECT_FALSE(writer->idle());
    writer->start();
    writer->start();
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
}

TEST_F(NeighborWriterTest, aDynamicEntryIsASeedThatNothingIsHeardOfAgain) {
    start();
    dynamicIs(ip, a);
    settle();
    EXPECT_EQ(kernel.held(10, ip), seed(a));
    EXPECT_EQ(arpEntry(routed10, ip)->source, ArpSource::kernel);
    EXPECT_FALSE(arpEntry(routed10, ip)->isStatic);
    EXPECT_EQ(outcome(ip), Outcome::seeded);
    // The agent sees a learnt entry and withdraws its own: the kernel keeps it.
    del(ip);
    settle();
    EXPECT_EQ(kernel.held(10, ip), seed(a));
    EXPECT_EQ(kernel.requests.size(), 1u);

    // It has had its one time: what the kernel drops is not put back.
    dynamicIs(ip2, b);
    settle();
    kernel.heldDel(10, ip2);
    settle();
    settleFor(60);
    EXPECT_FALSE(kernel.held(10, ip2));
    EXPECT_EQ(kernel.requests.size(), 2u);
    EXPECT_EQ(count(Counter::seeded), 2u);
}

TEST_F(NeighborWriterTest, onlyTheStateAtTheEndOfATurnCounts) {
    start();
    permanentIs(ip, a);
    settle();
    kernel.requests.clear();
    del(ip); // as when the interface of a VLAN changes to and fro
    permanentIs(ip, b);
    permanentIs(ip, a);
    permanentIs(ip2, a);
    del(ip2);
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
    EXPECT_EQ(kernel.changesAsked(), 0u);

    // The first MAC address is what the kernel has, whatever came between.
    permanentIs(ip, b);
    dynamicIs(ip, c);
    permanentIs(ip, c);
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(c));
    permanentIs(ip, b);
    del(ip);
    settle();
    EXPECT_EQ(kernel.count(), 0u);
    EXPECT_EQ(count(Counter::leftAlone), 0u);
}

TEST_F(NeighborWriterTest, whatTheKernelLearntStandsAsLongAsItIsThere) {
    start();
    kernel.heldIs(10, ip, learnt(b));
    permanentIs(ip, a);
    dynamicIs(ip2, a);
    kernel.heldIs(10, ip2, learnt(b));
    settle();
    EXPECT_EQ(kernel.held(10, ip), learnt(b));
    EXPECT_EQ(kernel.held(10, ip2), learnt(b));
    EXPECT_EQ(outcome(ip), Outcome::stands);
    EXPECT_EQ(outcome(ip2), Outcome::seeded);
    EXPECT_EQ(writer->view("default", key(ip))->held->macAddress, b);
    EXPECT_EQ(count(Counter::exists), 2u);
    EXPECT_EQ(count(Counter::stood), 2u);
    EXPECT_EQ(kernel.changesAsked(), 2u);

    kernel.heldIs(10, ip, {EthAddr(), NUD_FAILED, 0, 0});
    kernel.heldDel(10, ip2);
    settle();
    settleFor(2);
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
    EXPECT_FALSE(kernel.held(10, ip2));
    // Withdrawn while another's entry stands, nothing happens.
    kernel.heldIs(10, "10.0.0.3", permanent(b, 4));
    permanentIs("10.0.0.3", a);
    settle();
    del("10.0.0.3");
    settle();
    EXPECT_EQ(kernel.held(10, "10.0.0.3"), permanent(b, 4));
}

TEST_F(NeighborWriterTest, anAddressThatIsBeingResolvedIsLookedAtAgain) {
    start();
    kernel.heldIs(10, ip, {EthAddr(), NUD_INCOMPLETE, 0, 0});
    permanentIs(ip, a);
    settle();
    EXPECT_EQ(outcome(ip), Outcome::retry);
    kernel.heldIs(10, ip, {EthAddr(), NUD_FAILED, 0, 0});
    settleFor(2);
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
}

TEST_F(NeighborWriterTest, aControlPlanesEntrySatisfiesUntilItGoes) {
    start();
    kernel.heldIs(10, ip, controlPlane(a));
    permanentIs(ip, a);
    settle();
    EXPECT_EQ(kernel.held(10, ip), controlPlane(a));
    EXPECT_EQ(outcome(ip), Outcome::satisfied);
    EXPECT_TRUE(binding(10, ip));
    EXPECT_EQ(writer->view("default", key(ip))->controlPlane, a);
    del(ip);
    settle();
    EXPECT_EQ(kernel.held(10, ip), controlPlane(a));

    permanentIs(ip, a);
    settle();
    kernel.heldDel(10, ip);
    settle();
    EXPECT_FALSE(kernel.held(10, ip)); // the agent may have nothing to ask for soon
    settleFor(2);
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
    // It comes back and takes the entry over: nobody takes it away again.
    kernel.heldIs(10, ip, controlPlane(b));
    settle();
    settleFor(5);
    EXPECT_EQ(kernel.held(10, ip), controlPlane(b));
    EXPECT_EQ(outcome(ip), Outcome::satisfied);
    del(ip);
    settle();
    EXPECT_EQ(kernel.held(10, ip), controlPlane(b));
}

TEST_F(NeighborWriterTest, whatSomebodyElseMadeOfAnEntryIsLeftAlone) {
    start();
    permanentIs(ip, a);
    permanentIs(ip2, a);
    settle();
    // The kernel keeps the tag when an operator changes the MAC address.
    kernel.heldIs(10, ip, permanent(c));
    kernel.heldIs(10, ip2, permanent(c, 4));
    settle();
    settleFor(5);
    EXPECT_EQ(kernel.held(10, ip), permanent(c));
    EXPECT_EQ(kernel.held(10, ip2), permanent(c, 4));
    EXPECT_EQ(outcome(ip), Outcome::stands);
    del(ip);
    dynamicIs(ip2, b, QuickRefresh::immediate);
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(c));
    EXPECT_EQ(kernel.held(10, ip2), permanent(c, 4));

    // And when the writer has not even heard of it.
    permanentIs("10.0.0.3", a);
    settle();
    kernel.heldIs(10, "10.0.0.3", permanent(c));
    del("10.0.0.3");
    runUntilIdle();
    EXPECT_EQ(kernel.held(10, "10.0.0.3"), permanent(c));
    EXPECT_EQ(count(Counter::leftAlone), 1u);
}

TEST_F(NeighborWriterTest, aPermanentEntryTurnsDynamicWithoutItsTag) {
    start();
    fdbIs(1, a.toStrep());
    permanentIs(ip, a);
    permanentIs(ip2, b);
    settle();
    dynamicIs(ip, a, QuickRefresh::immediate);
    dynamicIs(ip2, b, QuickRefresh::immediate);
    settle();
    EXPECT_EQ(kernel.held(10, ip), seed(a, NUD_PROBE));
    EXPECT_EQ(kernel.held(10, ip2), seed(b, NUD_STALE)) << "nobody is probed behind the tunnel";
    EXPECT_EQ(count(Counter::refreshSent), 1u);
    EXPECT_EQ(count(Counter::refreshSkipped), 1u);
    EXPECT_EQ(count(Counter::refreshLimited), 0u);
    del(ip);
    del(ip2);
    settle();
    EXPECT_EQ(kernel.count(), 2u);
    EXPECT_EQ(count(Counter::removed), 0u);
}

TEST_F(NeighborWriterTest, aHostBehindTheTunnelOrUnknownIsNotSeededForARefresh) {
    start();
    fdbIs(3, a.toStrep(), NUD_REACHABLE, NTF_EXT_LEARNED);
    fdbIs(21, b.toStrep()); // local, but in another VLAN
    dynamicIs(ip, a, QuickRefresh::immediate);
    dynamicIs(ip2, b, QuickRefresh::immediate);
    settle();
    EXPECT_EQ(kernel.count(), 0u);
    EXPECT_EQ(count(Counter::refreshSkipped), 2u);
    EXPECT_EQ(kernel.changesAsked(), 0u);
    EXPECT_EQ(outcome(ip), Outcome::seeded);
}

TEST_F(NeighborWriterTest, refreshesAreLimited) {
    start();
    auto address = [](int i) {
        return IpGenAddr(0x0a000100u + static_cast<uint32_t>(i)).toStrep();
    };
    fdbIs(1, a.toStrep());
    for (int i = 0; i < 150; ++i) {
        dynamicIs(address(i), a, QuickRefresh::immediate);
    }
    settle();
    EXPECT_EQ(count(Counter::refreshSent), 100u);
    EXPECT_EQ(count(Counter::refreshLimited), 50u);
    EXPECT_EQ(kernel.count(), 150u);
    runFor(0.5);
    for (int i = 150; i < 250; ++i) {
        dynamicIs(address(i), a, QuickRefresh::immediate);
    }
    settle();
    EXPECT_EQ(count(Counter::refreshSent), 150u);
    EXPECT_EQ(count(Counter::refreshLimited), 100u);
}

TEST_F(NeighborWriterTest, bgpdRestartsAndAllBindingsReturn) {
    start();
    constexpr uint32_t hosts = 500;
    auto address = [](uint32_t i) { return IpGenAddr(0x0a000100u + i).toStrep(); };
    for (uint32_t i = 0; i < hosts; ++i) {
        // Half of them by the control plane, half by the agent alone.
        if (i % 2) {
            kernel.heldIs(10, address(i), controlPlane(a));
        }
        permanentIs(address(i), a);
    }
    settle();
    for (uint32_t i = 0; i < hosts; ++i) {
        kernel.heldDel(10, i % 2 ? address(i) : "10.9.9.9");
        dynamicIs(address(i), a, QuickRefresh::immediate);
    }
    settle();
    EXPECT_EQ(count(Counter::refreshSent), 0u);
    EXPECT_EQ(count(Counter::refreshSkipped), uint64_t{hosts});
    EXPECT_EQ(kernel.count(), hosts / 2) << "nothing comes to be that was not there";
    for (uint32_t i = 0; i < hosts; ++i) {
        kernel.heldIs(10, address(i), controlPlane(a));
        permanentIs(address(i), a);
    }
    settle();
    settleFor(5);
    for (uint32_t i = 0; i < hosts; ++i) {
        EXPECT_EQ(kernel.held(10, address(i)), controlPlane(a));
        EXPECT_EQ(outcome(address(i)), Outcome::satisfied);
    }
    EXPECT_EQ(bindings(), size_t{hosts});
}

TEST_F(NeighborWriterTest, theWriterDoesNotFightWhoKeepsDeletingAnEntry) {
    start();
    permanentIs(ip, a);
    permanentIs(ip2, a);
    settle();
    auto deleteAgainFor = [&](int seconds) {
        for (int i = 0; i < seconds; ++i) {
            kernel.heldDel(10, ip);
            settleFor(1);
        }
    };
    kernel.requests.clear();
    deleteAgainFor(120);
    EXPECT_EQ(count(Counter::lost), 3u);
    EXPECT_EQ(count(Counter::contested), 1u);
    EXPECT_EQ(outcome(ip), Outcome::contested);
    EXPECT_FALSE(kernel.held(10, ip));
    EXPECT_EQ(kernel.requests.size(), 3u);
    EXPECT_EQ(kernel.held(10, ip2), permanent(a));

    // Forgiven after a while, or when the agent wants something else.
    settleFor(NeighborWriter::forgiveSeconds);
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
    EXPECT_EQ(outcome(ip), Outcome::installed);
    deleteAgainFor(60);
    EXPECT_EQ(outcome(ip), Outcome::contested);
    permanentIs(ip, b);
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(b));
}

TEST_F(NeighborWriterTest, aFullTableIsTriedAgainLessAndLessOften) {
    start();
    kernel.mostEntries = 1;
    dynamicIs(ip, a);
    dynamicIs(ip2, a);
    permanentIs("10.0.0.3", a); // which the limit does not hold for
    settle();
    EXPECT_EQ(kernel.count(), 2u);
    EXPECT_EQ(count(Counter::tableOverflow), 1u);
    EXPECT_EQ(outcome("10.0.0.3"), Outcome::installed);
    const std::string refused = kernel.held(10, ip) ? ip2 : ip;
    EXPECT_EQ(outcome(refused), Outcome::retry);
    settleFor(60);
    uint64_t tries = count(Counter::tableOverflow);
    EXPECT_GE(tries, 5u);
    EXPECT_LE(tries, 10u);
    kernel.mostEntries = 2;
    settleFor(NeighborWriter::lastRetrySeconds + 1);
    EXPECT_EQ(kernel.held(10, refused), seed(a));
    settleFor(60);
    EXPECT_EQ(kernel.count(), 3u);
}

TEST_F(NeighborWriterTest, errorsAreCountedAndLostAnswersAskedForAgain) {
    start();
    std::vector<int> errors{NeighborAnswer::lost, EPERM, ENODEV};
    for (int error : errors) {
        kernel.failure = [&](const NeighborRequest&) { return error; };
        permanentIs(ip, a);
        settle();
        EXPECT_EQ(outcome(ip), Outcome::retry);
        kernel.failure = {};
        settleFor(NeighborWriter::lastRetrySeconds + 1);
        EXPECT_EQ(kernel.held(10, ip), permanent(a));
        kernel.failure = [&](const NeighborRequest&) { return error; };
        del(ip); // what could not be withdrawn is withdrawn later
        settle();
        EXPECT_EQ(kernel.count(), 1u);
        kernel.failure = {};
        settleFor(NeighborWriter::lastRetrySeconds + 1);
        EXPECT_EQ(kernel.count(), 0u);
    }
    EXPECT_EQ(count(Counter::unanswered), 2u);
    EXPECT_EQ(count(Counter::refused), 2u);
    EXPECT_EQ(count(Counter::interfaceGone), 2u);
}

TEST_F(NeighborWriterTest, whatWasDoneWithoutAnAnswerIsNotDoneAgain) {
    start();
    permanentIs(ip2, a);
    settle();
    kernel.mute = true;
    permanentIs(ip, a);
    del(ip2); // asks first, so nothing has been done
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
    EXPECT_EQ(outcome(ip), Outcome::retry);
    EXPECT_EQ(count(Counter::unanswered), 2u);
    kernel.mute = false;
    kernel.requests.clear();
    settleFor(NeighborWriter::firstRetrySeconds + 1);
    EXPECT_EQ(outcome(ip), Outcome::installed);
    EXPECT_EQ(kernel.count(), 1u);
    EXPECT_EQ(kernel.changesAsked(), 2u); // one of them was refused, as it should be
    EXPECT_EQ(count(Counter::exists), 1u);
}

TEST_F(NeighborWriterTest, whatGoesWhileItIsLookedAtIsAddedOrForgotten) {
    start();
    kernel.heldIs(10, ip, {EthAddr(), NUD_FAILED, 0, 0});
    permanentIs(ip, a);
    kernel.before = [&] {
        if (!kernel.requests.empty() && kernel.requests.back().verb == Verb::get) {
            kernel.heldDel(10, ip);
        }
    };
    settle();
    EXPECT_EQ(kernel.held(10, ip), permanent(a));
    EXPECT_EQ(count(Counter::missing), 1u);
    del(ip);
    settle();
    EXPECT_EQ(kernel.count(), 0u);
    EXPECT_EQ(count(Counter::missing), 2u);
    EXPECT_EQ(count(Counter::removed), 0u);
}

TEST_F(NeighborWriterTest, entriesWaitForTheirDevice) {
    topology->routedDeviceDel({"default", 10});
    start();
    permanentIs(ip, a);
    vrf("red")->afEntryPermanentIs(key(ip2, "Vlan20"), a, own); // of another VRF
    settle();
    EXPECT_EQ(kernel.count(), 0u);
    EXPECT_EQ(outcome(ip), Outcome::noDevice);
    EXPECT_EQ(count(Counter::interfaceGone), 2u);
    topology->routedDeviceIs({"default", 12}, routed10); // with another index than before
    settle();
    EXPECT_EQ(kernel.held(12, ip), permanent(a));
    EXPECT_EQ(kernel.count(), 1u);

    // Its entries go with the device; the writer does nothing about it.
    kernel.requests.clear();
    topology->routedDeviceDel({"default", 12});
    kernel.heldDel(12, ip);
    settleFor(3);
    EXPECT_EQ(kernel.requests.size(), 0u);
    topology->routedDeviceIs({"default", 13}, routed10);
    settleFor(3);
    EXPECT_EQ(kernel.held(13, ip), permanent(a));
}

TEST_F(NeighborWriterTest, aNamespaceThatComesLateHasItsLeftoversRemoved) {
    writer->netNsDel("red");
    start();
    vrf("red")->afEntryPermanentIs(key(ip, "Vlan30"), a, own);
    settle();
    EXPECT_EQ(count(Counter::interfaceGone), 1u);
    redKernel.heldIs(10, ip, permanent(b));
    redKernel.heldIs(10, ip2, permanent(b));
    redKernel.heldIs(10, "10.0.0.3", permanent(b, 4));
    writer->netNsIs("red", redKernel.channel());
    settle();
    EXPECT_EQ(redKernel.held(10, ip), permanent(a));
    EXPECT_FALSE(redKernel.held(10, ip2));
    EXPECT_TRUE(redKernel.held(10, "10.0.0.3"));
}

TEST_F(NeighborWriterTest, aGlobalIpv6EntryGoesWhereItsPrefixIsConnected) {
    start();
    vrf()->afEntryPermanentIs(key(ip6, ""), a, own);
    vrf()->afEntryPermanentIs(key("fe80::1"), a, own);
    settle();
    EXPECT_EQ(kernel.held(10, "fe80::1"), permanent(a));
    EXPECT_EQ(kernel.count(), 1u);
    EXPECT_EQ(count(Counter::noConnectedVlan), 1u);
    EXPECT_EQ(outcome(ip6, ""), Outcome::noDevice);

    auto ipv6 = [this](const char* interface, const char* name) {
        return state().ip6Status->intfIs(IntfId(interface), name);
    };
    ipv6("Vlan30", "red")->addrIs({IpGenAddr("2001:db8::9"), 96}); // of another VRF
    settle();
    EXPECT_EQ(kernel.count() + redKernel.count(), 1u);
    ipv6("Vlan10", "default")->addrIs({IpGenAddr("2001:db8::9"), 32});
    settle();
    EXPECT_EQ(kernel.held(10, ip6), permanent(a));
    EXPECT_EQ(outcome(ip6, ""), Outcome::installed);
    // The longer prefix wins, and the entry moves.
    ipv6("Vlan20", "default")->addrIs({IpGenAddr("2001:db8::8"), 61});
    settle();
    EXPECT_EQ(kernel.held(20, ip6), permanent(a));
    EXPECT_FALSE(kernel.held(10, ip6));
    // It is withdrawn even if nobody knows any more where it was.
    state().ip6Status->intfDelAll();
    vrf()->afEntryDel(key(ip6, ""));
    settle();
    EXPECT_EQ(kernel.count(), 1u);
}

TEST_F(NeighborWriterTest, manyEntriesComeInBatchesAndAllAtOnceGoAgain) {
    start();
    // More than wait by key, unless each takes a turn of its own.
    const uint32_t hosts = alwaysYield() ? 2000 : NeighborWriter::mostPending + 3000;
    auto ipAt = [](uint32_t i) { return IpGenAddr(0x0b000000u + i); };
    auto config = vrf();
    for (uint32_t i = 0; i < hosts; ++i) {
        config->afEntryPermanentIs({ipAt(i), IntfId("Vlan10")}, a, own);
    }
    settle();
    EXPECT_EQ(kernel.count(), size_t{hosts});
    EXPECT_EQ(count(Counter::added), uint64_t{hosts});
    EXPECT_EQ(count(Counter::exists), 0u);
    EXPECT_EQ(kernel.largestBatch, alwaysYield() ? 1 : NeighborWriter::batch);
    state().arpInputConfig->vrfDelAll();
    settle();
    EXPECT_EQ(kernel.count(), 0u);
    EXPECT_EQ(arpEntries(), 0u);
    EXPECT_TRUE(writer->idle());
}

TEST_F(NeighborWriterTest, theDumpTellsWhatBecameOfTheEntries) {
    start();
    permanentIs(ip, a);
    kernel.heldIs(10, ip2, learnt(b));
    permanentIs(ip2, a);
    settle();
    Vela::DumpContext context;
    writer->dumpState(context, 0);
    std::string text = context.text();
    for (const char* line :
         {"Linux::NeighborWriter started=1 idle=1 pending=0 work=0\n", "counter[added] 1\n",
          "counter[stood] 1\n", "entries[installed] 1\n", "entries[another's entry stands] 1\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
    EXPECT_FALSE(writer->view("default", key("10.0.0.9")));
    EXPECT_FALSE(writer->view("blue", key(ip)));
}

} // namespace
} // namespace Linux
