#pragma once

#include "Linux/LocalMultihomedSm.h"
#include "Linux/NeighborMessage.h"
#include "Linux/NetlinkConsumer.h"
#include "Linux/ResyncMarks.h"
#include "Linux/Topology.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Bridging/FdbStatus.h"
#include "Platform/Scheduler/WalkSmBase.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>

namespace Linux {

/// What an entry of a bridge's FDB is to the MAC table; `none` for what does not belong there.
/// Remote is what a control plane put on the tunnel device; what only frames told of remote hosts
/// is not EVPN's word. On any other port an entry is local, whoever put it there.
Bridging::EntryType entryType(const BridgePort& port, const NeighborMessage& message);

/// Fills the MAC table from the FDBs of the VLANs' bridges, all of them in the daemon's own
/// namespace, and keeps no second copy: after a change of ports or of a VLAN's FID it has the
/// kernel asked again. The table is this object's alone.
///
/// Of VLANs that share a FID, a host known in several has the entry that was written last, and
/// none once that one goes, until the next dump.
class FdbProvider final : public Vela::WalkSmBase, public NetlinkConsumer {
  public:
    /// `requestResync` may start the resync within the call.
    FdbProvider(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<const Topology> topology,
                Vela::Ptr<const Bridging::Config> bridgingConfig,
                Vela::Ptr<Quarry::Bridging::Status> bridgingStatus,
                Vela::Ptr<LocalMultihomedSm> localMultihomedSm,
                std::function<void()> requestResync);

    const char* typeName() const noexcept override { return "Linux::FdbProvider"; }
    /// Counts the table's entries, which takes a look at each.
    void dumpState(Vela::DumpContext& context, int indent) const override;

    void resyncStarted() override;
    void message(const nlmsghdr& header) override;
    void resyncFinished() override;

    /// Whether what the last dump did not show is out of the table.
    bool swept() const { return stage_ == ResyncStage::none; }

  protected:
    void handleInitialized() override {} // the first walk follows the first dump
    bool walkStartedNotification() override;
    Vela::WalkRet walk() override;

  private:
    enum class Ignored : uint8_t {
        malformed,
        otherFamily,
        ownTable,
        noUnicast,
        unknownPort,
        stale
    };
    static constexpr size_t reasons = 6;
    static const std::array<const char*, reasons> reasonName;

    struct HostMark : Bridging::HostKey {
        HostMark(const Bridging::HostKey& host) : HostKey(host) {}
        friend bool operator<(const HostMark& a, const HostMark& b) {
            return a.fid != b.fid ? a.fid < b.fid : a.macAddress < b.macAddress;
        }
    };
    using Marks = ResyncMarks<HostMark>;

    void handle(const NeighborMessage& message);
    void ignore(Ignored reason) { ++ignored_[static_cast<size_t>(reason)]; }
    void entryIs(const Bridging::QuarryFdbStatus& entry);
    void entryDel(const Bridging::HostKey& key);

    const Vela::Ptr<const Topology> topology_;
    const Vela::Ptr<const Bridging::Config> bridgingConfig_;
    const Vela::Ptr<Quarry::Bridging::Status> bridgingStatus_;
    const Vela::Ptr<LocalMultihomedSm> localMultihomedSm_;
    const std::function<void()> requestResync_;

    ResyncStage stage_ = ResyncStage::none;
    Marks marks_;
    bool freeing_ = false; // the walk has swept and takes out the marks
    std::optional<Bridging::HostKey> bookmark_;
    std::optional<HostMark> markBookmark_;

    uint64_t messages_ = 0;
    uint64_t resyncs_ = 0;
    uint64_t interrupted_ = 0; // resyncs that another one began over
    uint64_t swept_ = 0;
    std::array<uint64_t, reasons> ignored_{};
    Vela::Reaction portReaction_;
    Vela::Reaction fidReaction_;
};

} // namespace Linux
