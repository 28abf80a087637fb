#include "Platform/Model/Interface/IntfStatus.h"

#include "Platform/State/DumpContext.h"

namespace Interface {

void IntfStatus::formatDerivedType(std::ostream& out) const {
    out << intfId_.name();
}

void IntfStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), intfId_.toStrep().c_str());
    context.print(indent + 2, "deviceName=%s\n", deviceName().c_str());
}

Vela::Ptr<IntfStatus> AllIntfStatusDir::intfStatusIs(Zinc::IntfId intfId) {
    return intfStatus_.findOrAdd(intfId, [&] { return Vela::make<IntfStatus>(intfId); });
}

void AllIntfStatusDir::intfStatusDel(Zinc::IntfId intfId) {
    if (auto removed = intfStatus_.del(intfId)) {
        (*removed)->destroy();
    }
}

void AllIntfStatusDir::intfStatusDelAll() {
    intfStatus_.delAll([](const auto& intfStatus) { intfStatus->destroy(); });
}

void AllIntfStatusDir::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "name=%s\n", name_.c_str());
    context.print(indent + 2, "intfStatus[] #%zu\n", intfStatus_.count());
    for (auto intfStatus = intfStatus_.first(); intfStatus; ++intfStatus) {
        context.child(indent + 4, "intfStatus", intfStatus.value().get());
    }
}

void IntfStatusLocal::formatDerivedType(std::ostream& out) const {
    out << intfId_.name();
}

void IntfStatusLocal::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), intfId_.toStrep().c_str());
    context.print(indent + 2, "netNs=%s\n", netNs().c_str());
}

Vela::Ptr<IntfStatusLocal> AllIntfStatusLocalDir::intfStatusLocalIs(Zinc::IntfId intfId) {
    return intfStatusLocal_.findOrAdd(intfId, [&] { return Vela::make<IntfStatusLocal>(intfId); });
}

void AllIntfStatusLocalDir::intfStatusLocalDel(Zinc::IntfId intfId) {
    if (auto removed = intfStatusLocal_.del(intfId)) {
        (*removed)->destroy();
    }
}

void AllIntfStatusLocalDir::intfStatusLocalDelAll() {
    intfStatusLocal_.delAll([](const auto& intfStatus) { intfStatus->destroy(); });
}

void AllIntfStatusLocalDir::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "name=%s\n", name_.c_str());
    context.print(indent + 2, "intfStatusLocal[] #%zu\n", intfStatusLocal_.count());
    for (auto intfStatus = intfStatusLocal_.first(); intfStatus; ++intfStatus) {
        context.child(indent + 4, "intfStatusLocal", intfStatus.value().get());
    }
}

} // namespace Interface
