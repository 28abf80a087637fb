#include "Platform/Model/Ip6/Status.h"

#include "Platform/State/DumpContext.h"

namespace Ip6 {

void IntfStatus::formatDerivedType(std::ostream& out) const {
    out << intfId_.name();
}

void IntfStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), intfId_.toStrep().c_str());
    context.print(indent + 2, "vrfName=%s\n", vrfName().bytes().c_str());
    context.print(indent + 2, "addr[] #%zu\n", addr_.count());
    for (auto addr = addr_.first(); addr; ++addr) {
        context.print(indent + 4, "%s\n", addr.key().toStrep().c_str());
    }
}

Vela::Ptr<IntfStatus> Status::intfIs(Zinc::IntfId intfId, const L3::VrfName& vrfName) {
    Vela::Ptr<IntfStatus> old = intf_.value(intfId);
    if (old && old->vrfName() == vrfName) {
        return old;
    }
    auto added = Vela::make<IntfStatus>(intfId, vrfName);
    intf_.set(intfId, added);
    if (old) {
        old->destroy();
    }
    return added;
}

void Status::intfDel(Zinc::IntfId intfId) {
    if (auto removed = intf_.del(intfId)) {
        (*removed)->destroy();
    }
}

void Status::intfDelAll() {
    intf_.delAll([](const auto& intf) { intf->destroy(); });
}

void Status::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "intf[] #%zu\n", intf_.count());
    for (auto intf = intf_.first(); intf; ++intf) {
        context.child(indent + 4, "intf", intf.value().get());
    }
}

} // namespace Ip6
