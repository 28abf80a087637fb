#include "Platform/Model/Arp/InputConfig.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/State/test/StateFixture.h"
#include "Platform/Value/test/ExpectForms.h"

#include <csignal>
#include <utility>

namespace Arp {
namespace {

using ArpType::ArpTypeId;
using Vela::make;
using Vela::Ptr;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

constexpr ArpSource source = ArpSource::arpSuppression;

class ArpInputConfigTest : public Vela::StateFixture {
  protected:
    ArpInputConfigTest() {
        v4_ = vrf_->ipv4EntryCollection().react(
            nullptr, [this](const InputConfigKey& key) { seen4_.push_back(key); });
        v6_ = vrf_->ipv6EntryCollection().react(
            nullptr, [this](const InputConfigKey& key) { seen6_.push_back(key); });
    }

    /// The keys announced since the last call, those of either family for themselves.
    void expectAnnounced(const std::vector<InputConfigKey>& v4,
                         const std::vector<InputConfigKey>& v6) {
        EXPECT_EQ(std::exchange(seen4_, {}), v4);
        EXPECT_EQ(std::exchange(seen6_, {}), v6);
    }

    const IntfId vlan10_{"Vlan10"};
    const InputConfigKey key4_{IpGenAddr("10.0.0.1"), vlan10_};
    const InputConfigKey key6_{IpGenAddr("fe80::1"), vlan10_};
    const EthAddr mac1_{"02:00:00:00:00:01"};
    const EthAddr mac2_{"02:00:00:00:00:02"};
    const Ptr<InputConfigVrf> vrf_ = make<InputConfigVrf>("red");
    std::vector<InputConfigKey> seen4_, seen6_;
    Vela::Reaction v4_, v6_;
};

TEST_F(ArpInputConfigTest, KeyForms) {
    const IntfId vlan20("Vlan20");
    EXPECT_EQ(key4_.ipAddress(), IpGenAddr("10.0.0.1"));
    EXPECT_EQ(key4_.intfId(), vlan10_);
    expectOrderedAndHashed({InputConfigKey(), key4_, InputConfigKey(key4_.ipAddress(), vlan20),
                            InputConfigKey(IpGenAddr("10.0.0.2"), {}), key6_});
    EXPECT_EQ(key4_.toStrep(), "<ipAddress=10.0.0.1 intfId=Vlan10>");
    expectValueForm(key4_, "Value('Arp::InputConfigKey', ** {'ipAddress': '10.0.0.1', 'intfId': "
                           "'Vlan10'})");
    expectValueForm(InputConfigKey(),
                    "Value('Arp::InputConfigKey', ** {'ipAddress': '', 'intfId': ''})");
    expectNoValueForm<InputConfigKey>(
        {"Value('Arp::InputConfigKey', ** {'ipAddress': 'x', 'intfId': ''})",
         "Value('Arp::InputConfigKey', ** {'ipAddress': ''})"});
}

TEST_F(ArpInputConfigTest, EntryComparesAllButItsMarks) {
    const InputConfigEntry entry(mac1_, ArpTypeId::dynamic, source, QuickRefresh::immediate);
    EXPECT_EQ(entry.macAddress(), mac1_);
    EXPECT_EQ(entry.type(), ArpTypeId::dynamic);
    EXPECT_EQ(entry.source(), source);
    EXPECT_EQ(entry.quickRefresh(), QuickRefresh::immediate);
    EXPECT_EQ(entry.carriedOut(), 0);
    const InputConfigEntry others[] = {
        {mac2_, ArpTypeId::dynamic, source, QuickRefresh::immediate},
        {mac1_, ArpTypeId::permanent, source, QuickRefresh::immediate},
        {mac1_, ArpTypeId::dynamic, ArpSource::kernel, QuickRefresh::immediate},
        {mac1_, ArpTypeId::dynamic, source, QuickRefresh::none},
        {}};
    for (const auto& other : others) {
        EXPECT_NE(entry, other);
    }
    InputConfigEntry marked = entry;
    marked.carriedOutIs(255);
    EXPECT_EQ(marked.carriedOut(), 255);
    EXPECT_EQ(marked, entry);
    EXPECT_EQ(marked.valueToStrep(), entry.valueToStrep());
}

TEST_F(ArpInputConfigTest, EntryForms) {
    const InputConfigEntry entry(mac1_, ArpTypeId::dynamic, source, QuickRefresh::immediate);
    EXPECT_EQ(entry.toStrep(), "<macAddress=02:00:00:00:00:01 type=dynamic source=arpSuppression "
                               "quickRefresh=immediate>");
    expectValueForm(entry, "Value('Arp::InputConfigEntry', ** {'macAddress': '02:00:00:00:00:01', "
                           "'type': 'dynamic', 'source': 110, 'quickRefresh': 'immediate'})");
    expectValueForm(InputConfigEntry(),
                    "Value('Arp::InputConfigEntry', ** {'macAddress': '00:00:00:00:00:00', "
                    "'type': 'permanent', 'source': 0, 'quickRefresh': 'none'})");
    expectNoValueForm<InputConfigEntry>(
        {"Value('Arp::InputConfigEntry', ** {'macAddress': '00:00:00:00:00:00', 'type': 'static', "
         "'source': 0, 'quickRefresh': 'none'})",
         "Value('Arp::InputConfigEntry', ** {'macAddress': '00:00:00:00:00:00', 'type': "
         "'permanent', 'source': 256, 'quickRefresh': 'none'})",
         "Value('Arp::InputConfigEntry', ** {'macAddress': '00:00:00:00:00:00', 'type': "
         "'permanent', 'source': 0, 'quickRefresh': 'soon'})"});

    std::ostringstream out;
    out << ArpTypeId::permanent << ' ' << ArpTypeId::dynamic << ' ' << QuickRefresh::none << ' '
        << QuickRefresh::immediate << ' ' << ArpSource::kernel << ' ' << source << ' '
        << static_cast<ArpSource>(7);
    EXPECT_EQ(out.str(), "permanent dynamic none immediate kernel arpSuppression 7");
    EXPECT_EQ(static_cast<int>(ArpSource::arpSuppression), 110);
}

TEST_F(ArpInputConfigTest, WritesDynamicAndPermanentEntries) {
    EXPECT_EQ(vrf_->afEntry(key4_), nullptr);
    vrf_->afEntryDynamicIs(key4_, mac1_, source, QuickRefresh::immediate);
    ASSERT_NE(vrf_->afEntry(key4_), nullptr);
    EXPECT_EQ(*vrf_->afEntry(key4_),
              InputConfigEntry(mac1_, ArpTypeId::dynamic, source, QuickRefresh::immediate));
    vrf_->afEntryPermanentIs(key4_, mac1_, source);
    EXPECT_EQ(*vrf_->afEntry(key4_),
              InputConfigEntry(mac1_, ArpTypeId::permanent, source, QuickRefresh::none));
    expectAnnounced({key4_, key4_}, {});
}

TEST_F(ArpInputConfigTest, KeepsTheFamiliesApart) {
    vrf_->afEntryPermanentIs(key4_, mac1_, source);
    expectAnnounced({key4_}, {});
    vrf_->afEntryPermanentIs(key6_, mac2_, source);
    expectAnnounced({}, {key6_});
    EXPECT_EQ(vrf_->ipv4Entries(), 1u);
    EXPECT_EQ(vrf_->ipv6Entries(), 1u);
    EXPECT_EQ(vrf_->ipv4EntryCollection().value(key4_).macAddress(), mac1_);
    EXPECT_EQ(vrf_->ipv6EntryCollection().value(key6_).macAddress(), mac2_);
    EXPECT_TRUE(vrf_->afEntryDel(key6_));
    expectAnnounced({}, {key6_});
    EXPECT_FALSE(vrf_->afEntryDel(key6_));
    EXPECT_TRUE(vrf_->afEntryDel(key4_));
    expectAnnounced({key4_}, {});
    EXPECT_EQ(vrf_->ipv4Entries() + vrf_->ipv6Entries(), 0u);
}

TEST_F(ArpInputConfigTest, InterfaceIsPartOfTheKey) {
    const InputConfigKey elsewhere(key4_.ipAddress(), IntfId("Vlan20"));
    vrf_->afEntryPermanentIs(key4_, mac1_, source);
    EXPECT_EQ(vrf_->afEntry(elsewhere), nullptr);
    EXPECT_FALSE(vrf_->afEntryDel(elsewhere));
    expectAnnounced({key4_}, {});
}

TEST_F(ArpInputConfigTest, MarksLastUntilTheEntryChanges) {
    for (const InputConfigKey& key : {key4_, key6_}) {
        vrf_->afEntryDynamicIs(key, mac1_, source, QuickRefresh::none);
        seen4_.clear();
        seen6_.clear();
        vrf_->afEntry(key)->carriedOutIs(3);
        vrf_->afEntryDynamicIs(key, mac1_, source, QuickRefresh::none);
        expectAnnounced({}, {});
        EXPECT_EQ(vrf_->afEntry(key)->carriedOut(), 3);

        vrf_->afEntryDynamicIs(key, mac2_, source, QuickRefresh::none);
        EXPECT_EQ(vrf_->afEntry(key)->carriedOut(), 0);
        vrf_->afEntry(key)->carriedOutIs(3);
        vrf_->afEntryPermanentIs(key, mac2_, source);
        EXPECT_EQ(vrf_->afEntry(key)->carriedOut(), 0);
        EXPECT_EQ(seen4_.size() + seen6_.size(), 2u);
    }
}

TEST_F(ArpInputConfigTest, AddressWithoutFamilyIsAProgrammingError) {
    const InputConfigKey key({}, vlan10_);
    const char* text = "key.ipAddress\\(\\).af\\(\\) != Zinc::ipunknown\\(\\)";
    auto aborts = ::testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT(vrf_->afEntryDynamicIs(key, mac1_, source, QuickRefresh::none), aborts, text);
    EXPECT_EXIT(vrf_->afEntryPermanentIs(key, mac1_, source), aborts, text);
    EXPECT_EXIT(vrf_->afEntry(key), aborts, text);
    EXPECT_EXIT(vrf_->afEntryDel(key), aborts, text);
}

TEST_F(ArpInputConfigTest, EndOfAVrfWithdrawsItsEntries) {
    vrf_->afEntryPermanentIs(key4_, mac1_, source);
    vrf_->afEntryPermanentIs(key6_, mac1_, source);
    expectAnnounced({key4_}, {key6_});
    vrf_->destroy();
    expectAnnounced({key4_}, {key6_});
    EXPECT_EQ(vrf_->ipv4Entries() + vrf_->ipv6Entries(), 0u);
}

TEST_F(ArpInputConfigTest, AnAnnouncementCanAskWhatStoodThere) {
    std::vector<std::optional<InputConfigEntry>> seen;
    auto reaction = vrf_->ipv4EntryCollection().react(
        nullptr, [&](const InputConfigKey&) { seen.push_back(vrf_->replacedEntry()); });
    vrf_->afEntryPermanentIs(key4_, mac1_, source);
    vrf_->afEntry(key4_)->carriedOutIs(3);
    InputConfigEntry first = *vrf_->afEntry(key4_);
    vrf_->afEntryDynamicIs(key4_, mac1_, source, QuickRefresh::immediate);
    InputConfigEntry second = *vrf_->afEntry(key4_);
    vrf_->afEntryDel(key4_);
    vrf_->afEntryPermanentIs(key4_, mac1_, source);
    vrf_->destroy();
    using Seen = std::vector<std::optional<InputConfigEntry>>;
    EXPECT_EQ(seen, (Seen{std::nullopt, first, second, std::nullopt, first}));
    EXPECT_EQ(seen[1]->carriedOut(), 3);
    EXPECT_EQ(seen[2]->carriedOut(), 0);
}

TEST_F(ArpInputConfigTest, Vrfs) {
    auto config = make<InputConfig>();
    EXPECT_EQ(config->vrfs(), 0u);
    config->vrfIs("red");
    EXPECT_EQ(config->vrfs(), 1u);
    config->vrfDelAll();
    expectChildren(*config, &InputConfig::vrfCollection, &InputConfig::vrf, &InputConfig::vrfIs,
                   &InputConfig::vrfDel, &InputConfig::vrfDelAll, &InputConfigVrf::vrfName, "blue",
                   "red");
}

TEST_F(ArpInputConfigTest, Source) {
    auto config = make<InputConfig>();
    EXPECT_EQ(config->source(), ArpSource::kernel);
    expectAttribute(*config, &InputConfig::sourceAttribute, &InputConfig::source,
                    &InputConfig::sourceIs, source);
}

TEST_F(ArpInputConfigTest, InitialisingKeepsWhatIsThere) {
    auto config = make<InputConfig>();
    auto vrf = config->vrfIs("red");
    vrf->afEntryPermanentIs(key4_, mac1_, source);
    config->sourceIs(source);
    std::vector<std::string> seen;
    auto initialized =
        config->initializedAttribute().react(nullptr, [&] { seen.push_back("initialized"); });
    auto other = config->sourceAttribute().react(nullptr, [&] { seen.push_back("source"); });
    auto vrfs = config->vrfCollection().react(nullptr, [&](const auto&) { seen.push_back("vrf"); });
    auto entries =
        vrf->ipv4EntryCollection().react(nullptr, [&](const auto&) { seen.push_back("entry"); });
    EXPECT_FALSE(config->initialized());
    config->doInit();
    config->doInit();
    EXPECT_TRUE(config->initialized());
    EXPECT_EQ(config->source(), source);
    EXPECT_EQ(config->vrf("red"), vrf);
    EXPECT_NE(vrf->afEntry(key4_), nullptr);
    EXPECT_EQ(seen, (std::vector<std::string>{"initialized"}));
}

TEST_F(ArpInputConfigTest, DumpCountsEntries) {
    auto config = make<InputConfig>();
    config->doInit();
    config->sourceIs(source);
    auto red = config->vrfIs("red");
    red->afEntryPermanentIs(key4_, mac1_, source);
    config->vrfIs("blue");
    EXPECT_EQ(dump(*config, 2), "  Arp::InputConfig\n"
                                "    initialized=yes\n"
                                "    source=arpSuppression\n"
                                "    vrf[] #2\n"
                                "      Arp::InputConfigVrf blue\n"
                                "        ipv4Entry[] #0\n"
                                "        ipv6Entry[] #0\n"
                                "      Arp::InputConfigVrf red\n"
                                "        ipv4Entry[] #1\n"
                                "        ipv6Entry[] #0\n");
    std::ostringstream out;
    red->formatTraceObject(out);
    EXPECT_EQ(out.str(), "Arp::InputConfigVrf(red)");
}

} // namespace
} // namespace Arp
