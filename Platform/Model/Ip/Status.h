#pragma once

#include "Platform/Model/Ip/AddrWithMask.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/VrfName.h"

namespace Ip {

/// A routed interface's VRF and IPv4 addresses. All setters announce only a change.
class IpIntfStatus final : public Vela::Entity {
  public:
    using AddrCollection = Vela::Set<AddrWithMask>;

    IpIntfStatus(Zinc::IntfId intfId, L3::VrfName vrfName)
        : intfId_(intfId), vrfName_(std::move(vrfName)) {}

    const char* typeName() const noexcept override { return "Ip::IpIntfStatus"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Zinc::IntfId intfId() const { return intfId_; }

    const L3::VrfName& vrfName() const { return vrfName_; }

    /// The primary address; zero for none.
    const AddrWithMask& activeAddrWithMask() const { return activeAddrWithMask_.get(); }
    const Vela::Attribute<AddrWithMask>& activeAddrWithMaskAttribute() const {
        return activeAddrWithMask_;
    }
    void activeAddrWithMaskIs(const AddrWithMask& addr) { activeAddrWithMask_.set(addr); }

    /// In the order of the addresses.
    const AddrCollection& activeSecondaryWithMaskCollection() const {
        return activeSecondaryWithMask_;
    }
    void activeSecondaryWithMaskIs(const AddrWithMask& addr) {
        activeSecondaryWithMask_.set(addr, {});
    }
    void activeSecondaryWithMaskDel(const AddrWithMask& addr) {
        activeSecondaryWithMask_.del(addr);
    }
    void activeSecondaryWithMaskDelAll() { activeSecondaryWithMask_.delAll(); }

  private:
    const Zinc::IntfId intfId_;
    const L3::VrfName vrfName_;
    Vela::Attribute<AddrWithMask> activeAddrWithMask_;
    AddrCollection activeSecondaryWithMask_;
};

/// The interfaces routed for IPv4; it owns the entries.
class Status final : public Vela::Entity {
  public:
    using IpIntfStatusCollection = Vela::Map<Zinc::IntfId, Vela::Ptr<IpIntfStatus>>;

    const char* typeName() const noexcept override { return "Ip::Status"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const IpIntfStatusCollection& ipIntfStatusCollection() const { return ipIntfStatus_; }
    Vela::Ptr<IpIntfStatus> ipIntfStatus(Zinc::IntfId intfId) const {
        return ipIntfStatus_.value(intfId);
    }
    /// An interface that moves to another VRF gets a new entry, announced as one change.
    Vela::Ptr<IpIntfStatus> ipIntfStatusIs(Zinc::IntfId intfId, const L3::VrfName& vrfName);
    void ipIntfStatusDel(Zinc::IntfId intfId);
    void ipIntfStatusDelAll();

  protected:
    void handleDestroy() noexcept override { ipIntfStatusDelAll(); }

  private:
    IpIntfStatusCollection ipIntfStatus_;
};

} // namespace Ip
