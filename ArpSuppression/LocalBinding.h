#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/VrfUseTracker.h"
#include "Platform/State/Collection.h"
#include "Platform/State/HashTable.h"

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace ArpSuppression {

/// An address that a host of this switch has. Announces nothing of its own: a leaf has a hundred
/// thousand of these.
class LocalBinding final : public Vela::Entity {
  public:
    LocalBinding(VrfIpAddress vrfIpAddress, const VlanIdMacAddress& vlanIdMacAddress)
        : vlanIdMacAddress_(vlanIdMacAddress), vrfIpAddress_(std::move(vrfIpAddress)) {}

    const char* typeName() const noexcept override { return "LocalBinding"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;
    /// <<vrf;10.0.0.1;>;<vlanId=10 macAddress=02:00:00:00:00:01>;dynSt=no >
    std::string toStrep() const;

    const VrfIpAddress& vrfIpAddress() const { return vrfIpAddress_; }
    const VlanIdMacAddress& vlanIdMacAddress() const { return vlanIdMacAddress_; }

    /// Whether the kernel has learnt the address since the binding was made.
    bool arpStatusHasDynamicEntry() const { return arpStatusHasDynamicEntry_; }
    void arpStatusHasDynamicEntryIs(bool has) { arpStatusHasDynamicEntry_ = has; }

  private:
    bool arpStatusHasDynamicEntry_ = false;
    const VlanIdMacAddress vlanIdMacAddress_;
    const VrfIpAddress vrfIpAddress_;
};

/// A host of this switch: a MAC address with the bindings that name it. Most have one, which needs
/// no memory beside the host's; one may have any number.
class LocalMacToIp final : public Vela::Entity {
  public:
    explicit LocalMacToIp(const VlanIdMacAddress& vlanIdMacAddress)
        : vlanIdMacAddress_(vlanIdMacAddress) {}

    const char* typeName() const noexcept override { return "LocalMacToIp"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;
    std::string toStrep() const { return vlanIdMacAddress_.toStrep(); }

    const VlanIdMacAddress& vlanIdMacAddress() const { return vlanIdMacAddress_; }

    size_t bindings() const { return (first_ ? 1 : 0) + (further_ ? further_->size() : 0); }
    /// None when absent.
    Vela::Ptr<LocalBinding> binding(const VrfIpAddress& vrfIpAddress) const;
    bool bindingHas(const VrfIpAddress& key) const { return binding(key) != nullptr; }
    /// Calls `visit` with each binding. That may remove any of them, this one included, while a
    /// Ptr keeps the host; one that it adds may be missed.
    template <class Visit>
    void eachBinding(Visit&& visit) const {
        if (Vela::Ptr<LocalBinding> first = first_) {
            visit(first);
        }
        if (further_) {
            for (auto cursor = further_->first(); cursor; ++cursor) {
                visit(Vela::Ptr<LocalBinding>(cursor.value()));
            }
        }
    }

    /// Files the binding under its own address, in the place of one that stands there.
    void bindingIs(const Vela::Ptr<LocalBinding>& binding);
    /// Returns what was filed there, whose life goes on; none when absent.
    Vela::Ptr<LocalBinding> bindingDel(const VrfIpAddress& vrfIpAddress);
    void bindingDelAll();

  private:
    using Table = Vela::HashTable<Vela::EntityLayout<LocalBinding, &LocalBinding::vrfIpAddress>>;

    const VlanIdMacAddress vlanIdMacAddress_;
    Vela::Ptr<LocalBinding> first_;
    std::unique_ptr<Table> further_; // stays once it is there: cursors may stand in it
};

/// The bindings that this switch has found out for itself, by address and by host. Both views hold
/// the same objects; an address has one binding, and a host at least one. Each binding counts as a
/// use of its VRF. Nothing here ages.
class LocalBindingRecord : public VrfUseTracker {
  public:
    using BindingCollection = Vela::EntityMap<LocalBinding, &LocalBinding::vrfIpAddress>;
    using MacToIpCollection = Vela::EntityMap<LocalMacToIp, &LocalMacToIp::vlanIdMacAddress>;

    explicit LocalBindingRecord(Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus)
        : VrfUseTracker(std::move(vlanL3InfoStatus)) {}

    const char* typeName() const noexcept override { return "LocalBindingRecord"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Makes a binding, always a new one: what the address had before is removed, be it the same.
    /// Both steps are announced by bindingCollection. Reactions may call back for other addresses.
    Vela::Ptr<LocalBinding> createLocalBinding(const VrfIpAddress& vrfIpAddress,
                                               const VlanIdMacAddress& vlanIdMacAddress);
    /// Removes the binding, which must be in the record, and ends its life. Its VRF may go with it.
    void deleteLocalBinding(const Vela::Ptr<LocalBinding>& binding);

    /// By address. Announces an address whose binding comes or goes, before the host follows.
    const BindingCollection& bindingCollection() const { return binding_; }
    size_t bindings() const { return binding_.count(); }
    bool bindingHas(const VrfIpAddress& key) const { return binding_.has(key); }
    /// None when absent.
    Vela::Ptr<LocalBinding> binding(const VrfIpAddress& key) const { return binding_.value(key); }

    /// By host. Announces a host that comes or goes.
    const MacToIpCollection& macToIpCollection() const { return macToIp_; }
    size_t macToIps() const { return macToIp_.count(); }
    bool macToIpHas(const VlanIdMacAddress& key) const { return macToIp_.has(key); }
    /// None when absent.
    Vela::Ptr<const LocalMacToIp> macToIp(const VlanIdMacAddress& key) const {
        return macToIp_.value(key);
    }

  protected:
    // Each of these changes one of the views.

    /// Finds or creates; raises EntryExistsError if the address has a binding with another host.
    Vela::Ptr<LocalBinding> bindingIs(const VrfIpAddress& vrfIpAddress,
                                      const VlanIdMacAddress& vlanIdMacAddress);
    /// Ends the life of what it returns; none when absent.
    Vela::Ptr<LocalBinding> bindingDel(const VrfIpAddress& vrfIpAddress);
    void bindingDelAll();
    Vela::Ptr<LocalMacToIp> macToIpIs(const VlanIdMacAddress& vlanIdMacAddress);
    Vela::Ptr<LocalMacToIp> macToIpDel(const VlanIdMacAddress& vlanIdMacAddress);
    void macToIpDelAll();

    void handleDestroy() noexcept override;

  private:
    BindingCollection binding_;
    MacToIpCollection macToIp_;
};

/// Takes the constructor's arguments.
Vela::Ptr<LocalBindingRecord>
localBindingRecordFactory(Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus);

} // namespace ArpSuppression
