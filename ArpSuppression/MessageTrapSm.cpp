#include "ArpSuppression/MessageTrapSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Agent/Toggle.h"
#include "Platform/Base/Assert.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/NeighborDiscovery.h"
#include "Platform/Packet/Pkt.h"
#include "Platform/State/DumpContext.h"

#include <cerrno>
#include <utility>

namespace ArpSuppression {

namespace {

using Bridging::VlanTag;
using Id = ArpSuppressionCounterId;
using Vela::WireReader;
namespace EtherType = Vela::EtherType;

// Lengths up to the end of the headers of a trapped frame.
constexpr uint32_t trapHeaderEnd = 28;
constexpr uint32_t ethHdrEnd = 30;
constexpr uint32_t dot1qHdrEnd = 34;

} // namespace

bool toggleMplsIRBv6Enabled() {
    static const bool enabled = Vela::getToggleState("MplsIRBv6", "ArpSuppression.json", true);
    return enabled;
}

MessageTrapSm::MessageTrapSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                             Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                             Vela::Ptr<MessageTrap> receivedRequestTrapV4,
                             Vela::Ptr<MessageTrap> receivedRequestTrapV6,
                             Vela::Ptr<MessageQueue> reinjectMessageQueue,
                             Vela::Ptr<const ArpSuppressionStatus> arpSuppressionStatus,
                             Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
                             Vela::Ptr<const Interface::DeviceIntfStatusDir> deviceIntfStatusDir,
                             Vela::Ptr<const Brant::IntfEncapServiceIntfColl> intfEncapServiceIntf,
                             const char* taskName, const char* interfaceName)
    : MessageTapSocketSm(std::move(scheduler), std::move(vlanL3InfoStatus), taskName, interfaceName,
                         Protocol::norvelArpSnoop, NotifyMode::readable),
      receivedRequestTrapV4_(std::move(receivedRequestTrapV4)),
      receivedRequestTrapV6_(std::move(receivedRequestTrapV6)),
      reinjectMessageQueue_(std::move(reinjectMessageQueue)),
      arpSuppressionStatus_(std::move(arpSuppressionStatus)),
      arpSuppressionCounterStatus_(std::move(arpSuppressionCounterStatus)),
      deviceIntfStatusDir_(std::move(deviceIntfStatusDir)),
      intfEncapServiceIntf_(std::move(intfEncapServiceIntf)),
      noSubInterface_(SubInterfaceInfoIs(Zinc::IntfId(), 0)),
      frames_(std::make_unique<Vela::FrameReader>()) {}

void MessageTrapSm::handleSocketOpened(int sock) {
    if (!frames_->ringIs(sock)) {
        TRACE(trace, 8, this, "no ring for the trapped frames errno=" << errnoText());
    }
}

void MessageTrapSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    dumpSocketState(context, indent + 2);
    context.child(indent + 2, "receivedRequestTrapV4", receivedRequestTrapV4_.get());
    context.child(indent + 2, "receivedRequestTrapV6", receivedRequestTrapV6_.get());
    context.child(indent + 2, "reinjectMessageQueue", reinjectMessageQueue_.get());
}

Vela::WalkRet MessageTrapSm::walk() {
    TRACE(trace, 8, this, "walk");
    uint32_t count = 0;
    struct Slice {
        Vela::Ptr<MessageTrap> trap;
        ~Slice() { trap->moreFollowsIs(false); }
    } slice{receivedRequestTrapV4_};
    // What a frame leads to may close the socket, or end this machine.
    while (fileDescriptor()) {
        int sock = fileDescriptor()->descriptor();
        Vela::assertThat(sock >= 0, "sock >= 0");
        auto frame = frames_->next(sock);
        if (!frame) {
            if (errno == EAGAIN) {
                fileDescriptor()->readableDel();
            } else {
                TRACE(trace, 8, this, "read failed errno=" << errnoText());
                bool deviceWentDown = errno == ENETDOWN;
                arpSuppressionCounterStatus_->increment(Id::trapReadFailed);
                if (deviceWentDown) {
                    scheduleWalk(); // said once, in front of the frames that came before
                }
            }
            break;
        }
        if (frames_->waiting()) {
            slice.trap->moreFollowsIs(true);
        }
        processMessage(MessageData(frame->data(), static_cast<uint32_t>(frame->size())));
        if (!frames_->waiting()) {
            slice.trap->moreFollowsIs(false);
        }
        ++count;
        if (mustYield()) {
            return {1, count};
        }
    }
    return {0, count};
}

