// The forwarding plane: what the kernel does with ARP and neighbour discovery on their way into a
// tunnel, and with what the agent writes.
//
//      bridge ──► tunnel device ──► underlay
//                  │ arpsup_tunnel        ▲
//                  ▼                      │ arpsup_inject
//      arpsnoop-fp ┄ arpsnoop    arpinject ┄ arpinject-fp
//                      └──► agent ──┘
//                            └──► fabric ┄ fabric-fp ──► bridge
//
// Frames of the agent's need no mark: they are known by the device that they came in on.

#include <linux/bpf.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>
#include <linux/pkt_cls.h>

#include "Linux/bpf/PlaneState.h"

#define alwaysInline static __attribute__((always_inline))

struct State plane;

// A device that is deleted leaves this map in the same moment.
struct {
    __uint(type, BPF_MAP_TYPE_DEVMAP);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, __u32);
} arpsup_snoop SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, 4 * vlanLimit);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __type(key, __u32);
    __type(value, struct Port);
} arpsup_ports SEC(".maps");

struct Ethernet {
    __u8 dst[6];
    __u8 src[6];
    __be16 type;
};

struct Trap {
    __u8 addresses[12];
    __be16 type;
    __u8 zero1[2];
    __u8 vlanId[4];
    __u8 srcIfIndex[4];
    __u8 zero2[4];
};

static_assert(sizeof(struct Ethernet) == 14, "as on the wire");
static_assert(sizeof(struct Trap) == 12 + trapHeaderBytes, "as on the wire");

// From the tunnel's egress to that of the trap device, one step further, where it is cleared.
enum { snoopMark = 0x41525000, snoopMarkVlan = 0xfff };

enum Kind { other, request, discovery };

alwaysInline void count(enum Counter counter) {
    __sync_fetch_and_add(&plane.counters[counter], 1);
}

/// Only a request that the agent can read is one: whatever else there may be has to pass.
alwaysInline int isArpRequest(struct __sk_buff* frame) {
    struct {
        __be16 hardware;
        __be16 protocol;
        __u8 hardwareLength;
        __u8 protocolLength;
        __be16 operation;
        __u8 addresses[20];
    } arp;
    return bpf_skb_load_bytes(frame, sizeof(struct Ethernet), &arp, sizeof arp) == 0 &&
           arp.hardware == bpf_htons(1) && arp.protocol == bpf_htons(0x0800) &&
           arp.hardwareLength == 6 && arp.protocolLength == 4 && arp.operation == bpf_htons(1);
}

alwaysInline int isDiscovery(struct __sk_buff* frame) {
    __u8 nextHeader, type;
    return bpf_skb_load_bytes(frame, sizeof(struct Ethernet) + 6, &nextHeader, 1) == 0 &&
           nextHeader == 58 &&
           bpf_skb_load_bytes(frame, sizeof(struct Ethernet) + 40, &type, 1) == 0 &&
           (type == 133 || type == 135 || type == 136);
}

alwaysInline int isBroadcast(const __u8* address) {
    return (address[0] & address[1] & address[2] & address[3] & address[4] & address[5]) == 0xff;
}

alwaysInline enum Kind kindOf(struct __sk_buff* frame, const struct Ethernet* ethernet) {
    // A tag that is left inside a VLAN is its hosts' own business.
    if (frame->vlan_present || frame->len > deviceMtu - trapHeaderBytes + sizeof *ethernet) {
        return other;
    }
    if (ethernet->type == bpf_htons(0x0806)) {
        return isBroadcast(ethernet->dst) && isArpRequest(frame) ? request : other;
    }
    return ethernet->type == bpf_htons(0x86DD) && isDiscovery(frame) ? discovery : other;
}

alwaysInline __u64 asNumber(const __u8* address) {
    __u64 number = 0;
    for (int i = 0; i < 6; ++i) {
        number = number << 8 | address[i];
    }
    return number;
}

/// The agent knows the switch's requests by their address, and would answer others on the wire.
alwaysInline int agentMayHave(struct __sk_buff* frame, const struct Ethernet* ethernet) {
    __u32 in = frame->ingress_ifindex;
    struct Port* port = in ? bpf_map_lookup_elem(&arpsup_ports, &in) : 0;
    if (in && !port) {
        return 1;
    }
    if (port && port->isTunnel) {
        return 0;
    }
    __u64 src = asNumber(ethernet->src);
    return src == plane.ownAddress[0] || src == plane.ownAddress[1];
}

alwaysInline int agentIsSilent(void) {
    volatile struct State* state = &plane;
    __u64 heartbeat = state->heartbeat;
    __u64 now = bpf_ktime_get_ns();
    return !heartbeat || (now > heartbeat && now - heartbeat > state->heartbeatLimit);
}

