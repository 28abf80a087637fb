#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/VrfUseTracker.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/State/HashTable.h"

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ArpSuppression {

/// A few elements in the order in which they came, to be searched one by one. Rarely is there
/// another than the first, which needs no memory of its own.
template <class T>
class FirstInPlace {
  public:
    static constexpr size_t none = ~size_t{0};

    size_t size() const { return hasFirst_ ? 1 + (further_ ? further_->size() : 0) : 0; }
    const T& operator[](size_t i) const { return i == 0 ? first_ : (*further_)[i - 1]; }
    T& operator[](size_t i) { return i == 0 ? first_ : (*further_)[i - 1]; }
    template <class Visit>
    void each(Visit&& visit) const {
        for (size_t i = 0; i < size(); ++i) {
            visit((*this)[i]);
        }
    }

    /// Where the first element stands for which `is` holds.
    template <class Predicate>
    size_t find(Predicate&& is) const {
        for (size_t i = 0; i < size(); ++i) {
            if (is((*this)[i])) {
                return i;
            }
        }
        return none;
    }

    void append(const T& element) {
        if (!hasFirst_) {
            first_ = element;
            hasFirst_ = true;
            return;
        }
        if (!further_) {
            further_ = std::make_unique<std::vector<T>>();
        }
        further_->push_back(element);
    }

    /// What comes after moves up.
    void remove(size_t i) {
        if (!further_) {
            hasFirst_ = false;
            return;
        }
        if (i == 0) {
            first_ = further_->front();
            i = 1;
        }
        further_->erase(further_->begin() + static_cast<ptrdiff_t>(i - 1));
        if (further_->empty()) {
            further_.reset();
        }
    }

    void clear() {
        further_.reset();
        hasFirst_ = false;
    }

  private:
    std::unique_ptr<std::vector<T>> further_; // never empty
    T first_{};
    bool hasFirst_ = false;
};

/// A set whose first element needs no memory of its own. Rarely is there another, but a host may
/// take on any number of addresses.
template <class T>
class FirstInPlaceSet {
  public:
    size_t size() const { return hasFirst_ ? 1 + (further_ ? further_->size() : 0) : 0; }

    bool has(const T& element) const {
        return hasFirst_ && (first_ == element || (further_ && further_->contains(element)));
    }

    void insert(const T& element) {
        if (!hasFirst_) {
            first_ = element;
            hasFirst_ = true;
        } else if (first_ != element) {
            if (!further_) {
                further_ = std::make_unique<std::set<T>>();
            }
            further_->insert(element);
        }
    }

    void erase(const T& element) {
        if (hasFirst_ && first_ == element) {
            hasFirst_ = further_ != nullptr;
            if (further_) {
                first_ = further_->extract(further_->begin()).value();
            }
        } else if (further_) {
            further_->erase(element);
        }
        if (further_ && further_->empty()) {
            further_.reset();
        }
    }

    void clear() {
        further_.reset();
        hasFirst_ = false;
    }

    /// The first one, then the others in their order.
    template <class Visit>
    void each(Visit&& visit) const {
        if (hasFirst_) {
            visit(first_);
        }
        if (further_) {
            for (const T& element : *further_) {
                visit(element);
            }
        }
    }

  private:
    std::unique_ptr<std::set<T>> further_; // never empty
    T first_{};
    bool hasFirst_ = false;
};

/// An address that remote tunnel end points know, with the MAC addresses that they give it: one,
/// unless they disagree. A million of these may exist: nothing in it announces a change, which
/// RemoteBindingStatus::lastVrfIpAddressChange does.
class RemoteIpToMac final : public Vela::Entity {
  public:
    struct VlanIdMac {
        VlanIdMacAddress vlanIdMacAddress;
        /// The MAC address sits on an Ethernet segment to which this switch is connected as well.
        bool localMultihomed = false;
    };
    using VlanIdMacAddressCollection = FirstInPlace<VlanIdMac>;

    explicit RemoteIpToMac(VrfIpAddress vrfIpAddress) : vrfIpAddress_(std::move(vrfIpAddress)) {}

    const char* typeName() const noexcept override { return "RemoteIpToMac"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;
    /// <vrfIpAddress=<...> macAddress=[<vlanId=10 macAddress=...>]>
    std::string toStrep() const;

    const VrfIpAddress& vrfIpAddress() const { return vrfIpAddress_; }

    /// In the order in which they were added: what is first stays so until it is removed.
    const VlanIdMacAddressCollection& vlanIdMacAddressCollection() const {
        return vlanIdMacAddress_;
    }
    size_t vlanIdMacAddresses() const { return vlanIdMacAddress_.size(); }
    bool vlanIdMacAddressHas(const VlanIdMacAddress& vlanIdMacAddress) const;
    /// The flag of a MAC address; false when absent.
    bool isLocalMultihomed(const VlanIdMacAddress& vlanIdMacAddress) const;

    /// There must be one.
    VlanIdMacAddress firstVlanIdMacAddress() const;
    /// False when there is none.
    bool isFirstVlanIdMacAddressLocalMultihomed() const;

    /// Adds it, or overwrites its flag. Returns whether that changed anything.
    bool vlanIdMacAddressIs(const VlanIdMacAddress& vlanIdMacAddress, bool localMultihomed);
    /// Returns whether there was one.
    bool vlanIdMacAddressDel(const VlanIdMacAddress& vlanIdMacAddress);
    void vlanIdMacAddressDelAll() { vlanIdMacAddress_.clear(); }

  private:
    size_t indexOf(const VlanIdMacAddress& vlanIdMacAddress) const;

    const VrfIpAddress vrfIpAddress_;
    VlanIdMacAddressCollection vlanIdMacAddress_;
};

/// A remote host: a MAC address with the IP addresses that remote bindings give it, bare of VRF and
/// interface. Announces nothing, like RemoteIpToMac.
class RemoteMacToIp final : public Vela::Entity {
  public:
    using IpAddressCollection = FirstInPlaceSet<Zinc::IpGenAddr>;

    explicit RemoteMacToIp(const VlanIdMacAddress& vlanIdMacAddress)
        : vlanIdMacAddress_(vlanIdMacAddress) {}

    const char* typeName() const noexcept override { return "RemoteMacToIp"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;
    /// <vlanIdMacAddress=<vlanId=10 macAddress=...> ipAddress=[10.0.0.1 10.0.0.2]>
    std::string toStrep() const;

    const VlanIdMacAddress& vlanIdMacAddress() const { return vlanIdMacAddress_; }

    const IpAddressCollection& ipAddressCollection() const { return ipAddress_; }
    size_t ipAddresses() const { return ipAddress_.size(); }
    bool ipAddressHas(const Zinc::IpGenAddr& ipAddress) const { return ipAddress_.has(ipAddress); }
    void ipAddressIs(const Zinc::IpGenAddr& ipAddress) { ipAddress_.insert(ipAddress); }
    void ipAddressDel(const Zinc::IpGenAddr& ipAddress) { ipAddress_.erase(ipAddress); }
    void ipAddressDelAll() { ipAddress_.clear(); }

  private:
    const VlanIdMacAddress vlanIdMacAddress_;
    IpAddressCollection ipAddress_;
};

/// What remote tunnel end points say of addresses, by address and by host. One machine fills it and
/// keeps the two in step; everybody else reads.
class RemoteBindingStatus final : public VrfUseTracker {
  public:
    using VlanIdCollection = Vela::Set<Bridging::VlanId>;
    // Tables that announce nothing: readers follow lastVrfIpAddressChange.
    using IpToMacTable =
        Vela::HashTable<Vela::EntityLayout<RemoteIpToMac, &RemoteIpToMac::vrfIpAddress>>;
    using MacToIpTable =
        Vela::HashTable<Vela::EntityLayout<RemoteMacToIp, &RemoteMacToIp::vlanIdMacAddress>>;

    explicit RemoteBindingStatus(Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus)
        : VrfUseTracker(std::move(vlanL3InfoStatus)) {}

    const char* typeName() const noexcept override { return "RemoteBindingStatus"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// The VLANs with at least one remote binding. Announces a VLAN that comes or goes.
    const VlanIdCollection& vlanIdCollection() const { return vlanId_; }
    size_t vlanIds() const { return vlanId_.count(); }
    bool vlanIdHas(Bridging::VlanId vlanId) const { return vlanId_.has(vlanId); }
    void vlanIdIs(Bridging::VlanId vlanId) { vlanId_.set(vlanId, {}); }
    void vlanIdDel(Bridging::VlanId vlanId) { vlanId_.del(vlanId); }
    void vlanIdDelAll() { vlanId_.delAll(); }

    /// By address, for walks.
    const IpToMacTable& ipToMacCollection() const { return ipToMac_; }
    size_t ipToMacs() const { return ipToMac_.size(); }
    bool ipToMacHas(const VrfIpAddress& key) const { return ipToMac_.find(key) != nullptr; }
    /// None when absent.
    Vela::Ptr<RemoteIpToMac> ipToMac(const VrfIpAddress& vrfIpAddress) const;
    /// Finds or creates.
    Vela::Ptr<RemoteIpToMac> ipToMacIs(const VrfIpAddress& vrfIpAddress);
    /// Ends the life of what it returns; none when absent.
    Vela::Ptr<RemoteIpToMac> ipToMacDel(const VrfIpAddress& vrfIpAddress);
    void ipToMacDelAll();

    /// By host; the same operations.
    const MacToIpTable& macToIpCollection() const { return macToIp_; }
    size_t macToIps() const { return macToIp_.size(); }
    bool macToIpHas(const VlanIdMacAddress& key) const { return macToIp_.find(key) != nullptr; }
    Vela::Ptr<RemoteMacToIp> macToIp(const VlanIdMacAddress& vlanIdMacAddress) const;
    Vela::Ptr<RemoteMacToIp> macToIpIs(const VlanIdMacAddress& vlanIdMacAddress);
    Vela::Ptr<RemoteMacToIp> macToIpDel(const VlanIdMacAddress& vlanIdMacAddress);
    void macToIpDelAll();

    /// The address whose remote binding changed last. The setter announces only a value that
    /// differs: for a second change of one address the empty value is set in between.
    const VrfIpAddress& lastVrfIpAddressChange() const { return lastVrfIpAddressChange_.get(); }
    const Vela::Attribute<VrfIpAddress>& lastVrfIpAddressChangeAttribute() const {
        return lastVrfIpAddressChange_;
    }
    void lastVrfIpAddressChangeIs(const VrfIpAddress& vrfIpAddress) {
        lastVrfIpAddressChange_.set(vrfIpAddress);
    }

    /// Whether all of the remote binding configuration has been here once. The setter announces
    /// only a change.
    bool initialPopulationComplete() const { return initialPopulationComplete_.get(); }
    const Vela::Attribute<bool>& initialPopulationCompleteAttribute() const {
        return initialPopulationComplete_;
    }
    void initialPopulationCompleteIs(bool complete) { initialPopulationComplete_.set(complete); }

  protected:
    void handleDestroy() noexcept override;

  private:
    VlanIdCollection vlanId_;
    IpToMacTable ipToMac_;
    MacToIpTable macToIp_;
    Vela::Attribute<VrfIpAddress> lastVrfIpAddressChange_;
    Vela::Attribute<bool> initialPopulationComplete_;
};

} // namespace ArpSuppression