void MessageTrapSm::refuse(std::string_view problem, const MessageData& data) {
    TRACE(trace, 8, this, problem << data);
    arpSuppressionCounterStatus_->increment(Id::trapMalformed);
}

void MessageTrapSm::processMessage(const MessageData& data) {
    if (data.length() < trapHeaderEnd) {
        return refuse("not enough data for vxlan_encap_hdr data=", data);
    }
    WireReader reader(data.bytes());
    reader.skip(12);
    uint16_t trapEtherType = reader.u16();
    reader.skip(2);
    uint32_t vlanId = reader.u32();
    uint32_t srcIfIndex = reader.u32();
    reader.skip(4);
    if (trapEtherType != EtherType::norvelArpSnoop) {
        return refuse("not ETH_P_NORVEL_ARP_SNOOP data=", data);
    }
    if (vlanId < 1 || vlanId > 4094) {
        return refuse("Invalid vlanId data=", data);
    }
    if (data.length() < ethHdrEnd) {
        return refuse("not enough data for ethhdr data=", data);
    }
    uint16_t proto = reader.u16();
    if (proto == EtherType::dot1q) {
        processDot1qMessage(data, vlanId, srcIfIndex);
    } else if (proto == EtherType::arp) {
        processArpMessage(data, data.data() + ethHdrEnd, data.length() - ethHdrEnd, vlanId,
                          srcIfIndex, VlanTag());
    } else if (proto == EtherType::ipv6 && toggleMplsIRBv6Enabled()) {
        processIp6Message(data, vlanId, srcIfIndex, VlanTag(), 0);
    } else {
        TRACE(trace, 8, this, "packet not ARP and not IPV6 h_proto=" << proto << " data=" << data);
        arpSuppressionCounterStatus_->increment(Id::trapMalformed);
    }
}

void MessageTrapSm::processDot1qMessage(const MessageData& data, uint32_t vlanId,
                                        uint32_t srcIfIndex) {
    if (data.length() < dot1qHdrEnd) {
        return refuse("not enough data for vlan_ethhdr data=", data);
    }
    WireReader reader(data.bytes().subspan(ethHdrEnd));
    auto tag = Vela::Dot1qHdr::read(reader);
    VlanTag vlanTag(EtherType::dot1q, tag.vlanId);
    if (tag.etherType == EtherType::arp) {
        processArpMessage(data, data.data() + dot1qHdrEnd, data.length() - dot1qHdrEnd, vlanId,
                          srcIfIndex, vlanTag);
    } else if (tag.etherType == EtherType::ipv6 && toggleMplsIRBv6Enabled()) {
        processIp6Message(data, vlanId, srcIfIndex, vlanTag, Vela::Dot1qHdr::wireBytes);
    } else {
        TRACE(trace, 8, this,
              "ETH_P_8021Q encapsulated packet not ARP"
                  << " h_vlan_encapsulated_proto=" << tag.etherType << " data=" << data);
        arpSuppressionCounterStatus_->increment(Id::trapMalformed);
    }
}

void MessageTrapSm::processIp6Message(const MessageData& data, uint32_t vlanId, uint32_t srcIfIndex,
                                      VlanTag vlanTag, uint8_t tagBytes) {
    uint32_t ip6 = ethHdrEnd + tagBytes;
    uint32_t icmp6 = ip6 + static_cast<uint32_t>(Vela::Ip6Hdr::wireBytes);
    if (data.length() < icmp6) {
        return refuse("not enough data for ip6_hdr=", data);
    }
    if (data.length() < icmp6 + Vela::Icmp6Hdr::wireBytes) {
        return refuse("not enough data for Icmp6Hdr=", data);
    }
    processIcmp6Message(data, data.data()[icmp6], data.length() - icmp6, vlanId, srcIfIndex,
                        vlanTag, tagBytes);
}

bool MessageTrapSm::isSuppressed(Bridging::VlanId vlanId, const MessageData& data) {
    const bool* active = arpSuppressionStatus_->vlanIdCollection().find(vlanId);
    if (active && *active) {
        return true;
    }
    TRACE(trace, 8, this, "Unexpected vlanId=" << vlanId << " data=" << data);
    arpSuppressionCounterStatus_->increment(Id::trapVlanNotSuppressed);
    return false;
}

