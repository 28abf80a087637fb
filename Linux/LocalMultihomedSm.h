#pragma once

#include "Linux/ConfiguredBindings.h"
#include "Linux/Topology.h"
#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Bridging/FdbStatus.h"
#include "Platform/Scheduler/WalkSmBase.h"

#include <cstdint>
#include <optional>
#include <set>

namespace Linux {

/// Keeps the local-multihomed flags of the kernel's remote bindings true: a host is locally
/// multihomed while its MAC table entry is on a local port that lies on an Ethernet segment.
///
/// Who writes the MAC table says which hosts came onto such a port or left one; a walk over the
/// bindings then finds theirs. There is no index from hosts to bindings: such moves are rare and
/// bindings may be a million.
class LocalMultihomedSm final : public Vela::WalkSmBase {
  public:
    /// More hosts than this are not remembered one by one: all bindings are looked at.
    static constexpr size_t mostHosts = 4096;

    LocalMultihomedSm(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<const Topology> topology,
                      Vela::Ptr<const Bridging::Config> bridgingConfig,
                      Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus,
                      Vela::Ptr<ArpSuppression::RemoteBindingConfig> remoteBindingConfig,
                      Vela::Ptr<const ConfiguredBindings> configuredBindings);

    const char* typeName() const noexcept override { return "Linux::LocalMultihomedSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// As the MAC table has it now.
    bool localMultihomed(Bridging::VlanId vlanId, const Zinc::EthAddr& macAddress);

    /// Whether there is a port that it matters to be on; while there is none, nobody needs to say
    /// who moved.
    bool segmentPorts() { return !segmentPort().empty(); }
    bool onSegment(const Bridging::QuarryFdbStatus& entry);
    /// A host came onto such a port or left one.
    void hostMoved(const Bridging::HostKey& host);

  protected:
    void handleInitialized() override {} // there is nothing to do before something moves
    bool walkStartedNotification() override;
    Vela::WalkRet walk() override;

  private:
    struct Hosts {
        bool all = false;
        std::set<uint64_t> some; // FID and MAC address as one number
    };

    const std::set<Zinc::IntfId>& segmentPort();
    void look(const ArpSuppression::RemoteBinding& binding);

    const Vela::Ptr<const Topology> topology_;
    const Vela::Ptr<const Bridging::Config> bridgingConfig_;
    const Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus_;
    const Vela::Ptr<ArpSuppression::RemoteBindingConfig> remoteBindingConfig_;
    const Vela::Ptr<const ConfiguredBindings> configuredBindings_;

    std::set<Zinc::IntfId> segmentPort_;
    bool segmentPortStale_ = true;
    Hosts moved_;   // since the walk began
    Hosts walking_; // those that it is for
    std::optional<ArpSuppression::RemoteBindingKey> bookmark_;
    uint64_t changed_ = 0;
    uint64_t walks_ = 0;
    Vela::Reaction portReaction_;
    Vela::Reaction fidReaction_;
};

} // namespace Linux
