#include "Platform/Model/Interface/NetNsIntfStatusManager.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/Model/test/TableFixture.h"

#include <map>

namespace Interface {

namespace {

using Vela::make;
using Zinc::IntfId;
using Published = std::map<uint32_t, std::string>;

class NetNsIntfStatusManagerTest : public TableFixture {
  protected:
    ~NetNsIntfStatusManagerTest() override {
        root->destroy();
        all->destroy();
        local->destroy();
    }

    void deviceIs(uint32_t ifIndex, const std::string& name, uint32_t flags = 0x40) {
        kernel->interfaceIs({ifIndex, name, flags, Zinc::EthAddr("02:00:00:00:00:0a")});
    }
    void deviceDel(uint32_t ifIndex) { kernel->interfaceDel(ifIndex); }
    void intfIs(const std::string& name, const std::string& deviceName) {
        all->intfStatusIs(IntfId(name))->deviceNameIs(deviceName);
    }
    void intfDel(const std::string& name) { all->intfStatusDel(IntfId(name)); }
    void netNsIs(const std::string& name, const std::string& netNs) {
        local->intfStatusLocalIs(IntfId(name))->netNsIs(netNs);
    }

    Vela::Ptr<NetNsIntfStatusManager> managerIs(const std::string& netNs = "default") {
        return root->intfStatusManagerIs(devices, kernel, netNs);
    }

    /// "Ethernet1 et1" by kernel index.
    static Published contents(const DeviceIntfStatusDir& dir) {
        Published found;
        for (auto cursor = dir.deviceIntfStatusCollection().first(); cursor; ++cursor) {
            found[cursor.key()] =
                cursor.value().intfId().toStrep() + " " + cursor.value().deviceName();
        }
        return found;
    }
    Published published() {
        runUntilIdle();
        return contents(*devices);
    }

    Vela::Ptr<AllIntfStatusDir> all = make<AllIntfStatusDir>("AllIntfStatusDir");
    Vela::Ptr<AllIntfStatusLocalDir> local = make<AllIntfStatusLocalDir>("AllIntfStatusLocalDir");
    Vela::Ptr<DeviceIntfStatusDir> devices = make<DeviceIntfStatusDir>("");
    Vela::Ptr<KernelNetInfo::Status> kernel =
        table<KernelNetInfo::Status>(KernelNetInfo::statusPath("default"));
    Vela::Ptr<NetNsIntfStatusManagerRoot> root =
        make<NetNsIntfStatusManagerRoot>(all, local, false);

    std::vector<uint32_t> seen;
    Vela::Reaction reaction = devices->deviceIntfStatusCollection().react(
        nullptr, [this](uint32_t ifIndex) { seen.push_back(ifIndex); });
};

TEST_F(NetNsIntfStatusManagerTest, takesUpWhatIsThere) {
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    deviceIs(1, "lo");
    runUntilIdle();
    managerIs();
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}})) << "at once";
    EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
    EXPECT_EQ(seen, std::vector<uint32_t>{7});
}

TEST_F(NetNsIntfStatusManagerTest, aDeviceAppearsAndDisappears) {
    managerIs();
    intfIs("Ethernet1", "et1");
    EXPECT_EQ(published(), Published());
    deviceIs(7, "et1");
    deviceIs(8, "et2");
    EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
    deviceDel(7);
    EXPECT_EQ(published(), Published());
    deviceIs(7, "et1");
    EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
    EXPECT_EQ(seen, (std::vector<uint32_t>{7, 7, 7}));
}

TEST_F(NetNsIntfStatusManagerTest, announcesOnlyWhatChanges) {
    managerIs();
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1", 0x3);
    runUntilIdle();
    deviceIs(7, "et1", 0x43);
    netNsIs("Ethernet1", "default");
    intfIs("Ethernet2", "et2");
    EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
    EXPECT_EQ(seen, std::vector<uint32_t>{7});
}

