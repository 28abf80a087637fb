#pragma once

#include "Linux/ConfiguredBindings.h"
#include "Linux/EntryDevices.h"
#include "Linux/NeighborChannel.h"
#include "Linux/NeighborOutcome.h"
#include "Linux/NeighborWork.h"
#include "Linux/TokenBucket.h"
#include "Platform/Model/Arp/InputConfig.h"
#include "Platform/Model/Arp/TableStatus.h"
#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Bridging/FdbStatus.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/State/HashTable.h"

#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Linux {

/// Carries the agent's input configuration out to the neighbour tables of the VRFs' namespaces.
///
/// A permanent entry carries the agent's tag (its source as the kernel's protocol), and as long as
/// it does it is the agent's to change; at the start such entries are read back into the input
/// configuration. A dynamic entry is a seed: put there once, without a tag, if the kernel has none,
/// and never withdrawn. Entries of others stand: what the kernel learnt, what an operator set, and
/// a control plane's, which serves as well. Before an entry is replaced or removed, the kernel is
/// asked whose it is. docs/neighbours.md tells the whole story.
///
/// What is to be done is looked up when it is done, so an entry that changed and changed back in
/// one turn of the loop costs the kernel nothing. The writer keeps no copy: the entries' marks say
/// what has become of them, and up to `mostPending` keys wait; if there are more to do, it walks.
class NeighborWriter final : public Vela::WalkSmBase {
  public:
    struct Inputs {
        Vela::Ptr<Vela::TaskScheduler> scheduler;
        Vela::Ptr<Arp::InputConfig> inputConfig;
        Vela::Ptr<const Topology> topology;
        Vela::Ptr<const Ip6::Status> ip6Status;
        Vela::Ptr<const Arp::Table::Status> arpStatus;
        Vela::Ptr<const ArpSuppression::RemoteBindingConfig> remoteBindingConfig;
        Vela::Ptr<const ConfiguredBindings> configuredBindings;
        Vela::Ptr<const Bridging::Config> bridgingConfig;
        Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus;
    };
    static constexpr size_t mostPending = 65536;
    /// Requests that the kernel works off in one go: their answers fit a socket's queue.
    static constexpr size_t batch = 64;
    /// A probe that nobody answers is three frames over three seconds, and an answer passes the
    /// agent's processor: 100 a second and at once are little for both, and enough for the hosts of
    /// a rack whose other leaf went away.
    static constexpr double refreshesPerSecond = 100;
    static constexpr double refreshBurst = 100;
    /// Until what failed or was lost is tried again: twice as long each time.
    static constexpr double firstRetrySeconds = 1;
    static constexpr double lastRetrySeconds = 16;
    /// Until what was lost too often is forgiven.
    static constexpr double forgiveSeconds = 600;

    explicit NeighborWriter(Inputs inputs);
    ~NeighborWriter() override;

    const char* typeName() const noexcept override { return "Linux::NeighborWriter"; }
    /// Counts the entries by outcome, which takes a look at each.
    void dumpState(Vela::DumpContext& context, int indent) const override;

    void vrfsAre(const std::vector<VrfSetting>& vrfs) { devices_.vrfsAre(vrfs); }
    /// The way to a namespace's tables, from now on.
    void netNsIs(const std::string& netNs, std::unique_ptr<NeighborChannel> channel);
    void netNsDel(const std::string& netNs);

    /// The tables show all that the kernels have: reads back what carries the agent's tag, and then
    /// begins to write.
    void start();
    /// Whether everything that carried the tag is in the input configuration. Announces the change.
    bool started() const { return started_.get(); }
    const Vela::Attribute<bool>& startedAttribute() const { return started_; }
    /// Whether nothing is left to be done now; what is to be tried again later does not count.
    bool idle() const;

    const NeighborCounters& counters() const { return counters_; }

    /// An entry that was asked for, and what the kernel holds as far as it has told.
    struct View {
        NeighborOutcome outcome = NeighborOutcome::pending;
        std::optional<Arp::Table::ArpEntry> held; ///< by the kernel, not of a control plane
        std::optional<Zinc::EthAddr> controlPlane;
    };
    /// May be asked in a forked child. Nothing if the entry is not asked for.
    std::optional<View> view(const L3::VrfName& vrfName, const Arp::InputConfigKey& key);

  protected:
    void handleInitialized() override {}
    void handleDestroy() noexcept override;
    Vela::WalkRet walk() override;

