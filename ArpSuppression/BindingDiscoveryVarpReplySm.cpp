#include "ArpSuppression/BindingDiscoveryVarpReplySm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "ArpSuppression/BindingDiscoverySm.h"
#include "Platform/Base/Assert.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/NeighborDiscovery.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Value/MessageData.h"

#include <ostream>
#include <utility>

namespace ArpSuppression {

using Id = ArpSuppressionCounterId;

namespace {

constexpr size_t ethArpIpHdrBytes = Vela::EthHdr::wireBytes + Vela::ArpHdr::wireBytes;

MessageData dataOf(const Vela::Pkt& pkt) {
    return {pkt.bytes().data(), static_cast<uint32_t>(pkt.size())};
}

} // namespace

// Both families

BindingDiscoveryVarpReplySmBase::BindingDiscoveryVarpReplySmBase(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Zinc::AddressFamily af,
    Vela::Ptr<const VlanL3Info> vlanL3Info,
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
    Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus,
    BindingDiscoverySm& bindingDiscoverySm)
    : WalkSmBase(std::move(scheduler), 3,
                 af == Zinc::ipv6() ? "VarpReplySm-VarpReplyV6Sm" : "VarpReplySm-VarpReplyV4Sm"),
      af_(af), vlanL3Info_(std::move(vlanL3Info)),
      arpSuppressionCounterStatus_(std::move(arpSuppressionCounterStatus)),
      fhrpVrMacStatus_(std::move(fhrpVrMacStatus)), bindingDiscoverySm_(bindingDiscoverySm) {}

void BindingDiscoveryVarpReplySmBase::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    WalkSmBase::handleInitialized();
    if (vlanL3Info_) {
        kniIntfIfIndex_ =
            vlanL3Info_->kniIntfIfIndexAttribute().react(this, [this] { handleKniIntfIfIndex(); });
    }
    handleKniIntfIfIndex();
}

void BindingDiscoveryVarpReplySmBase::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    arpReplyRxPamDel();
}

void BindingDiscoveryVarpReplySmBase::handleKniIntfIfIndex() {
    Vela::failAssertion("Derived class must implement this function");
}

void BindingDiscoveryVarpReplySmBase::processPacket(const Vela::Pkt&) {
    Vela::failAssertion("Derived class must implement this function");
}

void BindingDiscoveryVarpReplySmBase::handleKniIntfIfIndex(uint16_t ethProtocol) {
    bool needPam = vlanL3Info_ && vlanL3Info_->usable();
    TRACE(trace, 8, this,
          "vlanL3Info=" << vlanL3Info_ << " needPam=" << needPam
                        << " arpReplyRxPam=" << arpReplyRxPam());
    if (needPam && arpReplyRxPam_ && arpReplyRxPam_->enabled() &&
        arpReplyRxPam_->ifIndex() != vlanL3Info_->kniIntfIfIndex()) {
        // Another device has taken the name, and nobody saw that there was none in between. What
        // listens to the old one hears nothing any more.
        arpReplyRxPamDel();
    }
    if (needPam == static_cast<bool>(arpReplyRxPam_)) {
        return;
    }
    if (!needPam) {
        arpReplyRxPamDel();
        return;
    }
    arpReplyRxPam_ = safeEthDevPamFactory(vlanL3Info_->kniIntfName(), ethProtocol,
                                          vlanL3Info_->vrfInfo()->netNs(), scheduler());
    readable_ = arpReplyRxPam_->readableCountAttribute().react(
        this, [this] { handleArpReplyRxPamReadable(); });
}

void BindingDiscoveryVarpReplySmBase::arpReplyRxPamDel() {
    readable_.clear();
    arpReplyRxPam_.reset();
}

void BindingDiscoveryVarpReplySmBase::handleArpReplyRxPamReadable() {
    bool scheduled = walkScheduled();
    TRACE(trace, 8, this,
          "readableCount=" << arpReplyRxPam_->readableCount() << " scheduled=" << scheduled);
    if (!scheduled) {
        scheduleWalk();
    }
}

Vela::WalkRet BindingDiscoveryVarpReplySmBase::walk() {
    uint32_t processed = 0;
    while (arpReplyRxPam_) { // what a frame leads to may end it
        auto pkt = arpReplyRxPam_->rxPkt();
        if (!pkt) {
            break;
        }
        processPacket(*pkt);
        ++processed;
        if (mustYield()) {
            return {1, processed};
        }
    }
    return {0, processed};
}

Bridging::VlanId BindingDiscoveryVarpReplySmBase::vlanId() const {
    return vlanL3Info_ ? vlanL3Info_->vlanId() : Bridging::VlanId();
}

void BindingDiscoveryVarpReplySmBase::refuse(std::string_view problem, const Vela::Pkt& pkt,
                                             Id id) {
    TRACE(trace, 8, this, problem << dataOf(pkt));
    count(id);
}

void BindingDiscoveryVarpReplySmBase::createLocalBinding(const Zinc::IpGenAddr& ipAddress,
                                                         const Zinc::EthAddr& macAddress) {
    bindingDiscoverySm_.createLocalBinding(vlanId(), ipAddress, macAddress, true);
}

