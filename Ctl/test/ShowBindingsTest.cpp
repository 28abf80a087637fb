#include "Ctl/ShowBindings.h"

#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"
#include "Platform/Quarry/TableFormat.h"
#include "Platform/Quarry/TableService.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"

#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace Ctl {
namespace {

namespace fs = std::filesystem;
using ArpSuppression::RemoteBindingConfig;
using Bridging::VlanId;
using Zinc::IpGenAddr;

constexpr const char* path = "arpSuppression/remoteBindingConfig/evpn";

class ShowBindingsTest : public Testing::CoreFixture {
  protected:
    ~ShowBindingsTest() override {
        group_->destroy();
        service_->destroy();
    }

    /// What the daemon does.
    void mount() {
        group_->mount<RemoteBindingConfig>(path, Quarry::MountType::writer,
                                           {{"remoteBinding", 100'000, true}});
        bindings_ = group_->entity<RemoteBindingConfig>(path);
        ASSERT_TRUE(bindings_);
        bindings_->completeIs(true);
    }
    void bind(unsigned vlan, const char* ip, const char* mac = "02:00:00:00:00:01",
              bool vxlan = false, bool localMultihomed = false) {
        ASSERT_TRUE(bindings_->remoteBindingIs(
            {{VlanId(vlan), IpGenAddr(ip)}, Zinc::EthAddr(mac), vxlan, localMultihomed}));
    }
    std::string file() const { return directory_.path() + "/tables/" + path + "/remoteBinding"; }

    int show() {
        out_.str("");
        errors_.str("");
        return showRemoteBindings(request_, out_, errors_);
    }
    boost::json::array rows() {
        request_.json = true;
        EXPECT_EQ(show(), 0);
        return boost::json::parse(out_.str()).as_array();
    }

    Testing::TemporaryDirectory directory_;
    Vela::Ptr<Quarry::TableService> service_ =
        Vela::make<Quarry::TableService>(scheduler(), directory_.path() + "/tables");
    Vela::Ptr<Quarry::MountGroup> group_ = service_->mountGroup();
    Vela::Ptr<RemoteBindingConfig> bindings_;
    RemoteBindingsRequest request_{.runtimeDirectory = directory_.path()};
    std::ostringstream out_;
    std::ostringstream errors_;
};

TEST_F(ShowBindingsTest, ByVlanAndAddress) {
    mount();
    bind(20, "10.0.0.9", "02:00:00:00:00:09");
    bind(10, "10.0.0.100", "02:00:00:00:00:0a", true);
    bind(10, "10.0.0.9", "02:00:00:00:00:0b", false, true);
    bind(4094, "9.0.0.1", "02:00:00:00:00:0c", true, true);
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(out_.str(), "  10 10.0.0.9        02:00:00:00:00:0b localMultihomed\n"
                          "  10 10.0.0.100      02:00:00:00:00:0a vxlan\n"
                          "  20 10.0.0.9        02:00:00:00:00:09\n"
                          "4094 9.0.0.1         02:00:00:00:00:0c vxlan localMultihomed\n");
    EXPECT_EQ(errors_.str(), "");
}

TEST_F(ShowBindingsTest, Ipv6ComesAfterIpv4AndMakesRoom) {
    mount();
    bind(10, "2001:db8::1");
    bind(10, "203.0.113.255");
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(out_.str(), "  10 203.0.113.255                           02:00:00:00:00:01\n"
                          "  10 2001:db8::1                             02:00:00:00:00:01\n");
}

TEST_F(ShowBindingsTest, AsJson) {
    mount();
    bind(20, "2001:db8::9", "02:00:00:00:00:09", true, true);
    bind(10, "10.0.0.1", "02:00:00:00:00:0a");
    EXPECT_EQ(boost::json::value(rows()), boost::json::parse(R"([
        {"vlan":10,"ip":"10.0.0.1","mac":"02:00:00:00:00:0a","vxlan":false,
         "localMultihomed":false},
        {"vlan":20,"ip":"2001:db8::9","mac":"02:00:00:00:00:09","vxlan":true,
         "localMultihomed":true}])"));
    EXPECT_EQ(errors_.str(), "");
    request_.vlanId = VlanId(30);
    EXPECT_EQ(rows().size(), 0u);
    EXPECT_EQ(out_.str(), "[]\n");
}

TEST_F(ShowBindingsTest, OfOneVlan) {
    mount();
    bind(10, "10.0.0.1");
    bind(10, "2001:db8::1");
    bind(11, "10.0.0.1");
    request_.vlanId = VlanId(10);
    EXPECT_EQ(rows().size(), 2u);
    EXPECT_EQ(out_.str().find("\"vlan\":11"), std::string::npos);
    request_.json = false;
    request_.vlanId = VlanId(12);
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(out_.str(), "");
    EXPECT_EQ(errors_.str(), "note: there is no remote binding on VLAN 12\n");
}

TEST_F(ShowBindingsTest, OfOneAddress) {
    mount();
    bind(1, "10.0.0.1");
    bind(10, "10.0.0.1");
    bind(4094, "10.0.0.1");
    bind(10, "10.0.0.2");
    request_.address = IpGenAddr("10.0.0.1");
    auto found = rows();
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0].at("vlan"), 1);
    EXPECT_EQ(found[2].at("vlan"), 4094);
    request_.vlanId = VlanId(10);
    found = rows();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].at("vlan"), 10);
    request_.json = false;
    request_.address = IpGenAddr("10.0.0.3");
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(errors_.str(), "note: there is no remote binding of 10.0.0.3 on VLAN 10\n");
}

