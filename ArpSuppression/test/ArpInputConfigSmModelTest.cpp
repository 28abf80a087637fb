#include "ArpSuppression/ArpInputConfigSm.h"

#include "ArpSuppression/test/ArpInputConfigSmFixture.h"

#include <algorithm>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace ArpSuppression {
namespace {

struct Toggles {
    bool refresh;
    bool install;
};

/// What the machine does with an address, said once more: as a value that is computed from what
/// happens, without tables, shadows or VRFs.
class AddressModel {
  public:
    struct Host {
        std::string mac;
        unsigned vlan;
        bool localMultihomed = false;
    };
    struct Entry {
        unsigned vlan; // 0: none, as for global IPv6 addresses
        std::string mac;
        std::string type;
    };
    struct Local {
        Host host;
        bool backed = false;
    };
    struct Neighbor {
        bool isStatic;
        bool ours;
    };

    AddressModel(Toggles toggles, const bool& selective, bool namesInterface, Moved& counted)
        : toggles_(toggles), selective_(selective), namesInterface_(namesInterface),
          counted_(counted) {}

    void update(bool suppressionEvent, bool remoteChanged = false) {
        std::optional<Host> departed;
        if (remoteChanged && remotes.empty()) {
            departed = remembered;
            if (!departed && entry) {
                departed = Host{entry->mac, entry->vlan};
            }
        }
        remembered.reset();
        if (!remotes.empty() && remotes[0].localMultihomed) {
            remembered = remotes[0];
        }
        if (local && neighbors.contains(local->host.vlan)) {
            local->backed |= !neighbors.at(local->host.vlan).isStatic;
            write(local->host, "dynamic", false);
            return;
        }
        bool inFull = !selective_ || suppressionEvent ||
                      (toggles_.install && remotes.size() == 1 && remotes[0].localMultihomed);
        if (!remotes.empty()) {
            if (inFull || (hasEntryOf(remotes[0]) && entry->type == "permanent")) {
                write(remotes[0], "permanent", false);
                return;
            }
        } else if (departed && toggles_.refresh && hasEntryOf(*departed)) {
            write(*departed, "dynamic", true);
            return;
        }
        remove();
    }

    void neighborChanged(unsigned vlan) {
        if (!local) {
            return;
        }
        auto neighbor = neighbors.find(vlan);
        bool exists = neighbor != neighbors.end();
        if (exists && !neighbor->second.isStatic) {
            local->backed = true;
            remove();
        } else if (local->backed) {
            local.reset();
            update(false);
        } else if (!exists) {
            update(false);
        } else if (!neighbor->second.ours) {
            remove();
        }
    }

    std::optional<Entry> entry;
    bool immediate = false;
    std::vector<Host> remotes;
    std::optional<Local> local;
    std::map<unsigned, Neighbor> neighbors; // by VLAN
    std::optional<Host> remembered;

  private:
    unsigned vlanOf(const Host& host) const { return namesInterface_ ? host.vlan : 0; }
    bool hasEntryOf(const Host& host) const { return entry && entry->vlan == vlanOf(host); }
    void write(const Host& host, const std::string& type, bool isImmediate) {
        if (!hasEntryOf(host)) {
            remove();
        }
        ++counted_[type == "dynamic"
                       ? (entry ? Id::inputDynamicRewritten : Id::inputDynamicAdded)
                       : (entry ? Id::inputPermanentRewritten : Id::inputPermanentAdded)];
        entry = Entry{vlanOf(host), host.mac, type};
        immediate = isImmediate;
    }
    void remove() {
        if (entry) {
            ++counted_[Id::inputDeleted];
            entry.reset();
        }
    }

    const Toggles toggles_;
    const bool& selective_;
    const bool namesInterface_;
    Moved& counted_;
};

class ArpInputConfigSmModelTest : public ArpInputConfigSmToggleTest {
  protected:
    struct Address {
        std::string ip;
        std::vector<unsigned> vlans;
        AddressModel model;
    };

    void run(Toggles toggles, uint32_t seed, unsigned steps) {
        refreshToggleIs(toggles.refresh);
        installToggleIs(toggles.install);
        for (const char* ip : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
            addresses_.push_back({ip, {10, 20}, {toggles, selective_, true, counted_}});
        }
        addresses_.push_back({"2001:db8::1", {10, 20}, {toggles, selective_, false, counted_}});
        addresses_.push_back({"fe80::1", {10}, {toggles, selective_, true, counted_}});
        addresses_.push_back({"fe80::1", {20}, {toggles, selective_, true, counted_}});
        addresses_.push_back({"10.0.0.1", {30}, {toggles, selective_, true, counted_}});
        startComplete();
        random_.seed(seed);
        for (unsigned i = 0; i < steps && !HasFailure(); ++i) {
            SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(i) + ": " +
                         step());
            expectAsModelled();
        }
        EXPECT_EQ(seen_.size(), toggles.refresh ? 6u : 4u) << "kinds of entries";
    }

