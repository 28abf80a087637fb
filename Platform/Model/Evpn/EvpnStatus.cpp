#include "Platform/Model/Evpn/EvpnStatus.h"

#include "Platform/State/DumpContext.h"

namespace Evpn {

namespace {

template <class Collection>
void dumpMap(Vela::DumpContext& context, int indent, const char* name, const Collection& map) {
    context.print(indent, "%s[] #%zu\n", name, map.count());
    for (auto entry = map.first(); entry; ++entry) {
        context.print(indent + 2, "%s -> %s\n", entry.key().toStrep().c_str(),
                      entry.value().toStrep().c_str());
    }
}

} // namespace

void EthernetSegmentStatus::formatDerivedType(std::ostream& out) const {
    out << intfId_.name();
}

void EthernetSegmentStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), intfId_.toStrep().c_str());
    dumpMap(context, indent + 2, "dfTep", dfTep_);
}

Vela::Ptr<EthernetSegmentStatus> EvpnStatus::segmentStatusIs(Zinc::IntfId intfId) {
    return segmentStatus_.findOrAdd(intfId,
                                    [&] { return Vela::make<EthernetSegmentStatus>(intfId); });
}

void EvpnStatus::segmentStatusDel(Zinc::IntfId intfId) {
    if (auto removed = segmentStatus_.del(intfId)) {
        (*removed)->destroy();
    }
}

void EvpnStatus::segmentStatusDelAll() {
    segmentStatus_.delAll([](const auto& segmentStatus) { segmentStatus->destroy(); });
}

void EvpnStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "mplsConfigured=%s\n", mplsConfigured() ? "yes" : "no");
    dumpMap(context, indent + 2, "vlanToDot1q", vlanToDot1q_);
    dumpMap(context, indent + 2, "imetLabel", imetLabel_);
    dumpMap(context, indent + 2, "localEsiLabel", localEsiLabel_);
    context.print(indent + 2, "segmentStatus[] #%zu\n", segmentStatus_.count());
    for (auto segment = segmentStatus_.first(); segment; ++segment) {
        context.child(indent + 4, "segmentStatus", segment.value().get());
    }
}

} // namespace Evpn
