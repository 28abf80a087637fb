#include "Linux/NeighborOutcome.h"

namespace Linux {

const char* toString(NeighborOutcome outcome) {
    switch (outcome) {
    case NeighborOutcome::pending:
        return "waits to be carried out";
    case NeighborOutcome::installed:
        return "installed";
    case NeighborOutcome::seeded:
        return "seeded, the kernel's own since";
    case NeighborOutcome::satisfied:
        return "satisfied by a control plane's entry";
    case NeighborOutcome::stands:
        return "another's entry stands";
    case NeighborOutcome::retry:
        return "to be tried again";
    case NeighborOutcome::lost:
        return "gone or changed, to be looked at again";
    case NeighborOutcome::contested:
        return "removed by somebody again and again, left alone for a while";
    case NeighborOutcome::noDevice:
        return "no device for it";
    }
    return "?";
}

const char* toString(NeighborCounter counter) {
    static constexpr std::array<const char*, neighborCounters> name = {
        "requests",        "added",         "seeded",         "replaced",       "removed",
        "readBack",        "satisfied",     "stood",          "leftAlone",      "exists",
        "missing",         "tableOverflow", "interfaceGone",  "refused",        "unanswered",
        "noConnectedVlan", "refreshSent",   "refreshSkipped", "refreshLimited", "lost",
        "contested"};
    return name[static_cast<size_t>(counter)];
}

} // namespace Linux
