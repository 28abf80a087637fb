#include "ArpSuppression/test/BindingDiscoverySmFixture.h"
#include "Platform/State/DumpContext.h"

#include <csignal>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Testing::TraceCapture;
using Zinc::EthAddr;
using Zinc::IntfId;

/// Where listeners for replies to the virtual router are, and where they are not.
class BindingDiscoverySmVarpTest : public BindingDiscoverySmFixture {
  protected:
    using Vlans = std::vector<int>;

    Vlans listening() {
        Vlans v4 = vlansOf(sm().varpReplyV4SmCollection());
        EXPECT_EQ(v4, vlansOf(sm().varpReplyV6SmCollection()));
        return v4;
    }
    template <class Collection>
    static Vlans vlansOf(const Collection& collection) {
        Vlans vlans;
        for (auto listener = collection.first(); listener; ++listener) {
            EXPECT_FALSE(listener.value()->destroyed());
            vlans.push_back(listener.key().value());
        }
        return vlans;
    }
    void varpMacIs(const EthAddr& mac) { state().fhrpVrMacStatus->varpVirtualMacIs(mac); }
    std::string dump(int indent) {
        Vela::DumpContext context;
        sm().dumpState(context, indent);
        return context.text();
    }
};
using BindingDiscoverySmVarpDeathTest = BindingDiscoverySmVarpTest;

TEST_F(BindingDiscoverySmVarpTest, eachVlanWithL3InformationHasAPair) {
    EXPECT_EQ(listening(), Vlans{10});
    EXPECT_EQ(sm().varpReplyV4Sm(VlanId(10))->vlanL3Info(),
              vlanL3InfoStatus().vlanL3Info(VlanId(10)));
    EXPECT_EQ(sm().varpReplyV6Sm(VlanId(10))->vlanL3Info(),
              vlanL3InfoStatus().vlanL3Info(VlanId(10)));
    EXPECT_FALSE(sm().varpReplyV4Sm(VlanId(20)));
    EXPECT_FALSE(sm().varpReplyV6Sm(VlanId(20)));
    routedVlanIs(20);
    EXPECT_EQ(listening(), (Vlans{10, 20}));
    state().ipStatus->ipIntfStatusDel(IntfId("Vlan10"));
    runUntilIdle();
    EXPECT_EQ(listening(), Vlans{20});
}

TEST_F(BindingDiscoverySmVarpTest, noneWithoutAVirtualRouterMac) {
    routedVlanIs(20);
    auto v4Sm = sm().varpReplyV4Sm(VlanId(10));
    auto v6Sm = sm().varpReplyV6Sm(VlanId(20));
    varpMacIs(EthAddr());
    EXPECT_EQ(listening(), Vlans());
    EXPECT_TRUE(v4Sm->destroyed());
    EXPECT_TRUE(v6Sm->destroyed());
    routedVlanIs(30);
    EXPECT_EQ(listening(), Vlans());
    varpMacIs(varpMac);
    EXPECT_EQ(listening(), (Vlans{10, 20, 30}));
    EXPECT_NE(sm().varpReplyV4Sm(VlanId(10)), v4Sm);
}

TEST_F(BindingDiscoverySmVarpTest, anotherVirtualRouterMacIsTheListenersOwnBusiness) {
    auto v4Sm = sm().varpReplyV4Sm(VlanId(10));
    auto v6Sm = sm().varpReplyV6Sm(VlanId(10));
    varpMacIs(EthAddr("02:00:5e:00:01:02"));
    EXPECT_EQ(sm().varpReplyV4Sm(VlanId(10)), v4Sm);
    EXPECT_EQ(sm().varpReplyV6Sm(VlanId(10)), v6Sm);
    EXPECT_FALSE(v4Sm->destroyed());
}

TEST_F(BindingDiscoverySmVarpTest, soIsAVlanThatIsNotUsable) {
    auto v4Sm = sm().varpReplyV4Sm(VlanId(10));
    Testing::deviceIs(state(), "Vlan10", 0);
    runUntilIdle();
    EXPECT_EQ(sm().varpReplyV4Sm(VlanId(10)), v4Sm);
    Testing::deviceIs(state(), "Vlan10", 1011);
    runUntilIdle();
    EXPECT_EQ(sm().varpReplyV4Sm(VlanId(10)), v4Sm);
    state().evpnStatus->vlanToDot1qIs(VlanId(40), Bridging::VlanIdOrNone());
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan40"), "default"); // without a device
    runUntilIdle();
    EXPECT_EQ(listening(), (Vlans{10, 40}));
}

TEST_F(BindingDiscoverySmVarpTest, aVlanThatMovesToAnotherVrfHasANewPair) {
    state().vrfIdMap->vrfIs(Vrf::VrfId(7), "red");
    auto v4Sm = sm().varpReplyV4Sm(VlanId(10));
    auto v6Sm = sm().varpReplyV6Sm(VlanId(10));
    state().ipStatus->ipIntfStatusDel(IntfId("Vlan10"));
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan10"), "red");
    runUntilIdle();
    EXPECT_EQ(listening(), Vlans{10});
    EXPECT_TRUE(v4Sm->destroyed());
    EXPECT_TRUE(v6Sm->destroyed());
    for (const auto& vlanL3Info : {sm().varpReplyV4Sm(VlanId(10))->vlanL3Info(),
                                   sm().varpReplyV6Sm(VlanId(10))->vlanL3Info()}) {
        EXPECT_EQ(vlanL3Info, vlanL3InfoStatus().vlanL3Info(VlanId(10)));
        EXPECT_EQ(vlanL3Info->vrfInfo()->vrfName(), "red");
    }
}

