#pragma once

#include "Linux/Neighbor.h"
#include "Linux/NeighborTables.h"
#include "Linux/NetlinkConsumer.h"
#include "Linux/ResyncMarks.h"
#include "Linux/Topology.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/State/HashTable.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Linux {

/// Fills the ARP and neighbour tables and the remote bindings from the kernel's neighbours, those
/// of the VLANs' routed interfaces in all namespaces. The tables are this object's alone, but for
/// the bindings of the configuration file. It keeps no second copy: after a change of routed
/// devices it has the kernel asked again, and what stands in the tables for an interface that is
/// none any more goes.
///
/// One address may be known on a routed interface and on macvlans of it. It stays in the tables as
/// long as any of them knows it, as the routed interface has it, or else the macvlan that knew it
/// first. Such addresses, and only they, are kept here by device.
class NeighborProvider final : public Vela::WalkSmBase {
  public:
    /// `requestResync` is given the name of a namespace with a consumer, and may start the resync
    /// within the call.
    NeighborProvider(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<const Topology> topology,
                     Vela::Ptr<Arp::Table::Status> arpStatus,
                     Vela::Ptr<ArpSuppression::RemoteBindingConfig> remoteBindingConfig,
                     Vela::Ptr<const ConfiguredBindings> configuredBindings,
                     Vela::Ptr<LocalMultihomedSm> localMultihomedSm,
                     std::function<void(const std::string&)> requestResync);
    ~NeighborProvider() override;

    const char* typeName() const noexcept override { return "Linux::NeighborProvider"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// The consumer for a namespace, made when needed; it lasts until consumerDel, which is no
    /// word on the entries: those go with the devices.
    NetlinkConsumer& consumerIs(const std::string& netNs);
    void consumerDel(const std::string& netNs);

    /// Whether what the last dump of the namespace did not show is out of the tables.
    bool swept(const std::string& netNs) const;

  protected:
    void handleInitialized() override {} // the first walk follows the first dump
    bool walkStartedNotification() override;
    Vela::WalkRet walk() override;

  private:
    enum class Ignored : uint8_t { malformed, otherFamily, proxy, noUnicast, unknownDevice, stale };
    static constexpr size_t reasons = 6;
    static const std::array<const char*, reasons> reasonName;

    /// The kernel's key, within a namespace.
    struct DeviceAddress {
        uint32_t ifIndex = 0;
        Zinc::IpGenAddr address;

        uint64_t hash(uint64_t seed) const;
        friend auto operator<=>(const DeviceAddress&, const DeviceAddress&) = default;
    };
    /// What one device says of an address; 0 stands for the routed interface.
    struct Claim {
        uint32_t macvlan = 0;
        Neighbor neighbor;
    };
    using Marks = ResyncMarks<DeviceAddress>;
    using Claims =
        Vela::HashTable<Vela::PairLayout<ArpSuppression::RemoteBindingKey, std::vector<Claim>>>;
    class NetNs;

    /// Who speaks for a VLAN.
    struct Owner {
        std::string netNs;
        uint32_t ifIndex = 0; ///< of the routed interface
        RoutedDevice device;
    };
    enum class Stage : uint8_t { claims, arpEntries, neighborEntries, remoteBindings, marks };

    const std::map<Bridging::VlanId, Owner>& owner();
    const Owner* ownerOf(const Arp::Table::ArpKey& key);
    const Owner* ownerOf(Bridging::VlanId vlanId);
    bool isGone(const Owner* owner, const Zinc::IpGenAddr& address) const;
    NetNs* netNs(const std::string& name) const;

    /// Goes on in the table of the namespace that the bookmarks stand at.
    template <class Bookmark, class TableOf, class Item>
    uint32_t walkNetNs(Bookmark& bookmark, TableOf tableOf, Item item);
    uint32_t walkClaims();
    uint32_t walkArp(const Quarry::TableCollection<Arp::Table::ArpEntry>& entries);
    uint32_t walkRemoteBindings();
    uint32_t walkMarks();

    const Vela::Ptr<const Topology> topology_;
    NeighborTables tables_;
    const std::function<void(const std::string&)> requestResync_;
    std::map<std::string, std::unique_ptr<NetNs>> netNs_;

    std::map<Bridging::VlanId, Owner> owner_;
    bool ownerStale_ = true;

    Stage stage_ = Stage::claims;
    std::string netNsBookmark_; // of the stages that go through the namespaces
    std::optional<ArpSuppression::RemoteBindingKey> bindingBookmark_;
    std::optional<Arp::Table::ArpKey> arpBookmark_;
    std::optional<DeviceAddress> markBookmark_;
    uint64_t swept_ = 0;
    Vela::Reaction deviceReaction_;
    Vela::Reaction configuredReaction_;
};

} // namespace Linux
