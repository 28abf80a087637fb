#include "Platform/Model/Interface/DeviceIntfStatus.h"
#include "Platform/Model/Interface/IntfStatus.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/State/test/StateFixture.h"
#include "Platform/Value/test/ExpectForms.h"

namespace Interface {
namespace {

using Vela::make;
using Zinc::IntfId;

class InterfaceStatusTest : public Vela::StateFixture {
  protected:
    const IntfId ethernet1_{"Ethernet1"};
    const IntfId ethernet2_{"Ethernet2"};
};

TEST_F(InterfaceStatusTest, Interfaces) {
    auto intf = make<IntfStatus>(ethernet1_);
    EXPECT_EQ(intf->deviceName(), "");
    expectAttribute(*intf, &IntfStatus::deviceNameAttribute, &IntfStatus::deviceName,
                    &IntfStatus::deviceNameIs, "et1");
    auto local = make<IntfStatusLocal>(ethernet1_);
    EXPECT_EQ(local->netNs(), "");
    expectAttribute(*local, &IntfStatusLocal::netNsAttribute, &IntfStatusLocal::netNs,
                    &IntfStatusLocal::netNsIs, "ns-red");
}

TEST_F(InterfaceStatusTest, Directories) {
    auto all = make<AllIntfStatusDir>("AllIntfStatusDir");
    EXPECT_EQ(all->name(), "AllIntfStatusDir");
    expectChildren(*all, &AllIntfStatusDir::intfStatusCollection, &AllIntfStatusDir::intfStatus,
                   &AllIntfStatusDir::intfStatusIs, &AllIntfStatusDir::intfStatusDel,
                   &AllIntfStatusDir::intfStatusDelAll, &IntfStatus::intfId, ethernet1_,
                   ethernet2_);
    auto local = make<AllIntfStatusLocalDir>("AllIntfStatusLocalDir");
    EXPECT_EQ(local->name(), "AllIntfStatusLocalDir");
    expectChildren(
        *local, &AllIntfStatusLocalDir::intfStatusLocalCollection,
        &AllIntfStatusLocalDir::intfStatusLocal, &AllIntfStatusLocalDir::intfStatusLocalIs,
        &AllIntfStatusLocalDir::intfStatusLocalDel, &AllIntfStatusLocalDir::intfStatusLocalDelAll,
        &IntfStatusLocal::intfId, ethernet1_, ethernet2_);
}

TEST_F(InterfaceStatusTest, DeviceIntfStatusForms) {
    const DeviceIntfStatus status(ethernet1_, "et1");
    EXPECT_EQ(status.intfId(), ethernet1_);
    EXPECT_EQ(status.deviceName(), "et1");
    EXPECT_EQ(status, DeviceIntfStatus(ethernet1_, "et1"));
    EXPECT_NE(status, DeviceIntfStatus(ethernet2_, "et1"));
    EXPECT_NE(status, DeviceIntfStatus(ethernet1_, "et2"));
    EXPECT_NE(status, DeviceIntfStatus());
    EXPECT_EQ(status.toStrep(), "<intfId=Ethernet1 deviceName=et1>");
    expectValueForm(status, "Value('Interface::DeviceIntfStatus', ** {'intfId': 'Ethernet1', "
                            "'deviceName': 'et1'})");
    expectValueForm(DeviceIntfStatus(ethernet1_, "a'b\n"),
                    "Value('Interface::DeviceIntfStatus', ** {'intfId': 'Ethernet1', "
                    "'deviceName': 'a\\'b\\n'})");
    expectValueForm(DeviceIntfStatus(),
                    "Value('Interface::DeviceIntfStatus', ** {'intfId': '', 'deviceName': ''})");
    expectNoValueForm<DeviceIntfStatus>(
        {"Value('Interface::DeviceIntfStatus', ** {'intfId': '', 'deviceName': et1})",
         "Value('Interface::DeviceIntfStatus', ** {'deviceName': 'et1'})"});
}

TEST_F(InterfaceStatusTest, Devices) {
    auto dir = make<DeviceIntfStatusDir>("");
    EXPECT_EQ(dir->name(), "");
    EXPECT_EQ(dir->deviceIntfStatus(7), DeviceIntfStatus());
    expectValues(*dir, &DeviceIntfStatusDir::deviceIntfStatusCollection,
                 &DeviceIntfStatusDir::deviceIntfStatusIs,
                 &DeviceIntfStatusDir::deviceIntfStatusDel,
                 &DeviceIntfStatusDir::deviceIntfStatusDelAll, 7, 0x80000000,
                 DeviceIntfStatus(ethernet1_, "et1"), DeviceIntfStatus(ethernet1_, "et1b"));
    dir->deviceIntfStatusIs(7, {ethernet1_, "et1"});
    EXPECT_EQ(dir->deviceIntfStatus(7).deviceName(), "et1");
    EXPECT_EQ(dir->deviceIntfStatus(8), DeviceIntfStatus());
    EXPECT_EQ(dir->deviceIntfStatusCollection().count(), 1u) << "a look-up adds nothing";
}

TEST_F(InterfaceStatusTest, Dump) {
    auto all = make<AllIntfStatusDir>("AllIntfStatusDir");
    all->intfStatusIs(ethernet1_)->deviceNameIs("et1");
    EXPECT_EQ(dump(*all, 2), "  Interface::AllIntfStatusDir\n"
                             "    name=AllIntfStatusDir\n"
                             "    intfStatus[] #1\n"
                             "      Interface::IntfStatus Ethernet1\n"
                             "        deviceName=et1\n");
    auto local = make<AllIntfStatusLocalDir>("AllIntfStatusLocalDir");
    local->intfStatusLocalIs(ethernet1_)->netNsIs("ns-red");
    EXPECT_EQ(dump(*local), "Interface::AllIntfStatusLocalDir\n"
                            "  name=AllIntfStatusLocalDir\n"
                            "  intfStatusLocal[] #1\n"
                            "    Interface::IntfStatusLocal Ethernet1\n"
                            "      netNs=ns-red\n");
    auto devices = make<DeviceIntfStatusDir>("");
    devices->deviceIntfStatusIs(10, {ethernet2_, "et2"});
    devices->deviceIntfStatusIs(9, {ethernet1_, "et1"});
    EXPECT_EQ(dump(*devices), "Interface::DeviceIntfStatusDir\n"
                              "  name=\n"
                              "  deviceIntfStatus[] #2\n"
                              "    9 -> <intfId=Ethernet1 deviceName=et1>\n"
                              "    10 -> <intfId=Ethernet2 deviceName=et2>\n");
}

TEST_F(InterfaceStatusTest, TracesTellThemApart) {
    std::ostringstream out;
    make<AllIntfStatusDir>("all")->formatTraceObject(out);
    make<IntfStatus>(ethernet1_)->formatTraceObject(out);
    make<AllIntfStatusLocalDir>("local")->formatTraceObject(out);
    make<IntfStatusLocal>(ethernet1_)->formatTraceObject(out);
    make<DeviceIntfStatusDir>("devices")->formatTraceObject(out);
    EXPECT_EQ(out.str(), "Interface::AllIntfStatusDir(all)Interface::IntfStatus(Ethernet1)"
                         "Interface::AllIntfStatusLocalDir(local)"
                         "Interface::IntfStatusLocal(Ethernet1)"
                         "Interface::DeviceIntfStatusDir(devices)");
}

} // namespace
} // namespace Interface
