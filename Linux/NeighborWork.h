#pragma once

#include "Linux/NeighborChannel.h"
#include "Linux/NeighborOutcome.h"
#include "Platform/Model/Arp/InputConfigEntry.h"

#include <cstdint>
#include <optional>

namespace Linux {

/// Which permanent entry the kernel may hold for the agent from before.
struct NeighborClaim {
    enum class Kind : uint8_t {
        none,
        any,  ///< nobody knows its MAC address: what has the tag is the agent's
        exact ///< with this one; with another one somebody else has changed it
    };
    Kind kind = Kind::none;
    Zinc::EthAddr macAddress; ///< if exact
};

bool isPermanent(const Arp::InputConfigEntry& entry);

/// An entry of the input configuration that is or was.
struct NeighborEntryKey {
    uint32_t vrf = 0; ///< the writer's number for it
    Arp::InputConfigKey key;

    uint64_t hash(uint64_t seed) const;
    friend auto operator<=>(const NeighborEntryKey&, const NeighborEntryKey&) = default;
};

/// Carrying one entry out, request by request: what is known of what the kernel has, and what to do
/// about it. Knows no socket, and is given the entry as it then is at each step; null: withdrawn.
struct NeighborWork {
    using Verb = NeighborRequest::Verb;

    /// What to do next: a request, or, without one, what has come of it.
    struct Step {
        std::optional<Verb> verb = {};
        std::optional<NeighborOutcome> outcome = {};
        std::optional<NeighborCounter> counter = {};
    };
    Step next(const Arp::InputConfigEntry* entry) const;
    /// Completes the request of a step that makes or changes the entry.
    void fill(const Arp::InputConfigEntry& entry, NeighborRequest& request) const;
    /// What an answer teaches. False for an error that ends the work.
    bool learn(Verb verb, const NeighborAnswer& answer);

    NeighborEntryKey key; ///< its interface is given, whatever the configuration says
    NeighborClaim claim;
    bool look = false;    ///< the kernel has to be asked what it has
    bool looked = false;  ///< and has answered
    bool present = false; ///< that there is an entry:
    NeighborMessage held = {};
    uint16_t seedState = 0;   ///< NUD_... of a dynamic one, once it is decided
    bool seedSkipped = false; ///< none is to be made, only one of the agent's to be changed
    unsigned rounds = 0;

  private:
    Step nextPresent(const Arp::InputConfigEntry& entry) const;
    bool isOwn(const Arp::InputConfigEntry* entry) const;
};

} // namespace Linux