void BindingDiscoveryVarpReplySmBase::formatDerivedType(std::ostream& out) const {
    out << "af=" << af_ << " vlanId=" << vlanId();
}

void BindingDiscoveryVarpReplySmBase::traceEvent(Vela::TraceEvent event) {
    TRACE(trace, 8, this, "traceEvent=" << toString(event));
}

void BindingDiscoveryVarpReplySmBase::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "BindingDiscoveryVarpReplySm af=%d %s\n", static_cast<int>(af_),
                  vlanId().toStrep().c_str());
}

// ARP replies

void BindingDiscoveryVarpReplyV4Sm::handleKniIntfIfIndex() {
    BindingDiscoveryVarpReplySmBase::handleKniIntfIfIndex(Vela::EtherType::arp);
}

void BindingDiscoveryVarpReplyV4Sm::processPacket(const Vela::Pkt& pkt) {
    Vela::WireReader reader(pkt.bytes());
    auto ethHdr = Vela::EthHdr::read(reader);
    if (!reader.ok()) {
        return refuse("not enough data for EthHdr data=", pkt, Id::varpArpMalformed);
    }
    if (ethHdr.etherType != Vela::EtherType::arp) {
        return refuse("not an ARP packet data=", pkt, Id::varpArpMalformed);
    }
    auto arp = Vela::ArpHdr::read(reader);
    if (!reader.ok()) {
        return refuse("not enough data for EthArpIpHdr data=", pkt, Id::varpArpMalformed);
    }
    if (!arp.isValid()) {
        return refuse("invalid ARP header data=", pkt, Id::varpArpMalformed);
    }
    if (arp.operation != Vela::ArpHdr::reply) {
        TRACE(trace, 8, this,
              "ARP packet not a reply opcode=" << arp.operation << " data=" << dataOf(pkt));
        count(Id::varpArpNotReply);
        return;
    }
    if (pkt.size() > ethArpIpHdrBytes) {
        // As most are: frames on a wire are padded to 60 bytes.
        TRACE(trace, 8, this,
              "ARP reply has extra data len=" << pkt.size() << " data=" << dataOf(pkt));
        count(Id::varpArpExtraData);
    }
    if (arp.targetMac != varpVirtualMac()) {
        TRACE(trace, 8, this,
              "ARP reply not destined to VARP MAC targetEthAddr="
                  << arp.targetMac << " varpVirtualMac=" << varpVirtualMac()
                  << " data=" << dataOf(pkt));
        count(Id::varpArpNotToVarpMac);
        return;
    }
    count(Id::varpArpAccepted);
    createLocalBinding(Zinc::IpGenAddr(arp.senderIp), arp.senderMac);
}

// Neighbor Advertisements

void BindingDiscoveryVarpReplyV6Sm::handleKniIntfIfIndex() {
    BindingDiscoveryVarpReplySmBase::handleKniIntfIfIndex(Vela::EtherType::ipv6);
}

void BindingDiscoveryVarpReplyV6Sm::processPacket(const Vela::Pkt& pkt) {
    Vela::WireReader reader(pkt.bytes());
    auto ethHdr = Vela::EthHdr::read(reader);
    if (!reader.ok()) {
        return refuse("not enough data for EthHdr data=", pkt, Id::varpNaMalformed);
    }
    if (ethHdr.etherType != Vela::EtherType::ipv6) {
        return refuse("not an IPV6 packet data=", pkt, Id::varpNaMalformed);
    }
    Arp::NdPkt advertisement;
    if (Arp::NdErrors errors = Arp::validateIp6NaPkt(reader.rest(), advertisement)) {
        TRACE(trace, 8, this, "NA pkt validate error: " << errors);
        count(Id::varpNaMalformed);
        return;
    }
    Arp::Icmp6Opt option = Arp::getIcmp6Opt(advertisement.options, Arp::targetLinkLayerAddress);
    if (!option.valid) {
        TRACE(trace, 8, this, "Failed to parse NA pkt option headers");
        count(Id::varpNaMalformed);
        return;
    }
    auto targetEthAddr = option.ethAddr();
    if (!targetEthAddr) {
        if (ethHdr.dst.isMulticast()) {
            TRACE(trace, 8, this, "Failed to get NA pkt sender eth");
            count(Id::varpNaMalformed);
            return;
        }
        targetEthAddr = ethHdr.dst;
    }
    if (*targetEthAddr != varpVirtualMac()) {
        TRACE(trace, 8, this,
              " Neighbor Advertisement not destined to VARP MAC targetEthAddr="
                  << *targetEthAddr << " varpVirtualMac=" << varpVirtualMac()
                  << " data=" << dataOf(pkt));
        count(Id::varpNaNotToVarpMac);
        return;
    }
    count(Id::varpNaAccepted);
    createLocalBinding(advertisement.ip6Hdr.src, ethHdr.src);
}

} // namespace ArpSuppression