TEST_F(NetNsIntfStatusManagerTest, aDeviceIsRenamed) {
    managerIs();
    intfIs("Ethernet1", "et1");
    deviceIs(7, "eth0");
    EXPECT_EQ(published(), Published());
    deviceIs(7, "et1");
    EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
    deviceIs(7, "eth0");
    EXPECT_EQ(published(), Published());
    intfIs("Ethernet2", "et2");
    deviceIs(7, "et1");
    runUntilIdle();
    deviceIs(7, "et2");
    EXPECT_EQ(published(), (Published{{7, "Ethernet2 et2"}}));
}

TEST_F(NetNsIntfStatusManagerTest, devicesSwapTheirNames) {
    managerIs();
    intfIs("Ethernet1", "et1");
    intfIs("Ethernet2", "et2");
    for (bool atOnce : {false, true}) {
        deviceIs(7, "et1");
        deviceIs(8, "et2");
        EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}, {8, "Ethernet2 et2"}}));
        deviceIs(7, "et2");
        if (!atOnce) {
            EXPECT_EQ(published(), (Published{{7, "Ethernet2 et2"}}));
        }
        deviceIs(8, "et1");
        EXPECT_EQ(published(), (Published{{7, "Ethernet2 et2"}, {8, "Ethernet1 et1"}}));
    }
}

TEST_F(NetNsIntfStatusManagerTest, aDeviceIsRecreatedWithAnotherIndex) {
    managerIs();
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    runUntilIdle();
    deviceDel(7);
    deviceIs(8, "et1");
    EXPECT_EQ(published(), (Published{{8, "Ethernet1 et1"}}));
    deviceIs(9, "et1");
    deviceDel(8);
    EXPECT_EQ(published(), (Published{{9, "Ethernet1 et1"}}));
}

TEST_F(NetNsIntfStatusManagerTest, anInterfaceIsAddedAndRemoved) {
    managerIs();
    deviceIs(7, "et1");
    EXPECT_EQ(published(), Published());
    intfIs("Ethernet1", "et1");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    intfDel("Ethernet1");
    EXPECT_EQ(contents(*devices), Published());
    intfIs("Ethernet9", "et1");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet9 et1"}}));
    all->intfStatusDelAll();
    EXPECT_EQ(contents(*devices), Published());
}

TEST_F(NetNsIntfStatusManagerTest, anInterfaceGetsAnotherDevice) {
    managerIs();
    deviceIs(7, "et1");
    deviceIs(8, "et2");
    runUntilIdle();
    intfIs("Ethernet1", "");
    EXPECT_EQ(contents(*devices), Published());
    intfIs("Ethernet1", "et1");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    intfIs("Ethernet1", "et2");
    EXPECT_EQ(contents(*devices), (Published{{8, "Ethernet1 et2"}}));
    intfIs("Ethernet1", "et3");
    EXPECT_EQ(contents(*devices), Published());
    intfIs("Ethernet1", "");
    EXPECT_EQ(contents(*devices), Published());
}

TEST_F(NetNsIntfStatusManagerTest, interfacesSwapTheirDevices) {
    managerIs();
    deviceIs(7, "et1");
    deviceIs(8, "et2");
    intfIs("Ethernet1", "et1");
    intfIs("Ethernet2", "et2");
    runUntilIdle();
    intfIs("Ethernet1", "et2");
    intfIs("Ethernet2", "et1");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet2 et1"}, {8, "Ethernet1 et2"}}));
}

TEST_F(NetNsIntfStatusManagerTest, aDeviceThatTwoInterfacesNameGoesBackToTheOther) {
    managerIs();
    deviceIs(7, "et1");
    deviceIs(8, "et2");
    intfIs("Ethernet1", "et1");
    intfIs("Ethernet2", "et2");
    runUntilIdle();
    intfIs("Ethernet1", "et2");
    EXPECT_EQ(contents(*devices), (Published{{8, "Ethernet1 et2"}}));
    intfIs("Ethernet1", "et1");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}, {8, "Ethernet2 et2"}}));
    intfIs("Ethernet3", "et2");
    intfDel("Ethernet3");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}, {8, "Ethernet2 et2"}}));
}

TEST_F(NetNsIntfStatusManagerTest, anInterfaceMovesToAnotherNamespaceAndBack) {
    managerIs();
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
    netNsIs("Ethernet1", "ns-red");
    EXPECT_EQ(contents(*devices), Published());
    netNsIs("Ethernet1", "default");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    netNsIs("Ethernet1", "ns-red");
    local->intfStatusLocalDel(IntfId("Ethernet1"));
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    netNsIs("Ethernet1", "ns-red");
    netNsIs("Ethernet1", "");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}})) << "while it is unknown";
}

