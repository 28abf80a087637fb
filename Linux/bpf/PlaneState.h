#pragma once

// What the forwarding plane's programs in the kernel and the daemon share. Plain C, compiled on
// both sides; integers in host byte order unless they are on the wire.

#include <linux/types.h>

#ifdef __cplusplus
namespace Linux::Plane {
#else
#define static_assert _Static_assert
#endif

enum {
    /// Of the header that a trapped frame carries between its addresses and its ethertype.
    trapHeaderBytes = 16,
    trapEtherType = 0x8135,
    /// Of the plane's own devices. A longer request passes untouched.
    deviceMtu = 9216 + trapHeaderBytes,
    vlanLimit = 4096,
};

/// Each counts frames.
enum Counter {
    trapped,                   ///< requests that went to the agent instead of the tunnel
    copied,                    ///< neighbour discovery: to the agent, and on through the tunnel
    passedInactive,            ///< requests on a VLAN where suppression is not active
    passedSilent,              ///< requests while the agent gives no sign of life
    passedNoDevice,            ///< requests while the trap device is missing
    delivered,                 ///< replies handed to the VLAN's bridge
    injected,                  ///< requests handed to the VLAN's tunnel
    droppedUntagged,           ///< written on "fabric" without a VLAN
    droppedNoBridge,           ///< written on "fabric" for a VLAN that has no bridge
    droppedUnknownDestination, ///< a reply that was about to leave through the tunnel
    droppedMalformed,          ///< written on "arpinject" without a proper trap header
    droppedNoTunnel,           ///< written on "arpinject" for a VLAN that has no tunnel
    droppedNoMemory,           ///< no room for the trap header
    counterLimit
};

struct Vlan {
    __u32 active;        ///< suppression: 1 or 0
    __u32 bridgeIfIndex; ///< 0: there is none
    __u32 tunnelIfIndex; ///< 0: there is none
};

/// A port that is not an ordinary one.
struct Port {
    __u32 vlanId;
    __u32 isTunnel; ///< else the far side of the VLAN's routed interface
};

/// One object, mapped by the daemon, which writes all but the counters.
struct State {
    __u64 heartbeat;      ///< when the agent was last seen at work, CLOCK_MONOTONIC ns; 0: silent
    __u64 heartbeatLimit; ///< older than so many ns is silent, too
    __u64 ownAddress[2];  ///< the switch's MAC addresses in the low 48 bits; 0: none
    __u32 injectIfIndex;  ///< where the plane sees what is written on "arpinject"
    __u32 fabricIfIndex;  ///< and on "fabric"
    struct Vlan vlans[vlanLimit];
    __u64 counters[counterLimit];
};

static_assert(sizeof(struct Vlan) == 12, "both sides lay it out alike");
static_assert(sizeof(struct Port) == 8, "both sides lay it out alike");
static_assert(__builtin_offsetof(struct State, vlans) == 40, "both sides lay it out alike");
static_assert(__builtin_offsetof(struct State, counters) == 40 + 12 * vlanLimit,
              "both sides lay it out alike");
static_assert(sizeof(struct State) == 40 + 12 * vlanLimit + 8 * counterLimit,
              "both sides lay it out alike");

#ifdef __cplusplus
} // namespace Linux::Plane
#endif