  private:
    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    std::string aMac() { return below(2) ? macA : macB; }

    std::string step() {
        Address& which = addresses_[below(static_cast<unsigned>(addresses_.size()))];
        AddressModel& model = which.model;
        unsigned vlan = which.vlans[below(static_cast<unsigned>(which.vlans.size()))];
        auto vrfIpAddress = address(which.ip, which.vlans[0]);
        std::string what = which.ip + " VLAN " + std::to_string(vlan);
        switch (below(9)) {
        case 0:
        case 1: {
            AddressModel::Host host{aMac(), vlan, below(2) == 0};
            remoteIs(which.ip, host.mac, vlan, host.localMultihomed);
            auto same =
                std::find_if(model.remotes.begin(), model.remotes.end(), [&](const auto& other) {
                    return other.mac == host.mac && other.vlan == vlan;
                });
            if (same == model.remotes.end()) {
                model.remotes.push_back(host);
            } else {
                *same = host;
            }
            model.update(false, true);
            return what + " remote";
        }
        case 2:
        case 3:
            if (!model.remotes.empty()) {
                remoteDel(vrfIpAddress);
                model.remotes.clear();
                model.update(false, true);
            }
            return what + " remote gone";
        case 4: {
            std::string mac = aMac();
            localIs(which.ip, mac, vlan);
            if (model.local) {
                model.local.reset();
                model.update(false);
            }
            model.local = AddressModel::Local{{mac, vlan}};
            model.update(false);
            return what + " local";
        }
        case 5:
            if (model.local) {
                record->deleteLocalBinding(record->binding(vrfIpAddress));
                model.local.reset();
                model.update(false);
            }
            return what + " local gone";
        case 6: {
            AddressModel::Neighbor neighbor{below(2) == 0, below(2) == 0};
            auto had = model.neighbors.find(vlan);
            bool changes = had == model.neighbors.end() ||
                           had->second.isStatic != neighbor.isStatic ||
                           had->second.ours != neighbor.ours;
            model.neighbors.insert_or_assign(vlan, neighbor);
            kernelIs(which.ip, macA, neighbor.isStatic,
                     neighbor.ours ? Arp::ArpSource::arpSuppression : Arp::ArpSource::kernel, vlan);
            if (changes) {
                model.neighborChanged(vlan);
            }
            return what + " kernel";
        }
        case 7:
            if (model.neighbors.erase(vlan) > 0) {
                kernelDel(which.ip, vlan);
                model.neighborChanged(vlan);
            }
            return what + " kernel gone";
        default:
            if (below(4) == 0) {
                selective_ = !selective_;
                selectiveIs(selective_);
                return "selective";
            }
            bool suppressionEvent = below(2) == 0;
            trigger->event(vrfIpAddress, suppressionEvent);
            model.update(suppressionEvent);
            return what + " event";
        }
    }

    void expectAsModelled() {
        Entries wanted;
        size_t locals = 0;
        size_t remembered = 0;
        for (const Address& which : addresses_) {
            const AddressModel& model = which.model;
            locals += model.local.has_value();
            remembered += model.remembered.has_value();
            if (model.entry) {
                const auto& [vlan, mac, type] = *model.entry;
                const std::string& text = type == "permanent" ? permanent(mac)
                                          : model.immediate   ? refreshed(mac)
                                                              : dynamic(mac);
                wanted[(which.vlans[0] == 30 ? "red " : "default ") + which.ip + " " +
                       (vlan ? "Vlan" + std::to_string(vlan) : "")] = text;
                seen_.insert((which.ip.find(':') == std::string::npos ? "4" : "6") + type +
                             (model.immediate ? " immediate" : ""));
            }
            auto binding = record->binding(address(which.ip, which.vlans[0]));
            ASSERT_EQ(binding != nullptr, model.local.has_value());
            if (binding) {
                EXPECT_EQ(binding->arpStatusHasDynamicEntry(), model.local->backed);
            }
        }
        EXPECT_EQ(entries(), wanted);
        EXPECT_EQ(record->bindings(), locals);
        EXPECT_EQ(sm->localMultihomedRemoteBindingCollection().size(), remembered);
        EXPECT_EQ(moved(), std::exchange(counted_, {}));
        expectShadowsOfEntries();
    }

    std::mt19937 random_;
    bool selective_ = false;
    Moved counted_;
    std::vector<Address> addresses_;
    std::set<std::string> seen_;
};

TEST_F(ArpInputConfigSmModelTest, agreesWithBothTogglesOn) {
    run({true, true}, 1, 4000);
}
TEST_F(ArpInputConfigSmModelTest, agreesWithoutTheRefresh) {
    run({false, true}, 2, 4000);
}
TEST_F(ArpInputConfigSmModelTest, agreesWithoutTheFullInstallOfMultihomedHosts) {
    run({true, false}, 3, 4000);
}
TEST_F(ArpInputConfigSmModelTest, agreesWithBothTogglesOff) {
    run({false, false}, 4, 4000);
}

} // namespace
} // namespace ArpSuppression