TEST_F(NetNsIntfStatusManagerTest, theNamespaceMayBeKnownBeforeTheInterface) {
    managerIs();
    deviceIs(7, "et1");
    runUntilIdle();
    netNsIs("Ethernet1", "ns-red");
    intfIs("Ethernet1", "et1");
    EXPECT_EQ(contents(*devices), Published());
    intfDel("Ethernet1");
    netNsIs("Ethernet1", "default");
    EXPECT_EQ(contents(*devices), Published());
    intfIs("Ethernet1", "et1");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    netNsIs("Ethernet1", "ns-red");
    EXPECT_EQ(contents(*devices), Published());
}

TEST_F(NetNsIntfStatusManagerTest, withoutALocalDirectoryAllAreInTheDefaultNamespace) {
    auto alone = make<NetNsIntfStatusManagerRoot>(all, nullptr, false);
    alone->intfStatusManagerIs(devices, kernel, "default");
    netNsIs("Ethernet1", "ns-red");
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
}

TEST_F(NetNsIntfStatusManagerTest, twoNamespacesHaveTheirOwnDevices) {
    auto redKernel = table<KernelNetInfo::Status>(KernelNetInfo::statusPath("ns-red"));
    auto redDevices = make<DeviceIntfStatusDir>("red");
    managerIs();
    root->intfStatusManagerIs(redDevices, redKernel, "ns-red");
    deviceIs(7, "et1");
    deviceIs(8, "et2");
    redKernel->interfaceIs({7, "et1", 0x40, Zinc::EthAddr()});
    redKernel->interfaceIs({9, "et2", 0x40, Zinc::EthAddr()});
    intfIs("Ethernet1", "et1");
    intfIs("Ethernet2", "et2");
    netNsIs("Ethernet2", "ns-red");
    EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
    EXPECT_EQ(contents(*redDevices), (Published{{9, "Ethernet2 et2"}}));
    netNsIs("Ethernet1", "ns-red");
    netNsIs("Ethernet2", "default");
    EXPECT_EQ(published(), (Published{{8, "Ethernet2 et2"}}));
    EXPECT_EQ(contents(*redDevices), (Published{{7, "Ethernet1 et1"}}));
    root->intfStatusManagerDel("ns-red");
    EXPECT_EQ(contents(*redDevices), Published());
    EXPECT_EQ(published(), (Published{{8, "Ethernet2 et2"}}));
}

TEST_F(NetNsIntfStatusManagerTest, aKernelOnlyInterface) {
    auto manager = managerIs();
    manager->kernelOnlyInterfaceIs("cpu", "Cpu");
    EXPECT_EQ(published(), Published());
    deviceIs(3, "cpu");
    deviceIs(4, "Cpu");
    EXPECT_EQ(published(), (Published{{3, "Cpu cpu"}}));
    manager->kernelOnlyInterfaceIs("lo", "Loopback");
    deviceIs(1, "lo");
    EXPECT_EQ(published(), (Published{{1, "Loopback lo"}, {3, "Cpu cpu"}}));
    deviceDel(3);
    EXPECT_EQ(published(), (Published{{1, "Loopback lo"}}));
}

TEST_F(NetNsIntfStatusManagerTest, aKernelOnlyInterfaceWhoseDeviceIsThere) {
    auto manager = managerIs();
    deviceIs(3, "cpu");
    EXPECT_EQ(published(), Published());
    manager->kernelOnlyInterfaceIs("cpu", "Cpu");
    EXPECT_EQ(contents(*devices), (Published{{3, "Cpu cpu"}}));
    intfIs("Management0", "cpu");
    EXPECT_EQ(contents(*devices), (Published{{3, "Management0 cpu"}})) << "it is known after all";
    intfDel("Management0");
    EXPECT_EQ(contents(*devices), (Published{{3, "Cpu cpu"}}));
}

