#pragma once

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Agent/SwitchState.h"
#include "Platform/Scheduler/TaskScheduler.h"
#include "Testing/PacketPorts.h"
#include "Testing/TemporaryDirectory.h"
#include "tests/random/Dice.h"
#include "tests/random/Model.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace Random {

/// What the agent has made of the switch is not what it should be.
class Difference : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Stands still, or jumps ahead whenever it is looked at: then slices end where nobody thought.
class JumpingClock final : public Vela::Clock {
  public:
    Vela::MonotonicTime now() const noexcept override {
        if (jumps_ && jumps_->chance(20)) {
            now_ += std::chrono::microseconds(jumps_->below(1500));
        }
        return now_;
    }
    void advance(Vela::MonotonicTime by) { now_ += by; }
    void jumpsIs(uint64_t seed) { jumps_.emplace(seed); }

  private:
    mutable Vela::MonotonicTime now_ = std::chrono::hours(1000);
    mutable std::optional<Dice> jumps_;
};

/// The devices that trap and send, by their index.
constexpr uint32_t fabric = 100;
constexpr uint32_t arpsnoop = 101;

/// Whether slices end when their time is over, at each check, or by chance.
enum class Yield : uint8_t { inTime, always, byChance };

/// Where each step is written down before it is taken.
using Say = std::function<void(const std::string&)>;

/// A switch with the whole agent on it, to which things happen by chance; after a few of them,
/// when the agent has nothing left to do, all that it holds and has published is compared with a
/// model. Throws Difference.
class Leaf {
  public:
    Leaf(uint64_t seed, Toggles toggles, Say say);
    ~Leaf();
    Leaf(const Leaf&) = delete;
    Leaf& operator=(const Leaf&) = delete;

    void step();
    void settle();

    uint64_t settled() const { return settled_; }
    /// Of those, how often all of the past had been followed.
    uint64_t followed() const { return followed_; }
    /// A number made of everything that was found when the agent had settled.
    uint64_t digest() const { return digest_; }

  private:
    using RemoteBindings = std::vector<ArpSuppression::RemoteBinding>;

    void publish();
    void agentIs();
    RemoteBindings takeOutRemoteBindings();
    void watch();
    void unwatch();
    ArpSuppression::ArpSuppressionRoot& root() { return *agent_->rootSm()->root(); }
    const ArpSuppression::ArpSuppressionRootSm& rootSm() const { return *agent_->rootSm(); }

    // What happens

    void somethingHappens();
    void turnAFewTimes();
    void remoteBinding();
    void remoteBindingGoes();
    void fdb();
    void fdbGoes();
    void neighbor();
    void neighborGoes();
    void servedVlan();
    void routedInterface();
    void interfaceAddress();
    void device();
    void vrf();
    void macAddress();
    void selectiveInstall();
    void segment();
    void frame();
    void replyToVirtualRouter();
    void time();
    void suppression();
    void death();
    std::vector<Vela::Reaction> watchLeft();

    std::vector<uint8_t> arpFrame();
    std::vector<uint8_t> ndFrame();

    // What is chosen from

    Bridging::VlanId vlan() { return Bridging::VlanId(dice_.oneOf(vlans_)); }
    /// All but one, on which suppression comes and goes with the routed interface alone.
    Bridging::VlanId boundVlan() {
        auto thrown = vlan();
        return thrown.value() == 40 ? Bridging::VlanId(10) : thrown;
    }
    Zinc::IpGenAddr ip() { return Zinc::IpGenAddr(dice_.oneOf(ips_)); }
    Zinc::EthAddr mac();

    // What is checked

    void comeToRest();
    Model::Past seen() const;
    void followPast();
    void checkRunning(bool exact);
    void checkVlans();
    void checkListeners();
    void checkVrfUsers(const ArpSuppression::VrfUseTracker& tracker,
                       const std::map<std::string, uint32_t>& uses);
    void checkRemote();
    void checkLocal();
    void checkEntries(const Model::Past& past);
    void checkPast(const Model::Past& past);
    Model::Counters countersMoved();
    void checkLeft(const Model::Past& past);
    void checkStopped();

    Dice dice_;
    const Toggles toggles_;
    const Say say_;
    const uint32_t settleEvery_;
    const bool physical_;

    Testing::TemporaryDirectory directory_;
    Testing::PacketPorts ports_;
    JumpingClock clock_;
    std::vector<uint8_t> statusImage_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::Ptr<Quarry::TableService> tables_;
    Vela::Ptr<Vela::EntityManager> database_;
    std::optional<Vela::SwitchState> state_;
    Vela::Ptr<ArpSuppression::ArpSuppressionAgent> agent_;
    std::optional<Model> model_;

    // What happened since the last check. It is followed if it is one thing, or frames alone.
    using TableKey =
        std::variant<ArpSuppression::RemoteBindingKey, Bridging::HostKey, Arp::Table::ArpKey>;
    uint32_t changes_ = 0;
    uint32_t frames_ = 0;
    bool restarted_ = true;
    std::optional<TableKey> changed_;
    std::vector<std::function<void()>> heard_; // what frames led to, in order
    Vela::Reaction trappedV4_;
    Vela::Reaction trappedV6_;

    // The permanent entries that an agent which died has left, and which of them were removed
    // since.
    std::map<Address, Entry> left_;
    std::set<Address> removed_;

    bool wasSelective_ = false; // in this run of suppression
    uint64_t entriesBefore_ = 0;
    Model::Counters counters_;
    size_t replies_ = 0; // sent since the last check
    uint64_t settled_ = 0;
    uint64_t followed_ = 0;
    uint64_t digest_ = 0;

    const std::vector<uint32_t> vlans_{10, 10, 10, 20, 20, 30, 40, 4094};
    const std::vector<std::string> vrfs_{"default", "red", "blue"};
    const std::vector<std::string> ips_{"10.0.0.1",    "10.0.0.2",    "10.0.0.3", "10.0.0.254",
                                        "2001:db8::1", "2001:db8::2", "fe80::1",  "fe80::2"};
    const std::vector<std::string> macs_{"02:00:00:00:00:0a", "02:00:00:00:00:0b",
                                         "02:00:00:00:00:0c", "02:00:00:00:00:0d"};
    const std::vector<std::string> intfs_{"Ethernet1", "Ethernet2", "Vxlan1"};
};

} // namespace Random
