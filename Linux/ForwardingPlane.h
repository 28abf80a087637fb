#pragma once

#include "Linux/Topology.h"
#include "Linux/bpf/PlaneState.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Routing/Fhrp/VirtualRouterMacStatus.h"
#include "Platform/Scheduler/TaskScheduler.h"
#include "Platform/State/Attribute.h"
#include "Platform/Value/VlanId.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace Linux {

/// What the forwarding plane has done, in frames. Plane::Counter says what each one counts.
struct PlaneCounters {
    std::array<uint64_t, Plane::counterLimit> values{};

    uint64_t operator[](Plane::Counter counter) const { return values[counter]; }
    /// "trapped", "passedInactive" and so on.
    static const char* name(Plane::Counter counter);
};

/// What a switching chip is elsewhere: brings requests to the agent, and the agent's frames to
/// where they belong. The frames stay in the kernel (bpf/ForwardingPlane.bpf.c); this object makes
/// the devices "arpsnoop", "arpinject" and "fabric", and makes them anew when somebody deletes
/// them, keeps the programs on the tunnel devices of the topology, and tells them what is active,
/// where it leads and that the agent is alive. All of that goes with its life, and frames pass as
/// if there had been nothing.
///
/// Alive means: the loop that runs the agent completes turns, its trap and injection sockets are
/// bound, and the devices pass frames. The plane asks the kernel for the sockets (they are those
/// bound to its devices for the trap header's ethertype, whoever has them) and the agent for
/// nothing: another agent, or one in a process of its own, is served alike, and one that claims to
/// work without a socket is not believed.
///
/// Replies to an address that the bridge does not know reach its local ports, but no tunnel.
/// Requests of the switch itself are trapped only from the addresses that the agent knows as the
/// switch's: the bridge's MAC address and the virtual routers'. In a VLAN with several tunnel
/// devices the agent's requests leave through one of them.
///
/// Made and used in the daemon's network namespace.
class ForwardingPlane final : public Vela::Entity {
  public:
    struct Inputs {
        Vela::Ptr<Vela::TaskScheduler> scheduler;
        /// Announced after every completed turn of the loop that runs the agent.
        const Vela::Attribute<uint64_t>& turns;
        Vela::Ptr<const Topology> topology;
        Vela::Ptr<const ArpSuppression::ArpSuppressionStatus> suppression;
        Vela::Ptr<const Bridging::Config> bridgingConfig;
        Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> virtualRouterMac;
    };

    /// An agent that was not heard of for the limit is silent. The loop turns every 500 ms at
    /// least, so that a heartbeat is never older than the sum of both and a slice.
    static constexpr Vela::MonotonicTime heartbeatInterval = std::chrono::milliseconds(200);
    static constexpr Vela::MonotonicTime heartbeatLimit = std::chrono::milliseconds(1500);

    /// Throws PlaneError, with a text for the operator that holds what the verifier has said.
    explicit ForwardingPlane(const Inputs& inputs);

    const char* typeName() const noexcept override { return "Linux::ForwardingPlane"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// False lets every request pass from now on, while the agent works off what it has got. For
    /// a clean stop; what is in flight arrives within milliseconds.
    void enabledIs(bool enabled);
    bool enabled() const { return enabled_; }

    /// Whether requests are trapped, as of the last look at the agent, and if not, why: "nobody
    /// reads from arpsnoop".
    bool trapping() const { return silentBecause_.empty(); }
    const std::string& silentBecause() const { return silentBecause_; }
    PlaneCounters counters() const;
    /// The tunnel devices that the programs are on.
    const std::set<uint32_t>& attachedTunnels() const { return attached_; }
    /// Why they are not on others, by device; that is tried again and again.
    const std::map<uint32_t, std::string>& problems() const { return problems_; }

  protected:
    ~ForwardingPlane() override;
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    struct Kernel;

    void handleTurn();
    void handleOwnAddresses();
    void handleVlan(Bridging::VlanId vlanId);
    void handlePort(uint32_t ifIndex);
    Vela::SliceResult work();
    bool makeMissingDevice();
    Vela::SliceResult attachSlice();
    bool attach(uint32_t ifIndex);
    void beat();
    std::string whySilent() const;
    uint32_t tunnelOf(Bridging::VlanId vlanId) const;

    const Inputs inputs_;
    std::unique_ptr<Kernel> kernel_; // null once destroyed
    bool enabled_ = true;
    std::string silentBecause_ = "the loop has not turned yet";
    Vela::MonotonicTime lastBeat_{0};
    std::map<uint32_t, Bridging::VlanId> tunnels_; // as the kernel has been told
    std::set<uint32_t> attached_;
    std::set<uint32_t> pending_; // devices to attach to or to detach from
    std::set<uint32_t> failed_;  // to be tried again
    std::map<uint32_t, std::string> problems_;
    std::string deviceProblem_; // why one that was deleted is not made anew
    Vela::Owned<Vela::Task> task_;
    Vela::Reaction turnReaction_;
    Vela::Reaction vlanBridgeReaction_;
    Vela::Reaction bridgePortReaction_;
    Vela::Reaction suppressionReaction_;
    Vela::Reaction bridgeMacReaction_;
    Vela::Reaction virtualMacReaction_;
};

} // namespace Linux