TEST_F(NetNsIntfStatusManagerTest, everyDevice) {
    auto every = make<NetNsIntfStatusManagerRoot>(all, local, true);
    auto manager = every->intfStatusManagerIs(devices, kernel, "default");
    manager->kernelOnlyInterfaceIs("cpu", "Cpu");
    intfIs("Ethernet1", "et1");
    deviceIs(1, "lo");
    deviceIs(3, "cpu");
    deviceIs(7, "et1");
    EXPECT_EQ(published(), (Published{{1, "lo lo"}, {3, "Cpu cpu"}, {7, "Ethernet1 et1"}}));
    intfDel("Ethernet1");
    EXPECT_EQ(published(), (Published{{1, "lo lo"}, {3, "Cpu cpu"}, {7, "et1 et1"}}));
    deviceIs(1, "lo0");
    deviceDel(7);
    EXPECT_EQ(published(), (Published{{1, "lo0 lo0"}, {3, "Cpu cpu"}}));
}

TEST_F(NetNsIntfStatusManagerTest, itsEntriesGoWithIt) {
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    devices->deviceIntfStatusIs(99, {IntfId("Another"), "theirs"});
    auto manager = managerIs();
    manager->kernelOnlyInterfaceIs("cpu", "Cpu");
    deviceIs(3, "cpu");
    runUntilIdle();
    EXPECT_EQ(contents(*devices).size(), 3u);
    root->intfStatusManagerDel("default");
    EXPECT_TRUE(manager->destroyed());
    EXPECT_FALSE(root->intfStatusManager("default"));
    EXPECT_EQ(contents(*devices), (Published{{99, "Another theirs"}}));
    intfIs("Ethernet1", "et2");
    netNsIs("Ethernet1", "default");
    deviceIs(8, "et2");
    EXPECT_EQ(published(), (Published{{99, "Another theirs"}}));
    root->intfStatusManagerDel("default");
}

TEST_F(NetNsIntfStatusManagerTest, theRootEndsAll) {
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    runUntilIdle();
    auto manager = managerIs();
    EXPECT_EQ(root->intfStatusManager("default"), manager);
    EXPECT_FALSE(root->intfStatusManager("ns-red"));
    root->destroy();
    EXPECT_TRUE(manager->destroyed());
    EXPECT_EQ(contents(*devices), Published());
}

TEST_F(NetNsIntfStatusManagerTest, anotherOneForTheNamespaceTakesItsPlace) {
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    runUntilIdle();
    auto first = managerIs();
    auto second = managerIs();
    EXPECT_TRUE(first->destroyed());
    EXPECT_EQ(root->intfStatusManager("default"), second);
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    deviceDel(7);
    EXPECT_EQ(published(), Published());
}

TEST_F(NetNsIntfStatusManagerTest, withoutKernelStatusNothingIsPublished) {
    intfIs("Ethernet1", "et1");
    root->intfStatusManagerIs(devices, nullptr, "default")->kernelOnlyInterfaceIs("cpu", "Cpu");
    EXPECT_EQ(published(), Published());
}

// Who has reacted before it may put another object in the place of one that goes: it then hears
// first of the new one, and then of the old one's end.
TEST_F(NetNsIntfStatusManagerTest, anInterfaceWhoseObjectIsReplacedIsFollowed) {
    Vela::Reaction replacing = all->intfStatusCollection().react(nullptr, [&](IntfId intfId) {
        if (!all->intfStatus(intfId)) {
            all->intfStatusIs(intfId)->deviceNameIs("et2");
        }
    });
    managerIs();
    deviceIs(7, "et1");
    deviceIs(8, "et2");
    runUntilIdle();
    intfIs("Ethernet1", "et1");
    auto old = all->intfStatus(IntfId("Ethernet1")); // somebody keeps it
    intfDel("Ethernet1");
    ASSERT_NE(all->intfStatus(IntfId("Ethernet1")), old);
    EXPECT_EQ(contents(*devices), (Published{{8, "Ethernet1 et2"}}));
    intfIs("Ethernet1", "et1");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    old->deviceNameIs("et2");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    replacing.clear();
}

