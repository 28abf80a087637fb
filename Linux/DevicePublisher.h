#pragma once

#include "Linux/InterfacePublisher.h"
#include "Linux/KernelDevices.h"
#include "Linux/VlanPublisher.h"
#include "Platform/Scheduler/Task.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace Linux {

/// Makes the switch's models of the kernel's devices and addresses: kernel interfaces per
/// namespace, interfaces, routed interfaces, VRFs, and what bridges and their ports are to VLANs.
///
/// What the kernel tells takes effect at once. Only what is there at the start, what the end of a
/// resync or a changed configuration may change and what goes with a namespace is worked off by a
/// task; until it is through, `settled` is false.
class DevicePublisher final : public Vela::Entity {
  public:
    /// What has to be asked from the kernel. Neither may come back here within the call.
    struct Questions {
        /// What a namespace calls the program's own one; nothing while it has no name for it.
        std::function<std::optional<int32_t>(const std::string& netNs)> ownNetNsId;
        /// To tell of a device again: it was announced before its other end was known.
        std::function<void(const std::string& netNs, uint32_t ifIndex)> link;
    };

    /// The state must outlive this object.
    DevicePublisher(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::SwitchState& state,
                    Vela::Ptr<Topology> topology, Questions questions);

    const char* typeName() const noexcept override { return "Linux::DevicePublisher"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    void configurationIs(LinuxConfiguration configuration);
    const LinuxConfiguration& configuration() const { return devices_.configuration(); }

    /// There is the namespace, which has no devices yet: its messages go to `links` and
    /// `addresses`. The program's own one is the first. Throws TableError.
    void netNsIs(const std::string& name);
    /// There is it no more; nor are its VRFs, its devices and, soon, what they were to the switch.
    void netNsDel(const std::string& name);
    /// They last until the namespace goes.
    NetlinkConsumer& links(const std::string& netNs) { return devices_.netNs(netNs)->links; }
    NetlinkConsumer& addresses(const std::string& netNs) {
        return devices_.netNs(netNs)->addresses;
    }

    /// All devices that there are at the start have been told of: now VLANs, interfaces and VRFs
    /// are published, each in its final form.
    void publish();
    /// Announces a change.
    bool settled() const { return settled_.get(); }
    const Vela::Attribute<bool>& settledAttribute() const { return settled_; }

  protected:
    void handleDestroy() noexcept override { task_.reset(); }

  private:
    /// What has to be looked at again.
    struct Changes {
        std::set<std::string> interfaces;
        std::set<uint32_t> ports;
        std::set<Bridging::VlanId> vlans;

        bool empty() const { return interfaces.empty() && ports.empty() && vlans.empty(); }
    };

    void handleLink(NetNs& netNs, const LinkMessage* before, const LinkMessage* after);
    void handleAddresses(const NetNs& netNs, uint32_t ifIndex);
    void note(const NetNs& netNs, const LinkMessage& link, Changes& changes) const;
    void apply(Changes changes, bool oneOfMany);
    void applyLater(Changes changes);
    bool updateNext(Changes& changes);
    Vela::SliceResult workOff();
    void updateVrfs();

    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::SwitchState& state_;
    const Vela::Ptr<Topology> topology_;
    const Questions questions_;
    KernelDevices devices_;
    InterfacePublisher interfaces_;
    VlanPublisher vlans_;
    std::map<std::string, VrfSetting> vrfs_; // as published, by name
    bool publishing_ = false;
    Changes backlog_;
    Vela::Attribute<bool> settled_;
    Vela::Owned<Vela::Task> task_;
};

} // namespace Linux
