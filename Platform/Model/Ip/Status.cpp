#include "Platform/Model/Ip/Status.h"

#include "Platform/State/DumpContext.h"

namespace Ip {

void IpIntfStatus::formatDerivedType(std::ostream& out) const {
    out << intfId_.name();
}

void IpIntfStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), intfId_.toStrep().c_str());
    context.print(indent + 2, "vrfName=%s\n", vrfName().bytes().c_str());
    context.print(indent + 2, "activeAddrWithMask=%s\n", activeAddrWithMask().toStrep().c_str());
    context.print(indent + 2, "activeSecondaryWithMask[] #%zu\n", activeSecondaryWithMask_.count());
    for (auto addr = activeSecondaryWithMask_.first(); addr; ++addr) {
        context.print(indent + 4, "%s\n", addr.key().toStrep().c_str());
    }
}

Vela::Ptr<IpIntfStatus> Status::ipIntfStatusIs(Zinc::IntfId intfId, const L3::VrfName& vrfName) {
    Vela::Ptr<IpIntfStatus> old = ipIntfStatus_.value(intfId);
    if (old && old->vrfName() == vrfName) {
        return old;
    }
    auto added = Vela::make<IpIntfStatus>(intfId, vrfName);
    ipIntfStatus_.set(intfId, added);
    if (old) {
        old->destroy();
    }
    return added;
}

void Status::ipIntfStatusDel(Zinc::IntfId intfId) {
    if (auto removed = ipIntfStatus_.del(intfId)) {
        (*removed)->destroy();
    }
}

void Status::ipIntfStatusDelAll() {
    ipIntfStatus_.delAll([](const auto& intfStatus) { intfStatus->destroy(); });
}

void Status::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "ipIntfStatus[] #%zu\n", ipIntfStatus_.count());
    for (auto intfStatus = ipIntfStatus_.first(); intfStatus; ++intfStatus) {
        context.child(indent + 4, "ipIntfStatus", intfStatus.value().get());
    }
}

} // namespace Ip
