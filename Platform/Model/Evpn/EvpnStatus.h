#pragma once

#include "Platform/Model/Evpn/Labels.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/VlanId.h"

namespace Evpn {

/// An Ethernet segment that an interface of this switch belongs to. All setters announce only a
/// change.
class EthernetSegmentStatus final : public Vela::Entity {
  public:
    using DfTepCollection = Vela::Map<Bridging::VlanId, Zinc::IntfId>;

    explicit EthernetSegmentStatus(Zinc::IntfId intfId) : intfId_(intfId) {}

    const char* typeName() const noexcept override { return "Evpn::EthernetSegmentStatus"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Zinc::IntfId intfId() const { return intfId_; }

    /// The tunnel end point of each VLAN's designated forwarder; the empty interface id for none.
    const DfTepCollection& dfTepCollection() const { return dfTep_; }
    Zinc::IntfId dfTep(Bridging::VlanId vlanId) const { return dfTep_.value(vlanId); }
    void dfTepIs(Bridging::VlanId vlanId, Zinc::IntfId tep) { dfTep_.set(vlanId, tep); }
    void dfTepDel(Bridging::VlanId vlanId) { dfTep_.del(vlanId); }
    void dfTepDelAll() { dfTep_.delAll(); }

  private:
    const Zinc::IntfId intfId_;
    DfTepCollection dfTep_;
};

/// What EVPN has set up on this switch; owns the segments. All setters announce only a change.
class EvpnStatus final : public Vela::Entity {
  public:
    using VlanToDot1qCollection = Vela::Map<Bridging::VlanId, Bridging::VlanIdOrNone>;
    using ImetLabelCollection = Vela::Map<Bridging::VlanId, ImetLabel>;
    using LocalEsiLabelCollection = Vela::Map<Zinc::IntfId, EsiLabel>;
    using SegmentStatusCollection = Vela::Map<Zinc::IntfId, Vela::Ptr<EthernetSegmentStatus>>;

    const char* typeName() const noexcept override { return "Evpn::EvpnStatus"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Whether EVPN runs over MPLS.
    bool mplsConfigured() const { return mplsConfigured_.get(); }
    const Vela::Attribute<bool>& mplsConfiguredAttribute() const { return mplsConfigured_; }
    void mplsConfiguredIs(bool configured) { mplsConfigured_.set(configured); }

    /// The VLANs that EVPN serves, and the VLAN that each is known by within its bundle; none where
    /// the bundle does not tell VLANs apart.
    const VlanToDot1qCollection& vlanToDot1qCollection() const { return vlanToDot1q_; }
    void vlanToDot1qIs(Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q) {
        vlanToDot1q_.set(vlanId, dot1q);
    }
    void vlanToDot1qDel(Bridging::VlanId vlanId) { vlanToDot1q_.del(vlanId); }
    void vlanToDot1qDelAll() { vlanToDot1q_.delAll(); }

    const ImetLabelCollection& imetLabelCollection() const { return imetLabel_; }
    void imetLabelIs(Bridging::VlanId vlanId, ImetLabel label) { imetLabel_.set(vlanId, label); }
    void imetLabelDel(Bridging::VlanId vlanId) { imetLabel_.del(vlanId); }
    void imetLabelDelAll() { imetLabel_.delAll(); }

    const LocalEsiLabelCollection& localEsiLabelCollection() const { return localEsiLabel_; }
    void localEsiLabelIs(Zinc::IntfId intfId, EsiLabel label) { localEsiLabel_.set(intfId, label); }
    void localEsiLabelDel(Zinc::IntfId intfId) { localEsiLabel_.del(intfId); }
    void localEsiLabelDelAll() { localEsiLabel_.delAll(); }

    /// The interfaces that belong to an Ethernet segment.
    const SegmentStatusCollection& segmentStatusCollection() const { return segmentStatus_; }
    Vela::Ptr<EthernetSegmentStatus> segmentStatus(Zinc::IntfId intfId) const {
        return segmentStatus_.value(intfId);
    }
    Vela::Ptr<EthernetSegmentStatus> segmentStatusIs(Zinc::IntfId intfId);
    void segmentStatusDel(Zinc::IntfId intfId);
    void segmentStatusDelAll();

  protected:
    void handleDestroy() noexcept override { segmentStatusDelAll(); }

  private:
    Vela::Attribute<bool> mplsConfigured_;
    VlanToDot1qCollection vlanToDot1q_;
    ImetLabelCollection imetLabel_;
    LocalEsiLabelCollection localEsiLabel_;
    SegmentStatusCollection segmentStatus_;
};

} // namespace Evpn