void MessageTrapSm::processArpMessage(const MessageData& data, const uint8_t* arpHeader,
                                      uint32_t length, uint32_t vlanId, uint32_t srcIfIndex,
                                      VlanTag vlanTag) {
    if (!isSuppressed(Bridging::VlanId(vlanId), data)) {
        return;
    }
    WireReader reader({arpHeader, length});
    auto arp = Vela::ArpHdr::read(reader);
    if (!reader.ok()) {
        return refuse("not enough data for ARP header data=", data);
    }
    if (!arp.isValid()) {
        return refuse("invalid ARP header data=", data);
    }
    MessageType messageType = MessageType::request;
    if (arp.operation == Vela::ArpHdr::request) {
        arpSuppressionCounterStatus_->increment(Id::trapArpRequest);
    } else if (arp.operation == Vela::ArpHdr::reply) {
        arpSuppressionCounterStatus_->increment(Id::trapArpReply);
        messageType = MessageType::reply;
    } else {
        TRACE(trace, 8, this,
              "ARP packet not a request or a reply"
                  << " opcode=" << arp.operation << " data=" << data);
        arpSuppressionCounterStatus_->increment(Id::trapArpNeitherRequestNorReply);
        return;
    }
    if (length != Vela::ArpHdr::wireBytes) {
        TRACE(trace, 8, this,
              "ARP message has extra data"
                  << " rcv=" << length - Vela::ArpHdr::wireBytes);
        arpSuppressionCounterStatus_->increment(Id::trapArpExtraData);
    }
    createTrappedMessage(data, messageType, vlanId, vlanTag, srcIfIndex,
                         Zinc::IpGenAddr(arp.senderIp), arp.senderMac,
                         Zinc::IpGenAddr(arp.targetIp));
}

void MessageTrapSm::processIcmp6Message(const MessageData& data, uint8_t icmp6Type, uint32_t length,
                                        uint32_t vlanId, uint32_t srcIfIndex, VlanTag vlanTag,
                                        uint8_t tagBytes) {
    TRACE(trace, 8, this,
          "rcv " << icmp6Type << " vlanId " << vlanId << " srcIfIndex " << srcIfIndex);
    if (!isSuppressed(Bridging::VlanId(vlanId), data)) {
        return;
    }
    struct Kind {
        uint8_t icmp6Type;
        const char* name;
        const char* errorText;
        Arp::NdErrors (*validate)(std::span<const uint8_t>, Arp::NdPkt&);
        Id counter;
        MessageType messageType;
        uint8_t option; // the one with the sender's link-layer address
    };
    static constexpr Kind kinds[] = {
        {Vela::Icmp6Hdr::neighborSolicitation, "Neighbor Solicitation Message",
         "NS pkt validate error: ", Arp::validateIp6NsPkt, Id::trapNeighborSolicitation,
         MessageType::v6NeighborSolicitation, Arp::sourceLinkLayerAddress},
        {Vela::Icmp6Hdr::neighborAdvertisement, "Neighbor Advertisement Message",
         "NA pkt validate error: ", Arp::validateIp6NaPkt, Id::trapNeighborAdvertisement,
         MessageType::v6NeighborAdvertisement, Arp::targetLinkLayerAddress},
        {Vela::Icmp6Hdr::routerSolicitation, "Router Solicitation Message",
         "RS pkt validate error: ", Arp::validateIp6RsPkt, Id::trapRouterSolicitation,
         MessageType::v6RouterSolicitation, Arp::sourceLinkLayerAddress},
    };
    for (const Kind& kind : kinds) {
        if (kind.icmp6Type != icmp6Type) {
            continue;
        }
        TRACE(trace, 8, this, kind.name);
        Arp::NdPkt pkt;
        Arp::NdErrors errors = kind.validate(
            data.bytes().subspan(ethHdrEnd + tagBytes, Vela::Ip6Hdr::wireBytes + length), pkt);
        if (errors) {
            TRACE(trace, 8, this, kind.errorText << errors);
            arpSuppressionCounterStatus_->increment(Id::trapMalformed);
            return;
        }
        arpSuppressionCounterStatus_->increment(kind.counter);
        // Without the option the frame's own source address says who sent it.
        WireReader frame(data.bytes());
        auto ethHdr = Vela::EthHdr::read(frame);
        auto senderMac = Arp::getIcmp6Opt(pkt.options, kind.option).ethAddr().value_or(ethHdr.src);
        auto targetIp =
            pkt.targetAddr.isUnset() ? Zinc::IpGenAddr(Zinc::IpGenAddr::Bytes{}) : pkt.targetAddr;
        createTrappedMessage(data, kind.messageType, vlanId, vlanTag, srcIfIndex, pkt.ip6Hdr.src,
                             senderMac, targetIp);
        return;
    }
    TRACE(trace, 8, this, "Invalid Icmp6 Type: " << icmp6Type);
    arpSuppressionCounterStatus_->increment(Id::trapMalformed);
}