TEST_F(NetNsIntfStatusManagerTest, aLocalEntryWhoseObjectIsReplacedIsFollowed) {
    Vela::Reaction replacing =
        local->intfStatusLocalCollection().react(nullptr, [&](IntfId intfId) {
            if (!local->intfStatusLocal(intfId)) {
                local->intfStatusLocalIs(intfId)->netNsIs("ns-red");
            }
        });
    managerIs();
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    runUntilIdle();
    netNsIs("Ethernet1", "default");
    auto old = local->intfStatusLocal(IntfId("Ethernet1"));
    local->intfStatusLocalDel(IntfId("Ethernet1"));
    ASSERT_NE(local->intfStatusLocal(IntfId("Ethernet1")), old);
    EXPECT_EQ(contents(*devices), Published());
    netNsIs("Ethernet1", "default");
    EXPECT_EQ(contents(*devices), (Published{{7, "Ethernet1 et1"}}));
    netNsIs("Ethernet1", "ns-red");
    EXPECT_EQ(contents(*devices), Published());
    replacing.clear();
}

TEST_F(NetNsIntfStatusManagerTest, aReactionMayEndItAtAnyStep) {
    for (uint32_t step = 1; step <= 2; ++step) {
        managerIs();
        intfIs("Ethernet1", "et1");
        deviceIs(7, "et1");
        deviceIs(8, "et2");
        EXPECT_EQ(published(), (Published{{7, "Ethernet1 et1"}}));
        uint32_t steps = 0;
        auto ending = devices->deviceIntfStatusCollection().react(nullptr, [&](uint32_t) {
            if (++steps == step) {
                root->intfStatusManagerDel("default");
            }
        });
        intfIs("Ethernet1", "et2"); // first 7 goes, then 8 comes
        EXPECT_FALSE(root->intfStatusManager("default"));
        EXPECT_EQ(published(), Published()) << "ended at step " << step;
        ending.clear();
    }
}

TEST_F(NetNsIntfStatusManagerTest, aReactionToTheKernelMayEndIt) {
    managerIs()->kernelOnlyInterfaceIs("cpu", "Cpu");
    deviceIs(3, "cpu");
    runUntilIdle();
    auto ending = devices->deviceIntfStatusCollection().react(
        nullptr, [&](uint32_t) { root->intfStatusManagerDel("default"); });
    deviceDel(3);
    deviceIs(4, "cpu");
    EXPECT_EQ(published(), Published());
    EXPECT_FALSE(root->intfStatusManager("default"));
    ending.clear();
}

TEST_F(NetNsIntfStatusManagerTest, aReactionMayGiveTheInterfaceYetAnotherDevice) {
    managerIs();
    deviceIs(7, "et1");
    deviceIs(8, "et2");
    deviceIs(9, "et3");
    intfIs("Ethernet1", "et1");
    runUntilIdle();
    bool once = true;
    auto changing = devices->deviceIntfStatusCollection().react(nullptr, [&](uint32_t ifIndex) {
        if (ifIndex == 7 && std::exchange(once, false)) {
            intfIs("Ethernet1", "et3");
        }
    });
    intfIs("Ethernet1", "et2");
    EXPECT_EQ(published(), (Published{{9, "Ethernet1 et3"}}));
    changing.clear();
}

TEST_F(NetNsIntfStatusManagerTest, dumps) {
    auto manager = managerIs();
    intfIs("Ethernet1", "et1");
    deviceIs(7, "et1");
    runUntilIdle();
    EXPECT_EQ(dump(*root), "Interface::NetNsIntfStatusManagerRoot\n"
                           "  Interface::NetNsIntfStatusManager default\n"
                           "    Interface::DeviceIntfStatusDir\n"
                           "      name=\n"
                           "      deviceIntfStatus[] #1\n"
                           "        7 -> <intfId=Ethernet1 deviceName=et1>\n"
                           "    KernelNetInfo::InterfaceInfo\n"
                           "      KernelNetInfo::Root\n"
                           "        interfaceByDeviceName[] #1\n"
                           "        et1 ifIndex=7 flags=0x40\n");
    std::ostringstream out;
    manager->formatTraceObject(out);
    EXPECT_EQ(out.str(), "Interface::NetNsIntfStatusManager(default)");
}

} // namespace

} // namespace Interface
