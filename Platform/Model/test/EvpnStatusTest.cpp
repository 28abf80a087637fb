#include "Platform/Model/Evpn/EvpnStatus.h"
#include "Platform/Model/Evpn/MplsConfig.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/State/test/StateFixture.h"
#include "Platform/Value/test/ExpectForms.h"

namespace Evpn {
namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Vela::make;
using Zinc::IntfId;

class EvpnStatusTest : public Vela::StateFixture {
  protected:
    const IntfId ethernet1_{"Ethernet1"};
    const IntfId ethernet2_{"Ethernet2"};
    const Vela::Ptr<EvpnStatus> status_ = make<EvpnStatus>();
};

TEST(EvpnLabelTest, HaveTwentyBits) {
    EXPECT_EQ(ImetLabel(maxMplsLabel, EncapType::mpls).label(), 1048575u);
    EXPECT_EQ(EsiLabel(maxMplsLabel).mplsLabel(), 1048575u);
    for (uint32_t label : {maxMplsLabel + 1, ~0u}) {
        expectRangeError([&] { ImetLabel(label, EncapType::mpls); },
                         "Evpn::ImetLabel::label > 1048575 not allowed");
        expectRangeError([&] { EsiLabel{label}; },
                         "Evpn::EsiLabel::mplsLabel > 1048575 not allowed");
    }
}

TEST(EvpnLabelTest, CompareAllTheyHold) {
    EXPECT_EQ(ImetLabel(1, EncapType::mpls), ImetLabel(1, EncapType::mpls));
    EXPECT_NE(ImetLabel(1, EncapType::mpls), ImetLabel(2, EncapType::mpls));
    EXPECT_NE(ImetLabel(1, EncapType::mpls), ImetLabel(1, EncapType::vxlan));
    EXPECT_EQ(ImetLabel(), ImetLabel(0, EncapType::none));
    EXPECT_EQ(EsiLabel(), EsiLabel(0));
    EXPECT_NE(EsiLabel(1), EsiLabel(2));
}

TEST(EvpnLabelTest, Forms) {
    const ImetLabel imet(100, EncapType::mpls);
    EXPECT_EQ(imet.encapsulation(), EncapType::mpls);
    EXPECT_EQ(imet.toStrep(), "<label=100 encapsulation=mpls>");
    expectValueForm(imet, "Value('Evpn::ImetLabel', ** {'label': 100, 'encapsulation': 'mpls'})");
    expectValueForm(ImetLabel(1048575, EncapType::vxlan),
                    "Value('Evpn::ImetLabel', ** {'label': 1048575, 'encapsulation': 'vxlan'})");
    expectValueForm(ImetLabel(),
                    "Value('Evpn::ImetLabel', ** {'label': 0, 'encapsulation': 'none'})");
    expectNoValueForm<ImetLabel>(
        {"Value('Evpn::ImetLabel', ** {'label': 1048576, 'encapsulation': 'mpls'})",
         "Value('Evpn::ImetLabel', ** {'label': 1, 'encapsulation': 'gre'})",
         "Value('Evpn::ImetLabel', ** {'label': 1, 'encapsulation': mpls})"});

    EXPECT_EQ(EsiLabel(200).toStrep(), "<mplsLabel=200>");
    expectValueForm(EsiLabel(200), "Value('Evpn::EsiLabel', ** {'mplsLabel': 200})");
    expectNoValueForm<EsiLabel>({"Value('Evpn::EsiLabel', ** {'mplsLabel': 1048576})", "200"});

    std::ostringstream out;
    out << EncapType::none << ' ' << EncapType::vxlan << ' ' << EncapType::mpls;
    EXPECT_EQ(out.str(), "none vxlan mpls");
    EXPECT_EQ(static_cast<int>(EncapType::mpls), 2);
}

TEST_F(EvpnStatusTest, MplsConfigured) {
    EXPECT_FALSE(status_->mplsConfigured());
    expectAttribute(*status_, &EvpnStatus::mplsConfiguredAttribute, &EvpnStatus::mplsConfigured,
                    &EvpnStatus::mplsConfiguredIs, true);
}

TEST_F(EvpnStatusTest, Collections) {
    expectValues(*status_, &EvpnStatus::vlanToDot1qCollection, &EvpnStatus::vlanToDot1qIs,
                 &EvpnStatus::vlanToDot1qDel, &EvpnStatus::vlanToDot1qDelAll, VlanId(10),
                 VlanId(20), VlanIdOrNone(), VlanIdOrNone(1010));
    expectValues(*status_, &EvpnStatus::imetLabelCollection, &EvpnStatus::imetLabelIs,
                 &EvpnStatus::imetLabelDel, &EvpnStatus::imetLabelDelAll, VlanId(10), VlanId(20),
                 ImetLabel(100, EncapType::mpls), ImetLabel(100, EncapType::vxlan));
    expectValues(*status_, &EvpnStatus::localEsiLabelCollection, &EvpnStatus::localEsiLabelIs,
                 &EvpnStatus::localEsiLabelDel, &EvpnStatus::localEsiLabelDelAll, ethernet1_,
                 ethernet2_, EsiLabel(200), EsiLabel(201));
    expectChildren(*status_, &EvpnStatus::segmentStatusCollection, &EvpnStatus::segmentStatus,
                   &EvpnStatus::segmentStatusIs, &EvpnStatus::segmentStatusDel,
                   &EvpnStatus::segmentStatusDelAll, &EthernetSegmentStatus::intfId, ethernet1_,
                   ethernet2_);
}

TEST_F(EvpnStatusTest, EachCollectionAnnouncesForItselfAlone) {
    std::vector<std::string> seen;
    auto mpls = status_->mplsConfiguredAttribute().react(nullptr, [&] { seen.push_back("mpls"); });
    auto dot1q = status_->vlanToDot1qCollection().react(
        nullptr, [&](const auto&) { seen.push_back("dot1q"); });
    auto imet =
        status_->imetLabelCollection().react(nullptr, [&](const auto&) { seen.push_back("imet"); });
    auto esi = status_->localEsiLabelCollection().react(
        nullptr, [&](const auto&) { seen.push_back("esi"); });
    auto segment = status_->segmentStatusCollection().react(
        nullptr, [&](const auto&) { seen.push_back("segment"); });
    status_->mplsConfiguredIs(true);
    status_->vlanToDot1qIs(VlanId(10), {});
    status_->imetLabelIs(VlanId(10), {});
    status_->localEsiLabelIs(ethernet1_, {});
    status_->segmentStatusIs(ethernet1_)->dfTepIs(VlanId(10), ethernet2_);
    EXPECT_EQ(seen, (std::vector<std::string>{"mpls", "dot1q", "imet", "esi", "segment"}));
}

TEST_F(EvpnStatusTest, DesignatedForwarders) {
    auto segment = make<EthernetSegmentStatus>(ethernet1_);
    EXPECT_FALSE(segment->dfTep(VlanId(10)));
    segment->dfTepIs(VlanId(10), ethernet2_);
    EXPECT_EQ(segment->dfTep(VlanId(10)), ethernet2_);
    EXPECT_FALSE(segment->dfTep(VlanId(20)));
    segment->dfTepDelAll();
    expectValues(*segment, &EthernetSegmentStatus::dfTepCollection, &EthernetSegmentStatus::dfTepIs,
                 &EthernetSegmentStatus::dfTepDel, &EthernetSegmentStatus::dfTepDelAll, VlanId(10),
                 VlanId(20), IntfId(), ethernet2_);
}

TEST_F(EvpnStatusTest, Dump) {
    status_->mplsConfiguredIs(true);
    status_->vlanToDot1qIs(VlanId(20), VlanIdOrNone(2));
    status_->vlanToDot1qIs(VlanId(10), {});
    status_->imetLabelIs(VlanId(10), ImetLabel(100, EncapType::mpls));
    status_->localEsiLabelIs(ethernet1_, EsiLabel(200));
    status_->segmentStatusIs(ethernet1_)->dfTepIs(VlanId(10), IntfId("Vxlan1"));
    EXPECT_EQ(dump(*status_, 2), "  Evpn::EvpnStatus\n"
                                 "    mplsConfigured=yes\n"
                                 "    vlanToDot1q[] #2\n"
                                 "      10 -> 0\n"
                                 "      20 -> 2\n"
                                 "    imetLabel[] #1\n"
                                 "      10 -> <label=100 encapsulation=mpls>\n"
                                 "    localEsiLabel[] #1\n"
                                 "      Ethernet1 -> <mplsLabel=200>\n"
                                 "    segmentStatus[] #1\n"
                                 "      Evpn::EthernetSegmentStatus Ethernet1\n"
                                 "        dfTep[] #1\n"
                                 "          10 -> Vxlan1\n");
    std::ostringstream out;
    status_->segmentStatus(ethernet1_)->formatTraceObject(out);
    EXPECT_EQ(out.str(), "Evpn::EthernetSegmentStatus(Ethernet1)");
}

TEST_F(EvpnStatusTest, MplsConfig) {
    auto config = make<MplsConfig>();
    EXPECT_FALSE(config->innerDot1qDefault());
    EXPECT_FALSE(config->controlWordEnabled());
    expectAttribute(*config, &MplsConfig::innerDot1qDefaultAttribute,
                    &MplsConfig::innerDot1qDefault, &MplsConfig::innerDot1qDefaultIs, true);
    expectAttribute(*config, &MplsConfig::controlWordEnabledAttribute,
                    &MplsConfig::controlWordEnabled, &MplsConfig::controlWordEnabledIs, true);
    unsigned announced = 0;
    auto other = config->innerDot1qDefaultAttribute().react(nullptr, [&] { ++announced; });
    config->controlWordEnabledIs(true);
    EXPECT_EQ(announced, 0u);
    EXPECT_EQ(dump(*config), "Evpn::MplsConfig\n"
                             "  innerDot1qDefault=no\n"
                             "  controlWordEnabled=yes\n");
}

} // namespace
} // namespace Evpn
