#pragma once

#include "Platform/Packet/Pkt.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Notifier.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/RemoteBindingKey.h"
#include "Platform/Value/VlanId.h"

#include <cstdint>
#include <deque>
#include <ostream>
#include <string>
#include <utility>

namespace Vela {
class ValueParser;
}

namespace ArpSuppression {

/// Text forms: request, reply, v6NeighborSolicitation and so on; value form: the same in quotes.
enum class MessageType : uint8_t {
    request = 0,
    reply = 1,
    v6NeighborSolicitation = 2,
    v6NeighborAdvertisement = 3,
    v6RouterSolicitation = 4,
};

const char* toStrep(MessageType type);
inline std::ostream& operator<<(std::ostream& out, MessageType type) {
    return out << toStrep(type);
}
/// Reads the value form; throws ParseError.
MessageType messageTypeFromValue(Vela::ValueParser& parser);

/// One ARP or IPv6 neighbour discovery packet that was trapped; never changes.
class TrappedMessage final : public Vela::Entity {
  public:
    TrappedMessage(Bridging::VlanId vlanId, MessageType type, Zinc::IntfId srcIntfId,
                   bool isCpuPort, const Zinc::IpGenAddr& senderIpAddress,
                   const Zinc::EthAddr& senderMacAddress, const Zinc::IpGenAddr& targetIpAddress,
                   Vela::Ptr<const Vela::Pkt> pkt)
        : type_(type), isCpuPort_(isCpuPort), vlanId_(vlanId), senderMacAddress_(senderMacAddress),
          srcIntfId_(srcIntfId), senderIpAddress_(senderIpAddress),
          targetIpAddress_(targetIpAddress), pkt_(std::move(pkt)) {}

    const char* typeName() const noexcept override { return "TrappedMessage"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;
    /// <request vlanId=10 if=Ethernet1 cpuPort=no sIp=10.0.0.1 sMac=02:00:00:00:00:01 tIp=10.0.0.2>
    std::string toStrep() const;

    /// The VLAN that the packet arrived on.
    Bridging::VlanId vlanId() const { return vlanId_; }
    MessageType type() const { return type_; }
    /// The interface that it arrived on; empty when unknown.
    Zinc::IntfId srcIntfId() const { return srcIntfId_; }
    /// It came from the switch's own CPU port.
    bool isCpuPort() const { return isCpuPort_; }
    const Zinc::IpGenAddr& senderIpAddress() const { return senderIpAddress_; }
    const Zinc::EthAddr& senderMacAddress() const { return senderMacAddress_; }
    const Zinc::IpGenAddr& targetIpAddress() const { return targetIpAddress_; }
    /// The packet as received, so that it can be sent on unchanged.
    const Vela::Ptr<const Vela::Pkt>& pkt() const { return pkt_; }

  private:
    const MessageType type_;
    const bool isCpuPort_;
    const Bridging::VlanId vlanId_;
    const Zinc::EthAddr senderMacAddress_;
    const Zinc::IntfId srcIntfId_;
    const Zinc::IpGenAddr senderIpAddress_;
    const Zinc::IpGenAddr targetIpAddress_;
    const Vela::Ptr<const Vela::Pkt> pkt_;
};

/// "NULL" for none.
inline std::ostream& operator<<(std::ostream& out, const Vela::Ptr<const TrappedMessage>& message) {
    return out << Vela::toStrep(message);
}

/// Takes the constructor's arguments.
template <class... Arguments>
Vela::Ptr<const TrappedMessage> trappedMessageFactory(Arguments&&... arguments) {
    return Vela::make<TrappedMessage>(std::forward<Arguments>(arguments)...);
}

/// Where the latest trapped message of a family is handed to whoever reacts to it. Its end takes
/// the message away, which is announced like any other.
class MessageTrap final : public Vela::Entity {
  public:
    const char* typeName() const noexcept override { return "MessageTrap"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// May be none. The setter announces every call.
    const Vela::Ptr<const TrappedMessage>& lastTrappedMessage() const {
        return lastTrappedMessage_.get();
    }
    const Vela::Attribute<Vela::Ptr<const TrappedMessage>>& lastTrappedMessageAttribute() const {
        return lastTrappedMessage_;
    }
    void lastTrappedMessageIs(Vela::Ptr<const TrappedMessage> message) {
        lastTrappedMessage_.setAlways(std::move(message));
    }

    /// Whether the next message follows at once, within the same slice. Who sends for each message
    /// may keep what is to be sent until this is false again, which it is at the end of each slice.
    bool moreFollows() const { return moreFollows_.get(); }
    const Vela::Attribute<bool>& moreFollowsAttribute() const { return moreFollows_; }
    void moreFollowsIs(bool moreFollows) { moreFollows_.set(moreFollows); }

    /// A message that is being made, by what it asks for. Who will look that up in a large table
    /// asks memory for it meanwhile: at the first step for where the table is entered, at the
    /// second for what that leads to. The message itself may yet fail to come.
    struct Expected {
        RemoteBindingKey key;
        enum class Step : uint8_t { first, second } step;
    };
    const Vela::KeyNotifier<Expected>& expectedNotifier() const { return expected_; }
    void expect(const RemoteBindingKey& key, Expected::Step step) { expected_.notify({key, step}); }

  protected:
    void handleDestroy() noexcept override;

  private:
    Vela::Attribute<Vela::Ptr<const TrappedMessage>> lastTrappedMessage_;
    Vela::Attribute<bool> moreFollows_{false};
    Vela::KeyNotifier<Expected> expected_;
};

/// The requests that wait to be sent out again, oldest first. Its limit follows the speed of who
/// drains it: about two slices' worth of messages. When it is full the newest request gets in and
/// the oldest is dropped.
class MessageQueue final : public Vela::Entity {
  public:
    struct Entry {
        uint32_t index; ///< one more than that of the entry before, unless one was taken out
        Vela::Ptr<const TrappedMessage> message;
    };
    /// Valid until the queue changes.
    using Position = std::deque<Entry>::const_iterator;

