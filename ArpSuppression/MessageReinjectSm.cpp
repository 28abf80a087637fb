#include "ArpSuppression/MessageReinjectSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/Pkt.h"
#include "Platform/State/DumpContext.h"

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace ArpSuppression {

namespace {

using Id = ArpSuppressionCounterId;
using Vela::assertThat;
namespace EtherType = Vela::EtherType;

// Where the ethertype behind the trap header stands, and the payload behind a tag or none.
constexpr size_t carriedEtherType = 28;
constexpr size_t untaggedPayload = 30;
constexpr size_t taggedPayload = 34;

} // namespace

MessageReinjectSmBase::MessageReinjectSmBase(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
    Vela::Ptr<MessageQueue> reinjectMessageQueue,
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus, const char* taskName,
    const char* interfaceName)
    : MessageTapSocketSm(std::move(scheduler), std::move(vlanL3InfoStatus), taskName, interfaceName,
                         Protocol::norvelArpSnoop, NotifyMode::writable),
      reinjectMessageQueue_(std::move(reinjectMessageQueue)),
      arpSuppressionCounterStatus_(std::move(arpSuppressionCounterStatus)) {}

void MessageReinjectSmBase::handleInitialized() {
    queueReaction_ = reinjectMessageQueue_->messageNotifier().react(this, [this] {
        // A full socket would refuse the oldest message, which then is lost.
        bool full = fileDescriptor() && !fileDescriptor()->writable();
        if (!full && !walkScheduled()) {
            scheduleWalk();
        }
    });
    MessageTapSocketSm::handleInitialized();
}

/// What waits for a full socket leaves through the one that takes its place at once, or is dropped:
/// a device that comes later is not to flood what was asked long ago.
void MessageReinjectSmBase::handleSocketClosed() noexcept {
    scheduleWalk();
}

void MessageReinjectSmBase::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "interfaceName: %s\n", interfaceName().c_str());
    context.print(indent + 2, "protocol: %u\n", static_cast<unsigned>(protocol()));
    dumpSocketState(context, indent + 2);
    context.child(indent + 2, "reinjectMessageQueue", reinjectMessageQueue_.get());
}

Vela::WalkRet MessageReinjectSmBase::walk() {
    TRACE(trace, 8, this, "walk");
    if (!fileDescriptor()) {
        reinjectMessageQueue_->messageDelAll();
        return {0, 0};
    }
    size_t initialMessages = reinjectMessageQueue_->messages();
    uint32_t processed = 0;
    bool yielded = false;
    while (auto message = reinjectMessageQueue_->messageDeq()) {
        if (processMessage(*message) < 0) {
            TRACE(trace, 8, this, "write failed errno=" << errnoText());
            count(Id::reinjectWriteFailed);
            // A socket that is writable still is not announced again.
            if (fileDescriptor()->writable() && reinjectMessageQueue_->messages() > 0) {
                scheduleWalk();
            }
            break;
        }
        count(Id::reinjectWritten);
        ++processed;
        if (mustYield()) {
            yielded = true;
            break;
        }
    }
    reinjectMessageQueue_->updateQueueLimit(processed);
    if (!yielded) {
        return {0, processed};
    }
    TRACE(trace, 8, this,
          " initialMessages=" << initialMessages << " messages="
                              << reinjectMessageQueue_->messages() << " processed=" << processed);
    return {reinjectMessageQueue_->messages() > 0, processed};
}

int32_t MessageReinjectSmBase::writeFrame(std::span<const uint8_t> frame) {
    int sock = fileDescriptor()->descriptor();
    auto written = static_cast<int32_t>(write(sock, frame.data(), frame.size()));
    if (written < 0 && errno == ENETDOWN) {
        // That may be of the past: a device that went down and came up again leaves it behind.
        written = static_cast<int32_t>(write(sock, frame.data(), frame.size()));
    }
    if (written < 0 && errno == EAGAIN) {
        fileDescriptor()->writableDel();
    }
    return written;
}

MessageReinjectSmPhysical::MessageReinjectSmPhysical(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
    Vela::Ptr<MessageQueue> reinjectMessageQueue,
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
    Vela::Ptr<const Evpn::EvpnStatus> evpnStatus, Vela::Ptr<const Evpn::MplsConfig> evpnMplsConfig,
    Vela::Ptr<const Bridging::Config> bridgingConfig)
    : MessageReinjectSmBase(std::move(scheduler), std::move(vlanL3InfoStatus),
                            std::move(reinjectMessageQueue), std::move(arpSuppressionCounterStatus),
                            "MessageReinjectSmPhysical", "fabric"),
      evpnStatus_(std::move(evpnStatus)), evpnMplsConfig_(std::move(evpnMplsConfig)),
      bridgingConfig_(std::move(bridgingConfig)) {}