void MessageTrapSm::createTrappedMessage(const MessageData& data, MessageType messageType,
                                         uint32_t vlanId, VlanTag vlanTag, uint32_t srcIfIndex,
                                         const Zinc::IpGenAddr& senderIp,
                                         const Zinc::EthAddr& senderMac,
                                         const Zinc::IpGenAddr& targetIp) {
    bool v4 = messageType == MessageType::request || messageType == MessageType::reply;
    auto& receivedRequestTrap = v4 ? receivedRequestTrapV4_ : receivedRequestTrapV6_;
    RemoteBindingKey target(Bridging::VlanId(vlanId), targetIp);
    receivedRequestTrap->expect(target, MessageTrap::Expected::Step::first);
    TRACE(trace, 8, this, " attempting srcIntf lookup with srcIfIndex" << srcIfIndex);
    Zinc::IntfId srcIntfId;
    bool isCpuPort = false;
    const Interface::DeviceIntfStatus* device =
        deviceIntfStatusDir_ ? deviceIntfStatusDir_->deviceIntfStatusCollection().find(srcIfIndex)
                             : nullptr;
    if (device && *device != Interface::DeviceIntfStatus()) {
        auto subInterface = getSubInterfaceInfo(device->intfId(), vlanTag);
        if (subInterface->subIntfId()) {
            srcIntfId = subInterface->subIntfId();
        } else {
            srcIntfId = device->intfId();
            isCpuPort = device->deviceName() == "cpu";
        }
    }
    boost::intrusive_ptr<const Vela::Pkt> pkt = Vela::pktManager().newPkt(data.bytes());
    auto message = trappedMessageFactory(Bridging::VlanId(vlanId), messageType, srcIntfId,
                                         isCpuPort, senderIp, senderMac, targetIp, std::move(pkt));
    TRACE(trace, 8, this,
          "Message vlanId=" << vlanId << " messageType=" << static_cast<int>(messageType)
                            << " srcintf=" << srcIfIndex << " srcIntfId" << srcIntfId
                            << " senderIp=" << senderIp << " senderMac=" << senderMac
                            << " targetIp=" << targetIp);
    receivedRequestTrap->expect(target, MessageTrap::Expected::Step::second);
    receivedRequestTrap->lastTrappedMessageIs(message);
}

Vela::Ptr<SubInterfaceInfo> MessageTrapSm::getSubInterfaceInfo(Zinc::IntfId parent, VlanTag vlanTag,
                                                               VlanTag innerVlanTag) const {
    TRACE(trace, 8, this, " Looking for intfEncap=" << vlanTag);
    auto subInterfaces = intfEncapServiceIntf_ ? intfEncapServiceIntf_->parent(parent) : nullptr;
    if (!subInterfaces) {
        TRACE(trace, 8, this, " Can not find parentIntfId.");
        return noSubInterface_;
    }
    Brant::IntfEncap wanted(vlanTag, innerVlanTag);
    for (auto cursor = subInterfaces->subIntfCollection().first(); cursor; ++cursor) {
        if (vlanTag.isTagged() && cursor.value() == wanted) {
            uint8_t numTags = innerVlanTag.isTagged() ? 2 : 1;
            TRACE(trace, 8, this,
                  "Outer/inner vlanTags or single vlan tag match for"
                      << cursor.key() << " returning numTags:" << numTags);
            return SubInterfaceInfoIs(cursor.key(), numTags);
        }
    }
    TRACE(trace, 8, this, " No matching subintf vlan encap config found");
    return noSubInterface_;
}

} // namespace ArpSuppression
