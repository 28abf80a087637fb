#pragma once

#include "ArpSuppression/MessageTapSocketSm.h"
#include "ArpSuppression/TrappedMessage.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"
#include "Platform/Model/Brant/IntfEncap.h"
#include "Platform/Model/Interface/DeviceIntfStatus.h"
#include "Platform/Packet/FrameReader.h"
#include "Platform/Value/MessageData.h"
#include "Platform/Value/VlanTag.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace ArpSuppression {

/// Reads the frames that the forwarding plane copies to the agent, refuses what is malformed, and
/// publishes every ARP request and reply and every neighbour discovery message as the latest
/// message of its trap.
///
/// A trapped frame is the requester's own with a trap header of 16 bytes between its addresses and
/// its ethertype; all numbers are in network byte order:
///
///     0   6  destination address      16  4  VLAN id, 1 to 4094
///     6   6  source address           20  4  kernel index of the port it came in on
///     12  2  0x8135                   24  4  unused
///     14  2  unused                   28     ethertype (ARP, IPv6 or 802.1Q) and payload
class MessageTrapSm : public MessageTapSocketSm {
  public:
    const char* typeName() const noexcept override { return "MessageTrapSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// One frame, valid for the call.
    void processMessage(const MessageData& data);

    /// The sub-interface of `parent` whose encapsulation is the frame's tags, or an information
    /// with the empty interface id.
    Vela::Ptr<SubInterfaceInfo> getSubInterfaceInfo(Zinc::IntfId parent, Bridging::VlanTag vlanTag,
                                                    Bridging::VlanTag innerVlanTag = {}) const;

  protected:
    MessageTrapSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                  Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                  Vela::Ptr<MessageTrap> receivedRequestTrapV4,
                  Vela::Ptr<MessageTrap> receivedRequestTrapV6,
                  Vela::Ptr<MessageQueue> reinjectMessageQueue,
                  Vela::Ptr<const ArpSuppressionStatus> arpSuppressionStatus,
                  Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
                  Vela::Ptr<const Interface::DeviceIntfStatusDir> deviceIntfStatusDir,
                  Vela::Ptr<const Brant::IntfEncapServiceIntfColl> intfEncapServiceIntf,
                  const char* taskName, const char* interfaceName);

    bool walkStartedNotification() override { return fileDescriptor() != nullptr; }
    Vela::WalkRet walk() override;
    void handleSocketOpened(int sock) override;
    void handleSocketClosed() noexcept override { frames_->drop(); }

  private:
    void refuse(std::string_view problem, const MessageData& data);
    void processDot1qMessage(const MessageData& data, uint32_t vlanId, uint32_t srcIfIndex);
    void processIp6Message(const MessageData& data, uint32_t vlanId, uint32_t srcIfIndex,
                           Bridging::VlanTag vlanTag, uint8_t tagBytes);
    void processArpMessage(const MessageData& data, const uint8_t* arpHeader, uint32_t length,
                           uint32_t vlanId, uint32_t srcIfIndex, Bridging::VlanTag vlanTag);
    void processIcmp6Message(const MessageData& data, uint8_t icmp6Type, uint32_t length,
                             uint32_t vlanId, uint32_t srcIfIndex, Bridging::VlanTag vlanTag,
                             uint8_t tagBytes);
    bool isSuppressed(Bridging::VlanId vlanId, const MessageData& data);
    void createTrappedMessage(const MessageData& data, MessageType messageType, uint32_t vlanId,
                              Bridging::VlanTag vlanTag, uint32_t srcIfIndex,
                              const Zinc::IpGenAddr& senderIp, const Zinc::EthAddr& senderMac,
                              const Zinc::IpGenAddr& targetIp);

    Vela::Ptr<MessageTrap> receivedRequestTrapV4_;
    Vela::Ptr<MessageTrap> receivedRequestTrapV6_;
    Vela::Ptr<MessageQueue> reinjectMessageQueue_;
    Vela::Ptr<const ArpSuppressionStatus> arpSuppressionStatus_;
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus_;
    Vela::Ptr<const Interface::DeviceIntfStatusDir> deviceIntfStatusDir_;
    Vela::Ptr<const Brant::IntfEncapServiceIntfColl> intfEncapServiceIntf_;
    const Vela::Ptr<SubInterfaceInfo> noSubInterface_;
    // Every frame goes through it; whoever keeps one keeps a copy.
    const std::unique_ptr<Vela::FrameReader> frames_;
};

/// On a switching chip the trap device is "fabric".
class MessageTrapSmPhysical final : public MessageTrapSm {
  public:
    template <class... References>
    explicit MessageTrapSmPhysical(References&&... references)
        : MessageTrapSm(std::forward<References>(references)..., "MessageTrapSmPhysical",
                        "fabric") {}
    const char* typeName() const noexcept override { return "MessageTrapSmPhysical"; }
};

/// With forwarding in software it is "arpsnoop".
class MessageTrapSmMimic final : public MessageTrapSm {
  public:
    template <class... References>
    explicit MessageTrapSmMimic(References&&... references)
        : MessageTrapSm(std::forward<References>(references)..., "MessageTrapSmMimic", "arpsnoop") {
    }
    const char* typeName() const noexcept override { return "MessageTrapSmMimic"; }
};

/// Whether IPv6 messages are trapped: the toggle "MplsIRBv6", read once per process.
bool toggleMplsIRBv6Enabled();

} // namespace ArpSuppression
