#include "Platform/Model/Brant/IntfEncap.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/State/test/StateFixture.h"
#include "Platform/Value/test/ExpectForms.h"

namespace Brant {
namespace {

using Bridging::VlanTag;
using Vela::make;
using Zinc::IntfId;

class IntfEncapTest : public Vela::StateFixture {
  protected:
    const IntfId ethernet1_{"Ethernet1"};
    const IntfId ethernet2_{"Ethernet2"};
    const VlanTag tag10_{0x8100, 10};
    const VlanTag tag20_{0x88a8, 20};
};

TEST_F(IntfEncapTest, HoldsTheTags) {
    EXPECT_FALSE(IntfEncap().outer().isTagged());
    EXPECT_FALSE(IntfEncap(tag10_).inner().isTagged());
    EXPECT_EQ(IntfEncap(tag10_).outer(), tag10_);
    EXPECT_EQ(IntfEncap(tag10_, tag20_).inner(), tag20_);
    EXPECT_EQ(IntfEncap(tag10_, tag20_), IntfEncap(tag10_, tag20_));
    EXPECT_NE(IntfEncap(tag10_, tag20_), IntfEncap(tag20_, tag10_));
    EXPECT_NE(IntfEncap(tag10_, tag20_), IntfEncap(tag10_));
}

TEST_F(IntfEncapTest, Forms) {
    EXPECT_EQ(IntfEncap(tag10_, tag20_).toStrep(),
              "<outer=<tpid=0x8100 vlanId=10> inner=<tpid=0x88a8 vlanId=20>>");
    expectValueForm(
        IntfEncap(tag10_),
        "Value('Brant::IntfEncap', ** {'outer': Value('Bridging::VlanTag', ** {'tpid': 33024, "
        "'vlanId': 10}), 'inner': Value('Bridging::VlanTag', ** {'tpid': 33024, 'vlanId': "
        "4095})})");
    expectNoValueForm<IntfEncap>(
        {"Value('Brant::IntfEncap', ** {'outer': Value('Bridging::VlanTag', ** {'tpid': 33024, "
         "'vlanId': 10})})",
         "Value('Brant::IntfEncap', ** {})"});
}

TEST_F(IntfEncapTest, SubInterfaces) {
    auto parent = make<IntfEncapParent>(ethernet1_);
    const IntfId sub1("Ethernet1.1"), sub2("Ethernet1.2");
    expectValues(*parent, &IntfEncapParent::subIntfCollection, &IntfEncapParent::subIntfIs,
                 &IntfEncapParent::subIntfDel, &IntfEncapParent::subIntfDelAll, sub1, sub2,
                 IntfEncap(tag10_), IntfEncap(tag10_, tag20_));
}

TEST_F(IntfEncapTest, Parents) {
    expectChildren(*make<IntfEncapServiceIntfColl>(), &IntfEncapServiceIntfColl::parentCollection,
                   &IntfEncapServiceIntfColl::parent, &IntfEncapServiceIntfColl::parentIs,
                   &IntfEncapServiceIntfColl::parentDel, &IntfEncapServiceIntfColl::parentDelAll,
                   &IntfEncapParent::parentIntfId, ethernet1_, ethernet2_);
}

TEST_F(IntfEncapTest, Dump) {
    auto coll = make<IntfEncapServiceIntfColl>();
    coll->parentIs(ethernet1_)->subIntfIs(IntfId("Ethernet1.1"), IntfEncap(tag10_));
    EXPECT_EQ(dump(*coll, 2),
              "  Brant::IntfEncapServiceIntfColl\n"
              "    parent[] #1\n"
              "      Brant::IntfEncapParent Ethernet1\n"
              "        subIntf[] #1\n"
              "          Ethernet1.1 -> <outer=<tpid=0x8100 vlanId=10> inner=<tpid=0x8100 "
              "vlanId=4095>>\n");
    std::ostringstream out;
    coll->parent(ethernet1_)->formatTraceObject(out);
    EXPECT_EQ(out.str(), "Brant::IntfEncapParent(Ethernet1)");
}

} // namespace
} // namespace Brant
