#include "Platform/Model/Ip/VrfStatus.h"

#include "Platform/State/DumpContext.h"

namespace Ip {

const char* toStrep(VrfState state) {
    switch (state) {
    case VrfState::active:
        return "active";
    case VrfState::deleting:
        return "deleting";
    case VrfState::initializing:
        break;
    }
    return "initializing";
}

void VrfStatusLocal::formatDerivedType(std::ostream& out) const {
    out << vrfName_;
}

void VrfStatusLocal::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), vrfName_.bytes().c_str());
    context.print(indent + 2, "state=%s\n", toStrep(state()));
    context.print(indent + 2, "networkNamespace=%s\n", networkNamespace().c_str());
}

Vela::Ptr<VrfStatusLocal> AllVrfStatusLocal::vrfIs(const L3::VrfName& vrfName) {
    return vrf_.findOrAdd(vrfName, [&] { return Vela::make<VrfStatusLocal>(vrfName); });
}

void AllVrfStatusLocal::vrfDel(const L3::VrfName& vrfName) {
    if (auto removed = vrf_.del(vrfName)) {
        (*removed)->destroy();
    }
}

void AllVrfStatusLocal::vrfDelAll() {
    vrf_.delAll([](const auto& vrf) { vrf->destroy(); });
}

void AllVrfStatusLocal::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "vrf[] #%zu\n", vrf_.count());
    for (auto vrf = vrf_.first(); vrf; ++vrf) {
        context.child(indent + 4, "vrf", vrf.value().get());
    }
}

} // namespace Ip
