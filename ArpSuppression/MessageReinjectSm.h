#pragma once

#include "ArpSuppression/MessageTapSocketSm.h"
#include "ArpSuppression/TrappedMessage.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Evpn/EvpnStatus.h"
#include "Platform/Model/Evpn/MplsConfig.h"

#include <array>
#include <cstdint>

namespace ArpSuppression {

/// Writes the requests that wait in the queue back to the forwarding plane, which floods them to
/// the remote tunnel end points. A request leaves as soon as the socket takes it; while that is
/// full requests wait in the queue. While there is no socket they are dropped.
class MessageReinjectSmBase : public MessageTapSocketSm {
  public:
    void dumpState(Vela::DumpContext& context, int indent) const override;

  protected:
    MessageReinjectSmBase(Vela::Ptr<Vela::TaskScheduler> scheduler,
                          Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                          Vela::Ptr<MessageQueue> reinjectMessageQueue,
                          Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
                          const char* taskName, const char* interfaceName);

    /// Writes one message to the socket and returns what `write` did, or 0 for a message that is
    /// not to be written. What is not negative counts as reinjected.
    virtual int32_t processMessage(const TrappedMessage& message) = 0;

    void handleInitialized() override;
    void handleSocketClosed() noexcept override;
    bool walkStartedNotification() override { return true; }
    Vela::WalkRet walk() override;

    int32_t writeFrame(std::span<const uint8_t> frame);
    void count(ArpSuppressionCounterId id) { arpSuppressionCounterStatus_->increment(id); }

  private:
    Vela::Ptr<MessageQueue> reinjectMessageQueue_;
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus_;
    Vela::Reaction queueReaction_;
};

/// On a switching chip: an MPLS frame with the labels of the VLAN's flood goes to "fabric".
///
///     0   6  the switch's own address        18  4  IMET label, TTL 255
///     6   6  the request's source address    22  4  label of the source's segment, TTL 255, bottom
///     12  2  0x8100                          26  4  control word, zero; if enabled
///     14  2  VLAN id 0xFFF                   then the request: both addresses, an 802.1Q tag if
///     16  2  0x8847                          the fabric wants one, ethertype, payload
class MessageReinjectSmPhysical final : public MessageReinjectSmBase {
  public:
    MessageReinjectSmPhysical(Vela::Ptr<Vela::TaskScheduler> scheduler,
                              Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                              Vela::Ptr<MessageQueue> reinjectMessageQueue,
                              Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
                              Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
                              Vela::Ptr<const Evpn::MplsConfig> evpnMplsConfig,
                              Vela::Ptr<const Bridging::Config> bridgingConfig);
    const char* typeName() const noexcept override { return "MessageReinjectSmPhysical"; }

  private:
    struct Encapsulation {
        uint32_t imetLabel;
        uint32_t localEsiMplsLabel;
        Bridging::VlanIdOrNone vlanAwareVlanId;
        bool addInnerDot1Q;
        bool origDot1QPresent;
        bool controlWordEnabled;
    };

    int32_t processMessage(const TrappedMessage& message) override;
    uint32_t localEsiMplsLabel(const TrappedMessage& message) const;
    std::span<const uint8_t> buildFrame(const TrappedMessage& message, const Encapsulation& with);

    Vela::Ptr<const Evpn::EvpnStatus> evpnStatus_;
    Vela::Ptr<const Evpn::MplsConfig> evpnMplsConfig_;
    Vela::Ptr<const Bridging::Config> bridgingConfig_;
    std::array<uint8_t, 10100> frame_; // what a trapped frame can hold, and the headers
};

/// With forwarding in software: the trapped frame goes to "arpinject" as it came, with its trap
/// header, from which the forwarding plane takes the VLAN.
class MessageReinjectSmMimic final : public MessageReinjectSmBase {
  public:
    MessageReinjectSmMimic(Vela::Ptr<Vela::TaskScheduler> scheduler,
                           Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                           Vela::Ptr<MessageQueue> reinjectMessageQueue,
                           Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus);
    const char* typeName() const noexcept override { return "MessageReinjectSmMimic"; }

  private:
    int32_t processMessage(const TrappedMessage& message) override;
};

} // namespace ArpSuppression