TEST_F(BindingDiscoverySmVarpTest, soHasOneThatMovesInOneStep) {
    state().vrfIdMap->vrfIs(Vrf::VrfId(7), "red");
    auto red = state().allVrfStatusLocal->vrfIs("red");
    red->networkNamespaceIs("default");
    red->stateIs(Ip::VrfState::active);
    auto v4Sm = sm().varpReplyV4Sm(VlanId(10));
    auto v6Sm = sm().varpReplyV6Sm(VlanId(10));
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan10"), "red");
    runUntilIdle();
    ASSERT_EQ(vlanL3InfoStatus().vlanL3Info(VlanId(10))->vrfInfo()->vrfName(), "red");
    EXPECT_EQ(listening(), Vlans{10});
    EXPECT_TRUE(v4Sm->destroyed());
    EXPECT_TRUE(v6Sm->destroyed());
    EXPECT_EQ(sm().varpReplyV4Sm(VlanId(10))->vlanL3Info(),
              vlanL3InfoStatus().vlanL3Info(VlanId(10)));
    EXPECT_EQ(sm().varpReplyV6Sm(VlanId(10))->vlanL3Info(),
              vlanL3InfoStatus().vlanL3Info(VlanId(10)));
    EXPECT_TRUE(sm().varpReplyV4Sm(VlanId(10))->arpReplyRxPam());
    EXPECT_TRUE(sm().varpReplyV6Sm(VlanId(10))->arpReplyRxPam());
}

TEST_F(BindingDiscoverySmVarpTest, aMachineThatComesLateFindsTheVlans) {
    routedVlanIs(20);
    auto late = machine(state().bridgingConfig, state().fhrpVrMacStatus);
    EXPECT_EQ(vlansOf(late->varpReplyV4SmCollection()), (Vlans{10, 20}));
    EXPECT_EQ(vlansOf(late->varpReplyV6SmCollection()), (Vlans{10, 20}));
    auto v4Sm = late->varpReplyV4Sm(VlanId(10));
    auto v6Sm = late->varpReplyV6Sm(VlanId(20));
    late->destroy();
    EXPECT_TRUE(v4Sm->destroyed());
    EXPECT_TRUE(v6Sm->destroyed());
    EXPECT_EQ(vlansOf(late->varpReplyV4SmCollection()), Vlans());
    EXPECT_EQ(vlansOf(late->varpReplyV6SmCollection()), Vlans());
}

TEST_F(BindingDiscoverySmVarpTest, traces) {
    TraceCapture capture("ArpSuppression=8");
    varpMacIs(EthAddr("02:00:5e:00:01:02"));
    EXPECT_EQ(capture.count(" varpVirtualMac=02:00:5e:00:01:02\n"), 1u) << capture.text();
    const std::string vlan10 = " vlanId=10 vlanL3Info=<vrfName=default vlanId=10> ";
    const std::string v4 = " v4Sm=BindingDiscoveryVarpReplyV4Sm(";
    const std::string v6 = " v6Sm=BindingDiscoveryVarpReplyV6Sm(";
    EXPECT_EQ(capture.count(" no change" + vlan10 + "varpVirtualMac=02:00:5e:00:01:02" + v4), 1u)
        << capture.text();
    EXPECT_EQ(capture.count(v6), 1u) << capture.text();
    capture.clear();
    varpMacIs(EthAddr());
    EXPECT_EQ(capture.count(" delete" + vlan10 + "varpVirtualMac=00:00:00:00:00:00" + v4), 1u)
        << capture.text();
    capture.clear();
    varpMacIs(varpMac);
    EXPECT_EQ(capture.count(" create" + vlan10 +
                            "varpVirtualMac=02:00:5e:00:01:01 v4Sm=NULL v6Sm=NULL\n"),
              1u)
        << capture.text();
}

TEST_F(BindingDiscoverySmVarpTest, dumps) {
    routedVlanIs(20);
    const std::string v4 = "BindingDiscoveryVarpReplySm af=1 ";
    const std::string v6 = "BindingDiscoveryVarpReplySm af=2 ";
    EXPECT_EQ(dump(3), "   BindingDiscoverySm\n"
                       "     varpReplyV4Sm[] #2\n"
                       "       " +
                           v4 + "10\n       " + v4 +
                           "20\n"
                           "     varpReplyV6Sm[] #2\n"
                           "       " +
                           v6 + "10\n       " + v6 + "20\n");
    varpMacIs(EthAddr());
    EXPECT_EQ(dump(0), "BindingDiscoverySm\n"
                       "  varpReplyV4Sm[] #0\n"
                       "  varpReplyV6Sm[] #0\n");
}

TEST_F(BindingDiscoverySmVarpDeathTest, aVlanHasBothListenersOrNeither) {
    const std::string text = "(^|\n)ArpSuppression/BindingDiscoverySm:[0-9]+ handleVlanL3Info: "
                             "assertion failed \"\\( nullptr == v4Sm \\) == \\( nullptr == v6Sm "
                             "\\)\"\n";
    auto fails = [&](auto diverge) {
        EXPECT_EXIT(
            {
                diverge();
                varpMacIs(EthAddr());
            },
            testing::KilledBySignal(SIGABRT), text);
    };
    fails([this] { sm().varpReplyV4SmDel(VlanId(10)); });
    fails([this] { sm().varpReplyV6SmDel(VlanId(10)); });
}

} // namespace

} // namespace ArpSuppression
