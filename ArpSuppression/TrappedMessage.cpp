#include "ArpSuppression/TrappedMessage.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>

namespace ArpSuppression {

// MessageType

const char* toStrep(MessageType type) {
    switch (type) {
    case MessageType::request:
        return "request";
    case MessageType::reply:
        return "reply";
    case MessageType::v6NeighborSolicitation:
        return "v6NeighborSolicitation";
    case MessageType::v6NeighborAdvertisement:
        return "v6NeighborAdvertisement";
    case MessageType::v6RouterSolicitation:
        return "v6RouterSolicitation";
    }
    Vela::failAssertion("false");
}

MessageType messageTypeFromValue(Vela::ValueParser& parser) {
    for (MessageType type :
         {MessageType::request, MessageType::reply, MessageType::v6NeighborSolicitation,
          MessageType::v6NeighborAdvertisement, MessageType::v6RouterSolicitation}) {
        if (parser.accept(Vela::quotedForm(toStrep(type)))) {
            return type;
        }
    }
    parser.fail("a message type in quotes", parser.offset());
}

// TrappedMessage

namespace {

const char* head(MessageType type) {
    switch (type) {
    case MessageType::request:
        return "<request";
    case MessageType::reply:
        return "<reply";
    case MessageType::v6NeighborSolicitation:
        return "<NeighborSolicitation";
    case MessageType::v6NeighborAdvertisement:
        return "<NeighborAdvertisement";
    case MessageType::v6RouterSolicitation:
        return "<RouterSolicitation";
    }
    Vela::failAssertion("false");
}

} // namespace

std::string TrappedMessage::toStrep() const {
    return head(type_) + (" vlanId=" + vlanId_.toStrep()) + " if=" + srcIntfId_.toStrep() +
           " cpuPort=" + (isCpuPort_ ? "yes" : "no") + " sIp=" + senderIpAddress_.toStrep() +
           " sMac=" + senderMacAddress_.toStrep() + " tIp=" + targetIpAddress_.toStrep() + ">";
}

void TrappedMessage::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "TrappedMessage %s\n", toStrep().c_str());
}

// MessageTrap

void MessageTrap::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "MessageTrap\n");
    context.child(indent + 2, "lastTrappedMessage", lastTrappedMessage().get());
}

void MessageTrap::handleDestroy() noexcept {
    // Whoever still refers to the trap does not keep a packet with it.
    lastTrappedMessage_.set(nullptr);
}

// MessageQueue

bool MessageQueue::enqueueMessage(Vela::Ptr<const TrappedMessage> message) {
    TRACE(trace, 8, this, "req=" << message);
    bool full = !message_.empty() && messages() >= queueLimitCurrent();
    if (full) {
        Vela::Ptr<const TrappedMessage> dropped = messageDeq();
        TRACE(trace, 8, this, "dropping oldReq=" << dropped);
    }
    messageEnq(std::move(message));
    return full;
}

void MessageQueue::updateQueueLimit(uint32_t messagesProcessed) {
    uint64_t twice = uint64_t{2} * messagesProcessed;
    uint32_t newLimit = twice < queueLimitMin_
                            ? queueLimitMin_
                            : static_cast<uint32_t>(std::min<uint64_t>(twice, queueLimitMax_));
    TRACE(trace, 8, this, " messagesProcessed=" << messagesProcessed << " newLimit=" << newLimit);
    queueLimitCurrentIs(newLimit);
}

void MessageQueue::messageEnq(Vela::Ptr<const TrappedMessage> message) {
    message_.push_back({nextIndex_++, std::move(message)});
    messageNotifier_.notify();
}

Vela::Ptr<const TrappedMessage> MessageQueue::messageDeq() {
    if (message_.empty()) {
        return nullptr;
    }
    Vela::Ptr<const TrappedMessage> oldest = std::move(message_.front().message);
    message_.pop_front();
    return oldest;
}

Vela::Ptr<const TrappedMessage> MessageQueue::messageFront() const {
    return message_.empty() ? nullptr : message_.front().message;
}

Vela::Ptr<const TrappedMessage> MessageQueue::messageBack() const {
    return message_.empty() ? nullptr : message_.back().message;
}

// Indexes wrap around: which of two comes first is a matter of their distance.
MessageQueue::Position MessageQueue::notBefore(uint32_t index) const {
    return std::partition_point(message_.begin(), message_.end(), [index](const Entry& entry) {
        return static_cast<int32_t>(entry.index - index) < 0;
    });
}

void MessageQueue::messageIs(uint32_t index, Vela::Ptr<const TrappedMessage> message) {
    Position position = notBefore(index);
    if (position != message_.end() && position->index == index) {
        message_[static_cast<size_t>(position - message_.begin())].message = std::move(message);
    } else {
        if (position == message_.end()) {
            nextIndex_ = index + 1;
        }
        message_.insert(position, {index, std::move(message)});
    }
    messageNotifier_.notify();
}

void MessageQueue::messageDel(uint32_t index) {
    Position position = notBefore(index);
    if (position != message_.end() && position->index == index) {
        messageDel(position);
    }
}

void MessageQueue::messageDelAll() {
    message_.clear();
}

void MessageQueue::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "MessageQueue #messages=%u\n", messages());
    for (const Entry& entry : message_) {
        context.print(indent + 2, "TrappedMessage %s\n", Vela::toStrep(entry.message).c_str());
    }
}

} // namespace ArpSuppression
