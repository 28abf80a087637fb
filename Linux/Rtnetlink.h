#pragma once

#include "Linux/NetlinkConsumer.h"
#include "Platform/Quarry/ChangeLog.h"
#include "Platform/Scheduler/FileDescriptor.h"
#include "Platform/Scheduler/Task.h"
#include "Platform/State/Attribute.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Linux {

/// What has passed through a socket since it was opened.
struct RtnetlinkStatistics {
    uint64_t messages = 0;    ///< given to a consumer
    uint64_t ignored = 0;     ///< of no kind that somebody consumes
    uint64_t resyncs = 0;     ///< dumps finished, each kind by itself
    uint64_t overruns = 0;    ///< the kernel had no room for an announcement
    uint64_t interrupted = 0; ///< dumps during which the kernel's lists changed
    uint64_t failures = 0;    ///< dumps that the kernel refused
};

/// The one rtnetlink socket of a network namespace: dumps and announcements come through it in the
/// kernel's order. It subscribes before it dumps, and dumps everything anew when the kernel says
/// that something was lost or that a dump does not hang together; nothing of the kind ends it.
///
/// It reads in slices, stops while the process's table change log is over half full, and leaves it
/// to the kernel to drop what does not fit: the dump that follows makes up for it.
class Rtnetlink final : public Vela::Entity {
  public:
    /// `receiveBuffer` is in bytes; 0 keeps the kernel's default. Throws std::system_error where
    /// the namespace cannot be entered or the socket not be opened.
    Rtnetlink(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<Quarry::ChangeLog> changeLog,
              std::string netNs, size_t receiveBuffer);

    const char* typeName() const noexcept override { return "Linux::Rtnetlink"; }
    void formatDerivedType(std::ostream& out) const override { out << netNs_; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const std::string& netNs() const { return netNs_; }
    /// Which namespace that is: a name may stand for another one later. 0 if nobody knows.
    uint64_t netNsInode() const { return netNsInode_; }
    void receiveBufferIs(size_t bytes);

    /// Subscribes for a kind and has it dumped. One consumer per kind; it outlives this object or
    /// is taken out before.
    void consumerIs(NetlinkKind kind, NetlinkConsumer& consumer);
    void consumerDel(NetlinkKind kind);
    /// Has a kind dumped again soon, for a consumer that now sees other entries than before.
    /// Requests made until then are one.
    void requestResync(NetlinkKind kind);
    /// Asks for one device's message, which comes like an announcement.
    void requestLink(uint32_t ifIndex);

    /// Whether all that somebody consumes has been dumped and nothing needs to be dumped again.
    /// Announces a change.
    bool synchronized() const { return synchronized_.get(); }
    const Vela::Attribute<bool>& synchronizedAttribute() const { return synchronized_; }

    const RtnetlinkStatistics& statistics() const { return statistics_; }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    enum class Received : uint8_t { messages, nothing };

    Vela::SliceResult read();
    Received receive();
    void handle(const nlmsghdr& message);
    void handleDumpEnd(int error);
    void handleOverrun();
    void resyncAll(double seconds);
    bool startDump();
    void send(const nlmsghdr& request);
    NetlinkConsumer*& consumerOf(NetlinkKind kind) { return consumers_[static_cast<size_t>(kind)]; }
    void updateSynchronized();

    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::Ptr<Quarry::ChangeLog> changeLog_;
    const std::string netNs_;
    uint64_t netNsInode_ = 0;
    Vela::Owned<Vela::FileDescriptor> socket_;
    Vela::Owned<Vela::Task> task_;
    Vela::Reaction readableReaction_;
    Vela::Reaction changeLogReaction_;

    std::array<NetlinkConsumer*, netlinkKinds> consumers_{};
    std::vector<uint64_t> buffer_; // aligned as netlink messages are
    size_t next_ = 0;              // of the bytes received, the first not handled
    size_t end_ = 0;

    std::array<bool, netlinkKinds> wanted_{}; // to be dumped
    std::optional<NetlinkKind> dumping_;
    uint32_t dumpSequence_ = 0;
    bool dumpLost_ = false;            // what is being dumped is not all
    Vela::MonotonicTime notBefore_{0}; // the next dump
    Vela::Attribute<bool> synchronized_;
    RtnetlinkStatistics statistics_;
};

} // namespace Linux