    const char* typeName() const noexcept override { return "MessageQueue"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Appends the message, in the place of the oldest if the queue is full. Returns whether that
    /// one was dropped. A queue that holds more than its limit does not shrink by this.
    bool enqueueMessage(Vela::Ptr<const TrappedMessage> message);
    /// Adapts the limit to how many messages the last slice got rid of.
    void updateQueueLimit(uint32_t messagesProcessed);

    uint32_t messages() const { return static_cast<uint32_t>(message_.size()); }
    /// Announces that there is a message that was not there before. Nothing tells of those that
    /// leave. A reaction may change the queue.
    const Vela::Notifier& messageNotifier() const { return messageNotifier_; }

    /// Appends without regard to the limit.
    void messageEnq(Vela::Ptr<const TrappedMessage> message);
    /// Removes the oldest and returns it; none when the queue is empty.
    Vela::Ptr<const TrappedMessage> messageDeq();
    /// The oldest and the newest; none when the queue is empty.
    Vela::Ptr<const TrappedMessage> messageFront() const;
    Vela::Ptr<const TrappedMessage> messageBack() const;
    /// Where the oldest stands; the end when the queue is empty.
    Position headMessage() const { return message_.begin(); }
    Position messageEnd() const { return message_.end(); }
    /// Replaces the message with that index, or puts one where its index belongs.
    void messageIs(uint32_t index, Vela::Ptr<const TrappedMessage> message);
    void messageDel(uint32_t index);
    void messageDel(Position position) { message_.erase(position); }
    void messageDelAll();

    /// Bounds of what updateQueueLimit sets.
    uint32_t queueLimitMin() const { return queueLimitMin_; }
    void queueLimitMinIs(uint32_t messages) { queueLimitMin_ = messages; }
    uint32_t queueLimitMax() const { return queueLimitMax_; }
    void queueLimitMaxIs(uint32_t messages) { queueLimitMax_ = messages; }

    /// At so many messages the queue is full. The setter announces only a change.
    uint32_t queueLimitCurrent() const { return queueLimitCurrent_.get(); }
    const Vela::Attribute<uint32_t>& queueLimitCurrentAttribute() const {
        return queueLimitCurrent_;
    }
    void queueLimitCurrentIs(uint32_t messages) { queueLimitCurrent_.set(messages); }

  protected:
    void handleDestroy() noexcept override { messageDelAll(); }

  private:
    Position notBefore(uint32_t index) const;

    std::deque<Entry> message_;
    uint32_t nextIndex_ = 0;
    Vela::Notifier messageNotifier_;
    uint32_t queueLimitMin_ = 50;
    uint32_t queueLimitMax_ = 500;
    Vela::Attribute<uint32_t> queueLimitCurrent_{500};
};

} // namespace ArpSuppression
