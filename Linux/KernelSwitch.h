#pragma once

#include "Linux/ConfiguredBindings.h"
#include "Linux/DevicePublisher.h"
#include "Linux/FdbProvider.h"
#include "Linux/LocalMultihomedSm.h"
#include "Linux/NeighborProvider.h"
#include "Linux/NeighborWriter.h"
#include "Linux/NetNsWatch.h"
#include "Linux/Rtnetlink.h"
#include "Linux/Topology.h"
#include "Platform/Agent/SwitchState.h"

#include <map>
#include <string>

namespace Linux {

/// Makes the kernel that the program runs on a switch: what rtnetlink tells of devices, addresses,
/// bridges and neighbours, in the program's own namespace and those of the VRFs that the
/// configuration names, fills the switch's models and tables. All of it is this object's alone, but
/// for what the configuration file says of other things.
///
/// First come devices and addresses of all namespaces that there are; then what they are to the
/// switch is published; then neighbours and FDB follow, and when those of all have been told once,
/// what an earlier agent left in them is read back into the input configuration, which nobody can
/// mount before, and the tables are complete. A namespace that comes later goes through the same by
/// itself. From then on the input configuration is carried out to the kernel.
class KernelSwitch final : public Vela::Entity {
  public:
    /// The state must outlive this object. Throws std::system_error where the kernel cannot be
    /// asked, and Quarry::TableError.
    KernelSwitch(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::SwitchState& state,
                 LinuxConfiguration configuration);
    ~KernelSwitch() override;

    const char* typeName() const noexcept override { return "Linux::KernelSwitch"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Throws Quarry::TableError if there is no room for another namespace; then nothing has
    /// changed.
    void configurationIs(LinuxConfiguration configuration);

    /// What the devices are to the switch.
    const Vela::Ptr<Topology>& topology() const { return topology_; }
    const DevicePublisher& devices() const { return *devices_; }
    /// Outlives what is asked of it in a forked child, too.
    NeighborWriter& neighborWriter() const { return *writer_.ptr(); }

    /// Whether everything that there was at the start is published and in the tables, which are
    /// complete from then on. Announces the change.
    bool complete() const { return complete_.get(); }
    const Vela::Attribute<bool>& completeAttribute() const { return complete_; }
    /// Whether nothing is being dumped or waits to be, in no namespace.
    bool synchronized() const;

    /// Null if there is no such namespace.
    const Rtnetlink* socket(const std::string& netNs) const;

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    /// A namespace that there is.
    struct Feed {
        Vela::Owned<Rtnetlink> socket;
        bool entries = false; // its neighbours and FDB are followed, too
        Vela::Reaction synchronizedReaction;
    };

    void mountTables(const LinuxConfiguration& configuration);
    void followNames();
    void examine(const std::string& netNs);
    void attach(const std::string& netNs);
    void detach(const std::string& netNs);
    void update();
    void followEntries(const std::string& netNs, Feed& feed);
    void requestResync(const std::string& netNs, NetlinkKind kind);

    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::SwitchState& state_;
    const Vela::UniqueFd ownNetNsFd_;
    const Vela::Ptr<Topology> topology_;
    const Vela::Ptr<ConfiguredBindings> configuredBindings_;
    Vela::Owned<LocalMultihomedSm> localMultihomedSm_;
    Vela::Owned<FdbProvider> fdb_;
    Vela::Owned<NeighborProvider> neighbors_;
    Vela::Owned<NeighborWriter> writer_;
    Vela::Owned<DevicePublisher> devices_;
    std::map<std::string, Feed> feeds_;
    std::map<std::string, std::string> problems_; // of namespaces that cannot be followed
    Vela::Owned<NetNsWatch> watch_;
    Vela::Owned<Vela::Task> task_;
    Vela::Attribute<bool> complete_;
    Vela::Reaction settledReaction_;
    Vela::Reaction readBackReaction_;
};

} // namespace Linux