/// At the egress of a tunnel device. Where it has nothing to say, filters behind it have.
SEC("tc")
int arpsup_tunnel(struct __sk_buff* frame) {
    __u32 ifIndex = frame->ifindex;
    if (frame->ingress_ifindex && frame->ingress_ifindex == plane.injectIfIndex) {
        return TC_ACT_UNSPEC;
    }
    if (frame->ingress_ifindex && frame->ingress_ifindex == plane.fabricIfIndex) {
        count(droppedUnknownDestination);
        return TC_ACT_SHOT;
    }
    struct Ethernet ethernet;
    if (bpf_skb_load_bytes(frame, 0, &ethernet, sizeof ethernet) != 0) {
        return TC_ACT_UNSPEC;
    }
    enum Kind kind = kindOf(frame, &ethernet);
    if (kind == other) {
        return TC_ACT_UNSPEC;
    }
    struct Port* tunnel = bpf_map_lookup_elem(&arpsup_ports, &ifIndex);
    if (!tunnel || !agentMayHave(frame, &ethernet)) {
        return TC_ACT_UNSPEC;
    }
    __u32 vlanId = tunnel->vlanId & snoopMarkVlan;
    if (!plane.vlans[vlanId].active) {
        if (kind == request) {
            count(passedInactive);
        }
        return TC_ACT_UNSPEC;
    }
    if (agentIsSilent()) {
        if (kind == request) {
            count(passedSilent);
        }
        return TC_ACT_UNSPEC;
    }
    __u32 first = 0;
    __u32* snoop = bpf_map_lookup_elem(&arpsup_snoop, &first);
    if (!snoop) {
        if (kind == request) {
            count(passedNoDevice);
        }
        return TC_ACT_UNSPEC;
    }
    __u32 mark = frame->mark;
    frame->mark = snoopMark | vlanId;
    if (kind == request) {
        count(trapped);
        return bpf_redirect(*snoop, 0);
    }
    if (bpf_clone_redirect(frame, *snoop, 0) == 0) {
        count(copied);
    }
    frame->mark = mark;
    return TC_ACT_UNSPEC;
}

alwaysInline void putNumber(__u8* bytes, __u32 number) {
    number = bpf_htonl(number);
    __builtin_memcpy(bytes, &number, sizeof number);
}

/// At the egress of the trap device's far end: puts the header into what the program above sent.
SEC("tc")
int arpsup_trap(struct __sk_buff* frame) {
    struct Trap trap = {.type = bpf_htons(trapEtherType)};
    __u32 mark = frame->mark;
    if ((mark & ~snoopMarkVlan) != snoopMark ||
        bpf_skb_load_bytes(frame, 0, trap.addresses, sizeof trap.addresses) != 0) {
        return TC_ACT_SHOT; // nobody else has business here
    }
    frame->mark = 0;
    putNumber(trap.vlanId, mark & snoopMarkVlan);
    putNumber(trap.srcIfIndex, frame->ingress_ifindex);
    if (bpf_skb_change_head(frame, trapHeaderBytes, 0) != 0 ||
        bpf_skb_store_bytes(frame, 0, &trap, sizeof trap, 0) != 0) {
        count(droppedNoMemory);
        return TC_ACT_SHOT;
    }
    return TC_ACT_OK;
}

/// What the agent writes on "fabric" leaves through the VLAN's bridge, which finds the port and
/// learns nothing from it.
SEC("tc")
int arpsup_fabric(struct __sk_buff* frame) {
    if (!frame->vlan_present) {
        count(droppedUntagged);
        return TC_ACT_SHOT;
    }
    __u32 bridge = plane.vlans[frame->vlan_tci & snoopMarkVlan].bridgeIfIndex;
    if (!bridge) {
        count(droppedNoBridge);
        return TC_ACT_SHOT;
    }
    if (bpf_skb_vlan_pop(frame) != 0) {
        count(droppedNoMemory);
        return TC_ACT_SHOT;
    }
    count(delivered);
    return bpf_redirect(bridge, 0);
}

/// What the agent writes on "arpinject" loses its header here and its way to the tunnel is found
/// in the next program, to which it goes with its VLAN in front.
SEC("xdp.frags")
int arpsup_strip(struct xdp_md* frame) {
    __u8* bytes = (__u8*)(long)frame->data;
    struct Trap* trap = (struct Trap*)bytes;
    if (bytes + trapHeaderBytes + sizeof(struct Ethernet) > (__u8*)(long)frame->data_end ||
        trap->type != bpf_htons(trapEtherType)) {
        count(droppedMalformed);
        return XDP_DROP;
    }
    __u32 vlanId;
    __builtin_memcpy(&vlanId, trap->vlanId, sizeof vlanId);
    vlanId = bpf_ntohl(vlanId);
    if (vlanId == 0 || vlanId >= vlanLimit - 1) {
        count(droppedMalformed);
        return XDP_DROP;
    }
    struct Trap copy = *trap;
    __builtin_memcpy(bytes + trapHeaderBytes, copy.addresses, sizeof copy.addresses);
    if (bpf_xdp_adjust_head(frame, trapHeaderBytes) != 0 ||
        bpf_xdp_adjust_meta(frame, -(int)sizeof vlanId) != 0) {
        count(droppedNoMemory);
        return XDP_DROP;
    }
    __u32* meta = (__u32*)(long)frame->data_meta;
    if ((void*)(meta + 1) > (void*)(long)frame->data) {
        return XDP_DROP; // which the verifier cannot know to be impossible
    }
    *meta = vlanId;
    return XDP_PASS;
}

SEC("tc")
int arpsup_inject(struct __sk_buff* frame) {
    __u32* meta = (__u32*)(long)frame->data_meta;
    if ((void*)(meta + 1) > (void*)(long)frame->data) {
        count(droppedMalformed);
        return TC_ACT_SHOT;
    }
    __u32 tunnel = plane.vlans[*meta & snoopMarkVlan].tunnelIfIndex;
    if (!tunnel) {
        count(droppedNoTunnel);
        return TC_ACT_SHOT;
    }
    count(injected);
    return bpf_redirect(tunnel, 0);
}
