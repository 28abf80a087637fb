#include "ArpSuppression/MessageTapSocketSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/PacketSockets.h"
#include "Platform/State/DumpContext.h"

#include <cerrno>
#include <linux/filter.h>
#include <sys/socket.h>
#include <utility>

namespace ArpSuppression {

namespace {

using Vela::assertThat;

uint16_t ethProtocolOf(MessageTapSocketSm::Protocol protocol) {
    switch (protocol) {
    case MessageTapSocketSm::Protocol::norvelArpSnoop:
        return Vela::EtherType::norvelArpSnoop;
    case MessageTapSocketSm::Protocol::all:
        return 3;
    case MessageTapSocketSm::Protocol::invalid:
        Vela::failAssertion("0 != proto");
    }
    Vela::failAssertion("false");
}

/// Until it was bound the socket took frames from every device.
void dropWhatCameBefore(int sock) {
    char byte;
    ssize_t length;
    do {
        length = recv(sock, &byte, 1, MSG_DONTWAIT);
        // Binding to a device that is down is reported once, in front of the frames.
    } while (length > 0 || (length < 0 && errno == ENETDOWN));
}

} // namespace

MessageTapSocketSm::MessageTapSocketSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                                       Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                                       std::string taskName, std::string interfaceName,
                                       Protocol protocol, NotifyMode notifyMode)
    : WalkSmBase(std::move(scheduler), 3, std::move(taskName)),
      vlanL3InfoStatus_(std::move(vlanL3InfoStatus)), interfaceName_(std::move(interfaceName)),
      protocol_(protocol), notifyMode_(notifyMode) {}

void MessageTapSocketSm::handleMessageTapSocketSmInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    interfaceWatch_ = vlanL3InfoStatus_->findOrCreateVrfInterfaceWatch(interfaceName_, "default");
    ifIndexReaction_ =
        interfaceWatch_->kniIntfIfIndexAttribute().react(this, [this] { handleKniIntfIfIndex(); });
    handleKniIntfIfIndex();
}

void MessageTapSocketSm::handleInitialized() {
    WalkSmBase::handleInitialized();
    handleMessageTapSocketSmInitialized();
}

void MessageTapSocketSm::handleMessageTapSocketSmDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    closeSocket();
}

void MessageTapSocketSm::handleKniIntfIfIndex() {
    TRACE(trace, 8, this, "interfaceWatch=" << interfaceWatch_);
    closeSocket();
    if (interfaceWatch_->usable()) {
        assertThat(0 != interfaceWatch_->kniIntfIfIndex(),
                   "0 != interfaceWatch()->kniIntfIfIndex()");
        openSocket();
    }
}

void MessageTapSocketSm::openSocket() {
    uint16_t proto = ethProtocolOf(protocol_);
    Vela::UniqueFd socket = Vela::packetSockets().open(proto);
    if (!socket) {
        TRACE(trace, 8, this,
              "socket creation failed"
                  << " errno=" << errnoText());
        return;
    }
    if (Vela::packetSockets().bind(socket.get(), proto, interfaceWatch_->kniIntfIfIndex()) != 0) {
        TRACE(trace, 8, this, "bind failed intfId=" << interfaceName_ << " errno=" << errnoText());
        return;
    }
    TRACE(trace, 8, this, "bound socket=" << socket.get());
    if (notifyMode_ == NotifyMode::writable) {
        receiveNothing(socket.get());
    } else {
        receiveBursts(socket.get());
    }
    dropWhatCameBefore(socket.get());
    handleSocketOpened(socket.get());
    fileDescriptor_ = Vela::make<Vela::FileDescriptor>(scheduler(), "ArpTrap", std::move(socket));
    fileDescriptor_->hasNotificationActiveIs(true);
    readableReaction_ =
        fileDescriptor_->readableCountAttribute().react(this, [this] { handleFileDescriptor(); });
    writableReaction_ =
        fileDescriptor_->writableCountAttribute().react(this, [this] { handleFileDescriptor(); });
    if (notifyMode_ == NotifyMode::readable) {
        fileDescriptor_->notifyOnReadableIs(true);
    } else {
        fileDescriptor_->notifyOnWritableIs(true);
    }
}

/// What comes while the agent is at other work for some milliseconds, or not scheduled for longer,
/// must not be lost. Where frames do not come through a ring: room for some ten thousand small ones
/// instead of the kernel's 250.
void MessageTapSocketSm::receiveBursts(int sock) const {
    int receiveBytes = 8 << 20;
    // By force where that is allowed: the other call stays below the system's limit, silently.
    if (setsockopt(sock, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBytes, sizeof receiveBytes) != 0 &&
        setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof receiveBytes) != 0) {
        TRACE(trace, 8, this,
              "setsockopt SO_RCVBUF failed intfId=" << interfaceName_ << " errno=" << errnoText());
    }
}

/// A socket that is only written to must not fill up with what others send.
void MessageTapSocketSm::receiveNothing(int sock) const {
    int receiveBytes = 0;
    if (setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof receiveBytes) != 0) {
        TRACE(trace, 8, this,
              "setsockopt SO_RCVBUF failed intfId=" << interfaceName_ << " errno=" << errnoText());
    }
    // The kernel rounds 0 up to room for a small frame: a filter refuses that one, too.
    sock_filter refuse = BPF_STMT(BPF_RET | BPF_K, 0);
    sock_fprog program = {1, &refuse};
    if (setsockopt(sock, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
        TRACE(trace, 8, this,
              "setsockopt SO_ATTACH_FILTER failed intfId=" << interfaceName_
                                                           << " errno=" << errnoText());
    }
}

void MessageTapSocketSm::closeSocket() noexcept {
    if (!fileDescriptor_) {
        return;
    }
    int sock = fileDescriptor_->descriptor();
    assertThat(sock >= 0, "sock >= 0");
    TRACE(trace, 8, this, "closing socket=" << sock);
    fileDescriptor_.reset();
    handleSocketClosed();
}

void MessageTapSocketSm::handleFileDescriptor() {
    bool scheduled = walkScheduled();
    if (!scheduled) { // what a walk under way goes on with need not start over
        scheduleWalk();
    }
    TRACE(trace, 8, this,
          " scheduled=" << scheduled << " readableCount=" << fileDescriptor_->readableCount()
                        << " writableCount=" << fileDescriptor_->writableCount());
}

void MessageTapSocketSm::dumpSocketState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "interfaceWatch %s\n", Vela::toStrep(interfaceWatch_).c_str());
    context.print(indent, "fileDescriptor %s socket %d\n",
                  Vela::toStrep(fileDescriptor_.ptr()).c_str(),
                  fileDescriptor_ ? fileDescriptor_->descriptor() : -1);
}

void MessageTapSocketSm::traceEvent(Vela::TraceEvent event) {
    TRACE(trace, 8, this, "traceEvent=" << toString(event));
}

} // namespace ArpSuppression
