#include "Linux/Neighbor.h"

#include <linux/neighbour.h>

namespace Linux {

Neighbor neighborOf(const NeighborMessage& message) {
    constexpr uint16_t fixed = NUD_PERMANENT | NUD_NOARP;
    constexpr uint16_t valid = fixed | NUD_REACHABLE | NUD_PROBE | NUD_STALE | NUD_DELAY;
    if (message.removed || (message.state & valid) == 0 || !message.macAddress ||
        message.macAddress->isZero() || message.macAddress->isMulticast()) {
        return {};
    }
    Neighbor neighbor;
    neighbor.macAddress = *message.macAddress;
    neighbor.isStatic = (message.state & fixed) != 0;
    Arp::ArpSource source{message.protocol};
    // It tags permanent entries alone; on others the tag is left from before somebody else's
    // change.
    bool own = source == Arp::ArpSource::arpSuppression && (message.state & NUD_PERMANENT) != 0;
    if (!own && (message.flags & NTF_EXT_LEARNED) != 0) {
        return {Neighbor::Kind::remote, false, Arp::ArpSource::kernel, *message.macAddress};
    }
    neighbor.kind = Neighbor::Kind::local;
    if (own || (neighbor.isStatic && source != Arp::ArpSource::arpSuppression)) {
        neighbor.source = source;
    }
    return neighbor;
}

} // namespace Linux
