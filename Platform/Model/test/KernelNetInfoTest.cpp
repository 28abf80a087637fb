#include "Platform/Model/KernelNetInfo/InterfaceInfo.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/Model/test/TableFixture.h"
#include "Platform/Value/test/ExpectForms.h"

#include <map>

namespace KernelNetInfo {

namespace {

using Zinc::EthAddr;
using Devices = std::map<std::string, uint32_t>;

const EthAddr mac("02:00:00:00:00:0a");

class KernelNetInfoTest : public TableFixture {
  protected:
    bool is(uint32_t ifIndex, const std::string& name, uint32_t flags = 0x40) {
        return status->interfaceIs({ifIndex, name, flags, mac});
    }
    /// The indices by name.
    Devices devices() {
        runUntilIdle();
        Devices all;
        for (auto cursor = root().interfaceByDeviceNameCollection().first(); cursor; ++cursor) {
            EXPECT_EQ(cursor.value().deviceName(), cursor.key());
            all[cursor.key()] = cursor.value().key.value;
        }
        return all;
    }
    const Root& root() const { return *info->root(); }

    Vela::Ptr<Status> status = table<Status>(statusPath("default"));
    Vela::Ptr<InterfaceInfo> info = Vela::make<InterfaceInfo>(status);
    std::vector<std::string> seen;
    Vela::Reaction reaction = root().interfaceByDeviceNameCollection().react(
        nullptr, [this](const std::string& name) { seen.push_back(name); });
};

TEST_F(KernelNetInfoTest, paths) {
    EXPECT_EQ(statusPath("default"), "kni/ns/default/status");
    EXPECT_EQ(status->path(), "kni/ns/default/status");
    EXPECT_STREQ(status->typeName(), "KernelNetInfo::Status");
}

TEST_F(KernelNetInfoTest, aRecordHoldsAnInterface) {
    EXPECT_EQ(sizeof(InterfaceStatus), 32u);
    const InterfaceStatus et1(7, "et1", 0x11043, mac);
    EXPECT_EQ(et1.key.value, 7u);
    EXPECT_EQ(et1.deviceName(), "et1");
    EXPECT_EQ(et1.flags, 0x11043u);
    EXPECT_EQ(et1.macAddress, mac);
    EXPECT_EQ(et1, InterfaceStatus(7, "et1", 0x11043, mac));
    EXPECT_NE(et1, InterfaceStatus(8, "et1", 0x11043, mac));
    EXPECT_NE(et1, InterfaceStatus(7, "et2", 0x11043, mac));
    EXPECT_NE(et1, InterfaceStatus(7, "et1", 0x11003, mac));
    EXPECT_NE(et1, InterfaceStatus(7, "et1", 0x11043, EthAddr()));
    EXPECT_EQ(InterfaceStatus().key.value, 0u);
    EXPECT_EQ(InterfaceStatus().deviceName(), "");
}

TEST_F(KernelNetInfoTest, namesAreAsLongAsTheKernelAllows) {
    EXPECT_EQ(InterfaceStatus(7, "123456789012345", 0, mac).deviceName(), "123456789012345");
    expectRangeError([] { InterfaceStatus(7, "1234567890123456", 0, mac); },
                     "KernelNetInfo::InterfaceStatus::name > 15 bytes not allowed");
}

TEST_F(KernelNetInfoTest, runningIsOneFlag) {
    EXPECT_FALSE(InterfaceStatus().running());
    for (unsigned bit = 0; bit < 32; ++bit) {
        EXPECT_EQ(InterfaceStatus(7, "et1", 1u << bit, mac).running(), bit == 6) << bit;
    }
    EXPECT_FALSE(InterfaceStatus(7, "et1", ~0x40u, mac).running());
}

TEST_F(KernelNetInfoTest, holdsInterfaces) {
    expectRecords(
        status->interfaceCollection(), InterfaceStatus(7, "et1", 0, mac),
        InterfaceStatus(7, "et1", 0x40, mac), InterfaceStatus(8, "et2", 0, mac),
        [&](const auto& record) { return status->interfaceIs(record); },
        [&](const auto& key) { return status->interfaceDel(key.value); }, [&] { runUntilIdle(); });
}

TEST_F(KernelNetInfoTest, takesUpTheInterfacesThatAreThere) {
    is(1, "lo");
    is(7, "et1");
    auto later = Vela::make<InterfaceInfo>(status);
    EXPECT_EQ(later->root()->interfaceByDeviceName("lo").key.value, 1u);
    EXPECT_EQ(later->root()->interfaceByDeviceName("et1").key.value, 7u);
    EXPECT_EQ(later->root()->interfaceByDeviceNameCollection().count(), 2u);
}

TEST_F(KernelNetInfoTest, followsTheTableThroughTheLoop) {
    is(7, "et1");
    EXPECT_EQ(root().interfaceByDeviceName("et1"), InterfaceStatus());
    EXPECT_EQ(devices(), (Devices{{"et1", 7}}));
    status->interfaceDel(7);
    EXPECT_EQ(devices(), Devices());
    EXPECT_EQ(seen, (std::vector<std::string>{"et1", "et1"}));
    EXPECT_EQ(root().interfaceByDeviceName("et1"), InterfaceStatus());
}

TEST_F(KernelNetInfoTest, followsTheRunningFlag) {
    is(7, "et1", 0x3);
    runUntilIdle();
    EXPECT_FALSE(root().interfaceByDeviceName("et1").running());
    is(7, "et1", 0x43);
    runUntilIdle();
    EXPECT_TRUE(root().interfaceByDeviceName("et1").running());
    EXPECT_EQ(seen, (std::vector<std::string>{"et1", "et1"}));
    is(7, "et1", 0x43);
    runUntilIdle();
    EXPECT_EQ(seen.size(), 2u) << "nothing has changed";
}

TEST_F(KernelNetInfoTest, anInterfaceIsRenamed) {
    is(7, "et1");
    runUntilIdle();
    is(7, "et2");
    EXPECT_EQ(devices(), (Devices{{"et2", 7}}));
    EXPECT_EQ(seen, (std::vector<std::string>{"et1", "et1", "et2"}));
    is(7, "et3");
    is(7, "et1");
    EXPECT_EQ(devices(), (Devices{{"et1", 7}}));
    status->interfaceDel(7);
    EXPECT_EQ(devices(), Devices());
}

TEST_F(KernelNetInfoTest, twoInterfacesSwapTheirNames) {
    is(7, "et1");
    is(8, "et2");
    runUntilIdle();
    is(7, "et2");
    is(8, "et1");
    EXPECT_EQ(devices(), (Devices{{"et1", 8}, {"et2", 7}}));
    // As the kernel does it, step by step.
    for (auto [ifIndex, name] : {std::pair(8, "spare"), {7, "et1"}, {8, "et2"}}) {
        is(ifIndex, name);
        runUntilIdle();
    }
    EXPECT_EQ(devices(), (Devices{{"et1", 7}, {"et2", 8}}));
}

TEST_F(KernelNetInfoTest, anInterfaceIsRecreatedWithAnotherIndex) {
    for (bool atOnce : {false, true}) {
        for (bool deletedFirst : {false, true}) {
            is(7, "et1");
            runUntilIdle();
            auto step = [&](bool deletion) {
                deletion ? status->interfaceDel(7) : is(8, "et1");
                if (!atOnce) {
                    runUntilIdle();
                }
            };
            step(deletedFirst);
            step(!deletedFirst);
            EXPECT_EQ(devices(), (Devices{{"et1", 8}}))
                << "at once " << atOnce << " deleted first " << deletedFirst;
            status->interfaceDel(8);
            EXPECT_EQ(devices(), Devices());
        }
    }
}

TEST_F(KernelNetInfoTest, anIndexIsTakenByAnotherInterface) {
    is(7, "et1");
    runUntilIdle();
    status->interfaceDel(7);
    is(7, "et2");
    EXPECT_EQ(devices(), (Devices{{"et2", 7}}));
}

TEST_F(KernelNetInfoTest, aNameThatTwoHaveForAWhileGoesBackToTheOther) {
    is(7, "et1");
    is(8, "et2");
    runUntilIdle();
    is(7, "et2"); // whoever reads the kernel may have missed where the other went
    EXPECT_EQ(devices(), (Devices{{"et2", 7}}));
    is(7, "et1");
    EXPECT_EQ(devices(), (Devices{{"et1", 7}, {"et2", 8}}));
    is(9, "et2");
    EXPECT_EQ(devices(), (Devices{{"et1", 7}, {"et2", 9}}));
    status->interfaceDel(9);
    EXPECT_EQ(devices(), (Devices{{"et1", 7}, {"et2", 8}}));
    status->interfaceDel(8);
    EXPECT_EQ(devices(), (Devices{{"et1", 7}}));
}

TEST_F(KernelNetInfoTest, whatComesAndGoesBetweenTwoTurnsIsNotSeen) {
    is(7, "et1");
    status->interfaceDel(7);
    EXPECT_EQ(devices(), Devices());
    EXPECT_TRUE(seen.empty());
}

TEST_F(KernelNetInfoTest, withoutAStatusThereAreNone) {
    auto none = Vela::make<InterfaceInfo>(nullptr);
    EXPECT_EQ(none->root()->interfaceByDeviceNameCollection().count(), 0u);
    EXPECT_EQ(none->root()->interfaceByDeviceName("et1"), InterfaceStatus());
}

TEST_F(KernelNetInfoTest, afterItsEndNothingIsFollowed) {
    is(7, "et1");
    runUntilIdle();
    auto kept = info->root();
    info->destroy();
    is(8, "et2");
    runUntilIdle();
    EXPECT_FALSE(kept->interfaceByDeviceNameCollection().has("et2"));
}

TEST_F(KernelNetInfoTest, aReactionMayEndIt) {
    is(7, "et1");
    runUntilIdle();
    auto ending = info->root()->interfaceByDeviceNameCollection().react(
        nullptr, [&](const std::string&) { info.reset(); });
    is(7, "et2");
    reaction.clear();
    runUntilIdle();
    EXPECT_FALSE(info);
}

TEST_F(KernelNetInfoTest, dumps) {
    is(8, "et2", 0);
    is(7, "et1", 0x43);
    runUntilIdle();
    EXPECT_EQ(dump(*info), "KernelNetInfo::InterfaceInfo\n"
                           "  KernelNetInfo::Root\n"
                           "    interfaceByDeviceName[] #2\n"
                           "    et1 ifIndex=7 flags=0x43\n"
                           "    et2 ifIndex=8 flags=0\n");
}

} // namespace

} // namespace KernelNetInfo