uint32_t MessageReinjectSmPhysical::localEsiMplsLabel(const TrappedMessage& message) const {
    Zinc::IntfId srcIntfId = message.srcIntfId();
    if (srcIntfId) {
        const Evpn::EsiLabel* label = evpnStatus_->localEsiLabelCollection().find(srcIntfId);
        auto segment = evpnStatus_->segmentStatus(srcIntfId);
        if (label && segment && segment->dfTep(message.vlanId())) {
            return label->mplsLabel();
        }
    }
    return Vela::MplsEntry::implicitNull;
}

int32_t MessageReinjectSmPhysical::processMessage(const TrappedMessage& message) {
    const Evpn::ImetLabel* imet = evpnStatus_->imetLabelCollection().find(message.vlanId());
    if (!imet || imet->encapsulation() != Evpn::EncapType::mpls) {
        TRACE(trace, 8, this, "no IMET label message=" << message);
        count(Id::reinjectNoImetLabel);
        return 0;
    }
    Encapsulation with{};
    with.imetLabel = imet->label();
    with.vlanAwareVlanId = evpnStatus_->vlanToDot1qCollection().value(message.vlanId());
    with.addInnerDot1Q = with.vlanAwareVlanId || evpnMplsConfig_->innerDot1qDefault();
    with.localEsiMplsLabel = localEsiMplsLabel(message);
    Vela::WireReader carried(message.pkt()->bytes().subspan(carriedEtherType));
    with.origDot1QPresent = carried.u16() == EtherType::dot1q;
    with.controlWordEnabled = evpnMplsConfig_->controlWordEnabled();
    TRACE(trace, 8, this,
          "message=" << message << " localImetLabel=" << with.imetLabel << " localEsiMplsLabel="
                     << with.localEsiMplsLabel << " vlanAwareVlanId=" << with.vlanAwareVlanId
                     << " addInnerDot1Q=" << with.addInnerDot1Q << " origDot1QPresent="
                     << with.origDot1QPresent << " controlWordEnabled=" << with.controlWordEnabled);
    return writeFrame(buildFrame(message, with));
}

std::span<const uint8_t> MessageReinjectSmPhysical::buildFrame(const TrappedMessage& message,
                                                               const Encapsulation& with) {
    std::span<const uint8_t> trapped = message.pkt()->bytes();
    size_t payload = with.origDot1QPresent ? taggedPayload : untaggedPayload;
    uint16_t packetType = Vela::WireReader(trapped.subspan(payload - 2)).u16();
    assertThat(packetType == 0x0806 || packetType == 0x86DD,
               "packetType == 0x0806 || packetType == 0x86DD");

    Vela::WireWriter writer(frame_);
    writer.bytes(bridgingConfig_->bridgeMacAddr().bytes());
    writer.bytes(trapped.subspan(6, 6));
    writer.u16(EtherType::dot1q);
    Vela::Dot1qHdr{.priority = 0, .vlanId = 0xFFF, .etherType = EtherType::mpls}.write(writer);
    Vela::MplsEntry{.label = with.imetLabel, .ttl = 255}.write(writer);
    Vela::MplsEntry{.label = with.localEsiMplsLabel, .bottomOfStack = true, .ttl = 255}.write(
        writer);
    if (with.controlWordEnabled) {
        writer.u32(0);
    }
    writer.bytes(trapped.first(12));
    if (with.addInnerDot1Q) {
        Bridging::VlanIdOrNone vlanId =
            with.vlanAwareVlanId ? with.vlanAwareVlanId : Bridging::VlanIdOrNone(message.vlanId());
        writer.u16(EtherType::dot1q);
        Vela::Dot1qHdr{.priority = 0, .vlanId = vlanId.value(), .etherType = packetType}.write(
            writer);
    } else {
        writer.u16(packetType);
    }
    writer.bytes(trapped.subspan(payload));
    assertThat(writer.ok(), "writer.ok()");
    return std::span<const uint8_t>(frame_).first(frame_.size() - writer.room());
}

MessageReinjectSmMimic::MessageReinjectSmMimic(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
    Vela::Ptr<MessageQueue> reinjectMessageQueue,
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus)
    : MessageReinjectSmBase(std::move(scheduler), std::move(vlanL3InfoStatus),
                            std::move(reinjectMessageQueue), std::move(arpSuppressionCounterStatus),
                            "MessageReinjectSmMimic", "arpinject") {}

int32_t MessageReinjectSmMimic::processMessage(const TrappedMessage& message) {
    return writeFrame(message.pkt()->bytes());
}

} // namespace ArpSuppression
