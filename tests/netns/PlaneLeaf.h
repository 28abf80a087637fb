#pragma once

#include "Linux/ForwardingPlane.h"
#include "Platform/Base/Clock.h"
#include "Testing/TrapFrame.h"
#include "Testing/VethPort.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Netns {

using Frame = Testing::VethPort::Frame;
using PlaneMoved = std::map<Linux::Plane::Counter, uint64_t>;

/// Runs a piece of shell in the thread's network namespace; returns what it has printed. Throws
/// std::runtime_error where a command fails.
std::string shell(const std::string& script);

/// A leaf switch in a network namespace of its own, which the making thread moves into: VLAN 10
/// with the ports et1 and et2 and VLAN 20 with et3, each with a bridge and a tunnel, the tunnels on
/// "underlay", where two other switches are said to be. Models and agent are the test's own.
class PlaneLeaf {
  public:
    PlaneLeaf();
    ~PlaneLeaf();
    PlaneLeaf(const PlaneLeaf&) = delete;
    PlaneLeaf& operator=(const PlaneLeaf&) = delete;

    /// Moves the thread into the leaf's namespace.
    void enter() const;

    /// Makes the plane, with nothing of an agent yet.
    void planeIs();
    void planeDel() { plane_.reset(); }
    Linux::ForwardingPlane& plane() { return *plane_; }
    /// What an agent has: its sockets.
    void agentIs();
    void trapSocketDel() { trap_.reset(); }
    void injectSocketDel() { inject_.reset(); }
    /// Plane and agent, and suppression on VLAN 10, until requests are trapped.
    void start();

    /// Completes turns of the loop until the condition holds, for a minute at most.
    bool turnUntil(const std::function<bool()>& condition);
    void turn();

    Linux::Topology& topology() { return *topology_; }
    ArpSuppression::ArpSuppressionStatus& suppression() { return *suppression_; }
    Bridging::Config& bridgingConfig() { return *bridgingConfig_; }
    Routing::Fhrp::VirtualRouterMacStatus& virtualRouterMac() { return *virtualRouterMac_; }
    /// Tells the topology what the kernel has.
    void tunnelIs(uint16_t vlanId, const std::string& device);

    Testing::VethPort& port(const std::string& name) { return *ports_.at(name); }
    void portIs(const std::string& name, const std::string& bridge);

    /// Each waits for as many frames, and takes all that came.
    std::vector<Frame> trapped(size_t expected);
    std::vector<Frame> arrived(const std::string& port, size_t expected);
    /// What left through tunnels: the network's number, and the frame within.
    using Tunneled = std::vector<std::pair<uint32_t, Frame>>;
    Tunneled tunneled(size_t expected);
    /// Nothing but what has been taken came out anywhere: a marker sent afterwards is all there is.
    void expectNothingElse();

    /// What the agent writes.
    void write(const std::string& device, const Frame& frame);
    /// A frame of the switch's own.
    void sendOut(const std::string& device, const Frame& frame);

    /// How the counters have moved since the last call.
    PlaneMoved moved();

    static const std::string bridgeMac;

  private:
    template <class Take>
    std::vector<Frame> take(size_t expected, Take take);

    Vela::UniqueFd netNs_;
    Vela::SystemClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::Attribute<uint64_t> turns_;
    Vela::Ptr<Linux::Topology> topology_;
    Vela::Ptr<ArpSuppression::ArpSuppressionStatus> suppression_;
    Vela::Ptr<Bridging::Config> bridgingConfig_;
    Vela::Ptr<Routing::Fhrp::VirtualRouterMacStatus> virtualRouterMac_;
    Vela::Owned<Linux::ForwardingPlane> plane_;
    std::map<std::string, std::unique_ptr<Testing::VethPort>> ports_;
    Vela::UniqueFd trap_;
    Vela::UniqueFd inject_;
    Linux::PlaneCounters counters_;
};

/// What the trap header is put into, and taken out of: the frame of a host.
Frame hostFrame(const Testing::TrapFrame& trap);
Frame withoutTrapHeader(Frame frame);

} // namespace Netns
