#pragma once

#include "Platform/Model/Ip/AddrWithMask.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/VrfName.h"

namespace Ip6 {

/// A routed interface's VRF and IPv6 addresses. All setters announce only a change.
class IntfStatus final : public Vela::Entity {
  public:
    using AddrCollection = Vela::Set<Ip::AddrWithMask>;

    IntfStatus(Zinc::IntfId intfId, L3::VrfName vrfName)
        : intfId_(intfId), vrfName_(std::move(vrfName)) {}

    const char* typeName() const noexcept override { return "Ip6::IntfStatus"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Zinc::IntfId intfId() const { return intfId_; }

    const L3::VrfName& vrfName() const { return vrfName_; }

    /// In the order of the addresses.
    const AddrCollection& addrCollection() const { return addr_; }
    void addrIs(const Ip::AddrWithMask& addr) { addr_.set(addr, {}); }
    void addrDel(const Ip::AddrWithMask& addr) { addr_.del(addr); }
    void addrDelAll() { addr_.delAll(); }

  private:
    const Zinc::IntfId intfId_;
    const L3::VrfName vrfName_;
    AddrCollection addr_;
};

/// The interfaces routed for IPv6; it owns the entries.
class Status final : public Vela::Entity {
  public:
    using IntfCollection = Vela::Map<Zinc::IntfId, Vela::Ptr<IntfStatus>>;

    const char* typeName() const noexcept override { return "Ip6::Status"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const IntfCollection& intfCollection() const { return intf_; }
    Vela::Ptr<IntfStatus> intf(Zinc::IntfId intfId) const { return intf_.value(intfId); }
    /// An interface that moves to another VRF gets a new entry, announced as one change.
    Vela::Ptr<IntfStatus> intfIs(Zinc::IntfId intfId, const L3::VrfName& vrfName);
    void intfDel(Zinc::IntfId intfId);
    void intfDelAll();

  protected:
    void handleDestroy() noexcept override { intfDelAll(); }

  private:
    IntfCollection intf_;
};

} // namespace Ip6