TEST_F(ShowBindingsTest, GreatNumbersAreAllThereInOrder) {
    mount();
    constexpr unsigned count = 20'000;
    for (unsigned i = 0; i < count; ++i) {
        unsigned scattered = i * 7919 % count;
        ASSERT_TRUE(bindings_->remoteBindingIs(
            {{VlanId(1 + scattered / 5000), IpGenAddr(0x0a000000 + scattered % 5000)},
             Zinc::EthAddr("02:00:00:00:00:01"),
             0,
             0}));
    }
    const auto all = rows();
    ASSERT_EQ(all.size(), count);
    for (unsigned i = 0; i < count; ++i) {
        ASSERT_EQ(all[i].at("vlan"), 1 + i / 5000);
        ASSERT_EQ(boost::json::value_to<std::string>(all[i].at("ip")),
                  IpGenAddr(0x0a000000 + i % 5000).toStrep());
    }
}

TEST_F(ShowBindingsTest, SaysWhatKindOfTableItIs) {
    mount();
    bindings_->completeIs(false);
    bind(10, "10.0.0.1");
    EXPECT_EQ(show(), 0);
    EXPECT_EQ(errors_.str(), "note: the table is still being filled\n");
    bindings_.reset();
    group_->unmount(path);
    EXPECT_EQ(show(), 0);
    EXPECT_NE(out_.str(), "");
    EXPECT_EQ(errors_.str(),
              "note: arpsupd has stopped; these are its remote bindings at the end\n");
}

TEST_F(ShowBindingsTest, WithoutATableOrWithSomethingElse) {
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(errors_.str(), "error: there is no table of remote bindings: no arpsupd has run in " +
                                 directory_.path() + "\n");
    fs::create_directories(fs::path(file()).parent_path());
    std::ofstream(file()) << std::string(10000, 'x');
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(errors_.str(), "error: " + file() + ": is no table\n");
    EXPECT_EQ(out_.str(), "");
}

TEST_F(ShowBindingsTest, OfADamagedTableWhatCanBeRead) {
    mount();
    for (unsigned i = 0; i < 100; ++i) {
        bind(10, ("10.0.0." + std::to_string(i)).c_str());
    }
    // A link to nowhere at the head of every bucket but the first.
    std::fstream stream(file(), std::ios::in | std::ios::out | std::ios::binary);
    for (size_t bucket = 1; bucket < 64; ++bucket) {
        stream.seekp(static_cast<std::streamoff>(Quarry::Format::bucketsOffset + bucket * 4));
        stream.write("\xff\xff\xff\x7e", 4);
    }
    ASSERT_TRUE(stream.flush());
    request_.json = true;
    EXPECT_EQ(show(), 1);
    EXPECT_EQ(errors_.str(), "error: not all remote bindings can be read: the table is damaged\n");
    EXPECT_LT(boost::json::parse(out_.str()).as_array().size(), 100u);
}

TEST_F(ShowBindingsTest, AFullOutputFails) {
    mount();
    bind(10, "10.0.0.1");
    for (bool json : {false, true}) {
        request_.json = json;
        std::ofstream full("/dev/full");
        errors_.str("");
        EXPECT_EQ(showRemoteBindings(request_, full, errors_), 1);
        EXPECT_EQ(errors_.str(), "error: the remote bindings cannot be written\n");
    }
}

} // namespace
} // namespace Ctl
