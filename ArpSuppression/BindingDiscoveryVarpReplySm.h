#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/SafeEthDevPam.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Model/Routing/Fhrp/VirtualRouterMacStatus.h"
#include "Platform/Packet/Pkt.h"
#include "Platform/Scheduler/WalkSmBase.h"

#include <cstdint>
#include <string_view>

namespace ArpSuppression {

class BindingDiscoverySm;

/// Listens on a VLAN's interface for what hosts reply to the virtual router, and gives the binding
/// of each sender to BindingDiscoverySm, which owns it. It receives while the VLAN is usable.
/// Frames are read in the walk alone.
class BindingDiscoveryVarpReplySmBase : public Vela::WalkSmBase {
  public:
    BindingDiscoveryVarpReplySmBase(
        Vela::Ptr<Vela::TaskScheduler> scheduler, Zinc::AddressFamily af,
        Vela::Ptr<const VlanL3Info> vlanL3Info,
        Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
        Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus,
        BindingDiscoverySm& bindingDiscoverySm);

    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Zinc::AddressFamily af() const { return af_; }
    /// May be empty: then it never receives, and its VLAN counts as 1.
    const Vela::Ptr<const VlanL3Info>& vlanL3Info() const { return vlanL3Info_; }

    /// Empty while the VLAN is not usable.
    const Vela::Ptr<SafeEthDevPam>& arpReplyRxPam() const { return arpReplyRxPam_.ptr(); }
    void arpReplyRxPamDel();

    /// Validates, counts, and learns from one frame, which has no VLAN tag.
    virtual void processPacket(const Vela::Pkt& pkt);

  protected:
    /// The interface has another kernel index, or none.
    virtual void handleKniIntfIfIndex();
    /// The same for a machine that listens to this Ethernet protocol.
    void handleKniIntfIfIndex(uint16_t ethProtocol);

    Bridging::VlanId vlanId() const;
    const Zinc::EthAddr& varpVirtualMac() const { return fhrpVrMacStatus_->varpVirtualMac(); }
    void count(ArpSuppressionCounterId id) { arpSuppressionCounterStatus_->increment(id); }
    void refuse(std::string_view problem, const Vela::Pkt& pkt, ArpSuppressionCounterId id);
    void createLocalBinding(const Zinc::IpGenAddr& ipAddress, const Zinc::EthAddr& macAddress);

    void handleInitialized() override;
    void handleDestroy() noexcept override;
    Vela::WalkRet walk() override;
    void traceEvent(Vela::TraceEvent event) override;

  private:
    void handleArpReplyRxPamReadable();

    const Zinc::AddressFamily af_;
    const Vela::Ptr<const VlanL3Info> vlanL3Info_;
    const Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus_;
    const Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus_;
    BindingDiscoverySm& bindingDiscoverySm_;
    Vela::Owned<SafeEthDevPam> arpReplyRxPam_;
    Vela::Reaction kniIntfIfIndex_;
    Vela::Reaction readable_;
};

/// Learns the senders of ARP replies whose target is the virtual router, padded or not.
class BindingDiscoveryVarpReplyV4Sm final : public BindingDiscoveryVarpReplySmBase {
  public:
    using BindingDiscoveryVarpReplySmBase::BindingDiscoveryVarpReplySmBase;

    const char* typeName() const noexcept override { return "BindingDiscoveryVarpReplyV4Sm"; }
    void processPacket(const Vela::Pkt& pkt) override;

  protected:
    void handleKniIntfIfIndex() override;
};

/// Learns the senders of Neighbor Advertisements to the virtual router: the source addresses of
/// packet and frame, whatever address they advertise.
class BindingDiscoveryVarpReplyV6Sm final : public BindingDiscoveryVarpReplySmBase {
  public:
    using BindingDiscoveryVarpReplySmBase::BindingDiscoveryVarpReplySmBase;

    const char* typeName() const noexcept override { return "BindingDiscoveryVarpReplyV6Sm"; }
    void processPacket(const Vela::Pkt& pkt) override;

  protected:
    void handleKniIntfIfIndex() override;
};

} // namespace ArpSuppression
