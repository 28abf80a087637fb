#include "ArpSuppression/test/BindingDiscoverySmFixture.h"

#include <algorithm>
#include <map>
#include <random>

namespace ArpSuppression {

namespace {

using Bridging::EntryType;
using Bridging::VlanId;

/// Few hosts with few addresses on one VLAN, and everything happens to them. Beside the agent a
/// model that replays the events and knows nothing but the rules.
class BindingDiscoverySmRandomTest : public BindingDiscoverySmFixture {
  protected:
    struct Remote {
        std::string mac;
        bool localMultihomed;
        friend bool operator==(const Remote&, const Remote&) = default;
    };
    struct Fdb {
        Zinc::IntfId intf;
        EntryType type;
        friend bool operator==(const Fdb&, const Fdb&) = default;
    };

    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    template <class T, size_t n>
    const T& oneOf(const T (&all)[n]) {
        return all[below(n)];
    }

    bool isShared(const std::string& ip, const std::string& mac) {
        auto found = remotes_.find(ip);
        return found != remotes_.end() && found->second == Remote{mac, true};
    }

    void request() {
        std::string ip = oneOf(ips), mac = oneOf(macs);
        Zinc::IntfId intf = below(2) ? ethernet1 : ethernet2;
        requestFrom(Zinc::IpGenAddr(ip), {.senderIp = ip, .senderMac = mac, .srcIntf = intf});
        if (intf != ethernet1 || !isShared(ip, mac)) {
            local_[ip] = mac;
        }
    }
    void remoteBinding() {
        std::string ip = oneOf(ips);
        if (below(3) == 0) {
            remoteDel(ip);
            remotes_.erase(ip);
            return;
        }
        Remote now{oneOf(macs), below(2) == 0};
        remoteIs(ip, now.mac, now.localMultihomed);
        auto before = remotes_.find(ip);
        if (before == remotes_.end() || before->second != now) {
            local_.erase(ip);
        }
        remotes_[ip] = now;
    }
    void macTable() {
        std::string mac = oneOf(macs);
        if (below(4) == 0) {
            movedByFdbDel(mac);
            if (fdb_.erase(mac) > 0) {
                leave(mac);
            }
            return;
        }
        Fdb now{below(2) ? ethernet1 : ethernet2, oneOf(types)};
        movedByFdb(mac, now.intf, now.type);
        auto before = fdb_.find(mac);
        bool changed = before == fdb_.end() || before->second != now;
        fdb_[mac] = now;
        if (!changed) {
            return;
        }
        if (now.type == EntryType::learnedDynamic || now.type == EntryType::configuredStatic) {
            arrive(mac, now.intf);
        } else {
            leave(mac);
        }
    }
    void leave(const std::string& mac) {
        std::erase_if(local_, [&](const auto& entry) { return entry.second == mac; });
    }
    void arrive(const std::string& mac, Zinc::IntfId intf) {
        for (const auto& [ip, remote] : remotes_) {
            if (intf == ethernet1 && isShared(ip, mac)) {
                return;
            }
        }
        for (const auto& [ip, remote] : remotes_) {
            if (remote.mac == mac) {
                local_[ip] = mac;
            }
        }
    }

    std::map<std::string, std::string> learnt() {
        std::map<std::string, std::string> all;
        for (auto binding = record().bindingCollection().first(); binding; ++binding) {
            EXPECT_EQ(binding.key().vrfInfo(), vlanL3InfoStatus().vrfInfo("default"));
            all[binding.key().ipAddress().toStrep()] =
                binding.value()->vlanIdMacAddress().macAddress().toStrep();
        }
        return all;
    }
    void expectHostsAgree() {
        size_t filed = 0;
        for (auto host = record().macToIpCollection().first(); host; ++host) {
            EXPECT_GT(host.value()->bindings(), 0u);
            host.value()->eachBinding([&](const Vela::Ptr<LocalBinding>& binding) {
                ++filed;
                EXPECT_EQ(record().binding(binding->vrfIpAddress()), binding);
            });
        }
        EXPECT_EQ(filed, record().bindings());
        auto vrfInfo = vlanL3InfoStatus().vrfInfo("default");
        EXPECT_EQ(record().vrfReferenceCount(vrfInfo), filed);
    }

    static constexpr const char* ips[] = {"10.0.0.1", "10.0.0.2",    "10.0.0.3",
                                          "fe80::1",  "2001:db8::1", "10.0.0.4"};
    static constexpr const char* macs[] = {macA, macB, "02:00:00:00:00:0c"};
    static constexpr EntryType types[] = {
        EntryType::learnedDynamic, EntryType::configuredStatic, EntryType::evpnDynamicRemote,
        EntryType::evpnConfiguredRemote, EntryType::evpnLocalSegment};
    std::map<std::string, std::string> local_;

  private:
    std::mt19937 random_{1};
    std::map<std::string, Remote> remotes_;
    std::map<std::string, Fdb> fdb_;
};

TEST_F(BindingDiscoverySmRandomTest, theRecordIsWhatTheRulesSay) {
    segmentIs(ethernet1);
    size_t most = 0;
    for (unsigned step = 0; step < 3000; ++step) {
        SCOPED_TRACE(step);
        switch (below(3)) {
        case 0:
            request();
            break;
        case 1:
            remoteBinding();
            break;
        default:
            macTable();
        }
        runUntilIdle();
        ASSERT_EQ(learnt(), local_);
        expectHostsAgree();
        ASSERT_FALSE(HasFailure());
        most = std::max(most, local_.size());
    }
    EXPECT_GT(most, 3u) << "there was something to compare";
}

} // namespace

} // namespace ArpSuppression