  private:
    using Entry = Arp::InputConfigEntry;
    using Verb = NeighborRequest::Verb;
    using Claim = NeighborClaim;
    using EntryKey = NeighborEntryKey;
    using Work = NeighborWork;

    struct Vrf {
        Vela::Ptr<const Arp::InputConfigVrf> config;
        uint32_t number = 0;
        Vela::Reaction ipv4 = {};
        Vela::Reaction ipv6 = {};
    };
    using Pending = Vela::HashTable<Vela::PairLayout<EntryKey, Claim>>;
    /// What a walk goes over, in this order.
    enum class Stage : uint8_t { none, ipv4Entries, ipv6Entries, arpTable, neighborTable };
    /// What a walk is for.
    struct Reasons {
        bool entries = false;   ///< some are not carried out
        bool placeless = false; ///< those without an interface may belong to another one
        bool forgive = false;   ///< of losses
        bool tables = false;    ///< the kernel may hold what nobody asks for

        bool ofEntries() const { return entries || placeless || forgive; }
    };

    static constexpr auto tag = Arp::ArpSource::arpSuppression;
    static NeighborOutcome outcomeOf(const Entry& entry);
    static bool isTagged(const Arp::Table::ArpEntry& entry);
    /// How an address is named that may be looked for under its interface or without one.
    static bool isPlaceless(const Zinc::IpGenAddr& address);

    uint32_t vrfNumber(const L3::VrfName& vrfName);
    void followVrf(const L3::VrfName& vrfName);
    void noteChange(const Vrf& vrf, const Arp::InputConfigKey& key);
    void noteDevices();
    void noteTable(const Arp::Table::ArpKey& key);
    void noteControlPlane(const ArpSuppression::RemoteBindingKey& key);
    void pendingIs(const EntryKey& key, const Claim& claim);

    const Entry* entryOf(const EntryKey& key);
    std::optional<Zinc::EthAddr> controlPlaneMac(Bridging::VlanId vlanId,
                                                 const Zinc::IpGenAddr& address) const;
    void conclude(const Entry* entry, NeighborOutcome outcome);
    void conclude(const Entry* entry, const Work::Step& step);
    void retryLater();

    uint32_t drainPending();
    void take(const EntryKey& key, const Claim& claim);
    uint32_t exchange();
    NeighborChannel* prepare(Work& work, NeighborRequest& request);
    void decideSeed(Work& work, const Entry& entry, const EntryDevice& device);
    void handle(Work& work, Verb verb, const NeighborAnswer& answer);
    void handleDone(const Work& work, Verb verb);
    void handleError(const Work& work, int error);

    // In NeighborWriterWalks.cpp.
    Vela::WalkRet readBack();
    void readBack(const Arp::Table::ArpEntry& entry);
    bool startWalk();
    uint32_t walkStage();
    uint32_t walkEntries();
    uint32_t walkEntriesOf(const Vela::Ptr<Arp::InputConfigVrf>& vrf, uint32_t number);
    template <class Item>
    uint32_t walkTable(Item item);
    bool isDue(const Arp::InputConfigKey& key, const Entry& entry);
    void scheduleNext();
    void count(NeighborCounter counter) { counters_.increment(counter); }

    const Inputs in_;
    EntryDevices devices_;
    std::map<std::string, std::unique_ptr<NeighborChannel>> channels_;
    std::map<L3::VrfName, uint32_t> vrfNumbers_;
    std::vector<L3::VrfName> vrfNames_; // by number
    std::list<Vrf> vrfs_; // those that go, too, until their entries have been announced

    Vela::Attribute<bool> started_;
    bool readingBack_ = false;
    bool ownChange_ = false; // of the input configuration, by reading back
    Pending pending_;
    std::deque<Work> work_;
    TokenBucket refreshes_{refreshesPerSecond, refreshBurst};
    NeighborCounters counters_;

    Reasons wanted_;
    Reasons walking_;
    Stage stage_ = Stage::none;
    std::optional<L3::VrfName> vrfBookmark_;
    std::optional<Arp::InputConfigKey> entryBookmark_;
    std::optional<Arp::Table::ArpKey> tableBookmark_;

    std::optional<Vela::MonotonicTime> retryDue_;
    bool retryTables_ = false; // what could not be withdrawn is found there
    double retrySeconds_ = firstRetrySeconds;
    std::optional<Vela::MonotonicTime> forgiveDue_;

    Vela::Reaction vrfReaction_;
    Vela::Reaction arpReaction_;
    Vela::Reaction neighborReaction_;
    Vela::Reaction bindingReaction_;
};

} // namespace Linux
