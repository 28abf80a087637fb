#pragma once

#include "Platform/Model/Bridging/Fid.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/VlanId.h"

namespace Bridging {

/// How the switch bridges. All setters announce only a change.
class Config final : public Vela::Entity {
  public:
    using VlanToFidCollection = Vela::Map<VlanId, Fid>;

    const char* typeName() const noexcept override { return "Bridging::Config"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// The switch's own MAC address; zero while unknown.
    const Zinc::EthAddr& bridgeMacAddr() const { return bridgeMacAddr_.get(); }
    const Vela::Attribute<Zinc::EthAddr>& bridgeMacAddrAttribute() const { return bridgeMacAddr_; }
    void bridgeMacAddrIs(const Zinc::EthAddr& macAddr) { bridgeMacAddr_.set(macAddr); }

    const VlanToFidCollection& vlanToFidCollection() const { return vlanToFid_; }
    void vlanToFidIs(VlanId vlanId, Fid fid) { vlanToFid_.set(vlanId, fid); }
    void vlanToFidDel(VlanId vlanId) { vlanToFid_.del(vlanId); }
    void vlanToFidDelAll() { vlanToFid_.delAll(); }

    /// The FID that the VLAN's MAC table entries stand under: the number of the VLAN itself unless
    /// another is mapped.
    Fid fid(VlanId vlanId) const {
        Fid mapped = vlanToFid_.value(vlanId);
        return mapped ? mapped : Fid(vlanId.value());
    }

  private:
    Vela::Attribute<Zinc::EthAddr> bridgeMacAddr_;
    VlanToFidCollection vlanToFid_;
};

} // namespace Bridging
