#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "Platform/Scheduler/FileDescriptor.h"
#include "Platform/Scheduler/WalkSmBase.h"

#include <cstdint>
#include <string>

namespace ArpSuppression {

/// Base of the machines that read from or write to a raw packet socket: owns the socket, which is
/// bound to one kernel device of the VRF "default" and open while that is usable, and turns its
/// readiness into walks of the derived machine. When the device gets another index the socket is
/// closed and opened anew. A socket that cannot be had is traced and waits for the next index.
class MessageTapSocketSm : public Vela::WalkSmBase {
  public:
    enum class Protocol : uint8_t { invalid = 0, norvelArpSnoop = 1, all = 2 };
    enum class NotifyMode : uint8_t { readable = 0, writable = 1 };

    const std::string& interfaceName() const { return interfaceName_; }
    Protocol protocol() const { return protocol_; }
    const Vela::Ptr<VrfInterfaceWatch>& interfaceWatch() const { return interfaceWatch_; }
    /// Empty while there is no socket.
    const Vela::Ptr<Vela::FileDescriptor>& fileDescriptor() const { return fileDescriptor_.ptr(); }

  protected:
    MessageTapSocketSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                       Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus, std::string taskName,
                       std::string interfaceName, Protocol protocol, NotifyMode notifyMode);

    // A derived machine calls these from its own handleInitialized, handleDestroy and dumpState.
    void handleMessageTapSocketSmInitialized();
    void handleMessageTapSocketSmDestroy() noexcept;
    void dumpSocketState(Vela::DumpContext& context, int indent) const;

    /// The socket is bound and about to be read.
    virtual void handleSocketOpened(int) {}
    /// What was read from the socket and not handled is to be forgotten.
    virtual void handleSocketClosed() noexcept {}

    bool allowWalkRestarts() const override { return true; }
    bool walkStartedNotification() override { return false; }
    void traceEvent(Vela::TraceEvent event) override;

    void handleInitialized() override;
    void handleDestroy() noexcept override { handleMessageTapSocketSmDestroy(); }

  private:
    void handleKniIntfIfIndex();
    void openSocket();
    void receiveBursts(int sock) const;
    void receiveNothing(int sock) const;
    void closeSocket() noexcept;
    void handleFileDescriptor();

    Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus_;
    const std::string interfaceName_;
    const Protocol protocol_;
    const NotifyMode notifyMode_;
    Vela::Ptr<VrfInterfaceWatch> interfaceWatch_;
    Vela::Owned<Vela::FileDescriptor> fileDescriptor_;
    Vela::Reaction ifIndexReaction_;
    Vela::Reaction readableReaction_;
    Vela::Reaction writableReaction_;
};

} // namespace ArpSuppression
