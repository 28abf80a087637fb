#include "Platform/Model/Brant/IntfEncap.h"

#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"
#include "Platform/State/DumpContext.h"

namespace Brant {

IntfEncap IntfEncap::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Brant::IntfEncap");
    parser.field("outer");
    auto outer = Bridging::VlanTag::fromValue(parser);
    parser.field("inner");
    auto inner = Bridging::VlanTag::fromValue(parser);
    parser.closeValue();
    return IntfEncap(outer, inner);
}

std::string IntfEncap::toStrep() const {
    return "<outer=" + outer_.toStrep() + " inner=" + inner_.toStrep() + ">";
}

std::string IntfEncap::valueToStrep() const {
    return Vela::valueForm("Brant::IntfEncap",
                           {{"outer", outer_.valueToStrep()}, {"inner", inner_.valueToStrep()}});
}

void IntfEncapParent::formatDerivedType(std::ostream& out) const {
    out << parentIntfId_.name();
}

void IntfEncapParent::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), parentIntfId_.toStrep().c_str());
    context.print(indent + 2, "subIntf[] #%zu\n", subIntf_.count());
    for (auto subIntf = subIntf_.first(); subIntf; ++subIntf) {
        context.print(indent + 4, "%s -> %s\n", subIntf.key().toStrep().c_str(),
                      subIntf.value().toStrep().c_str());
    }
}

Vela::Ptr<IntfEncapParent> IntfEncapServiceIntfColl::parentIs(Zinc::IntfId parentIntfId) {
    return parent_.findOrAdd(parentIntfId,
                             [&] { return Vela::make<IntfEncapParent>(parentIntfId); });
}

void IntfEncapServiceIntfColl::parentDel(Zinc::IntfId parentIntfId) {
    if (auto removed = parent_.del(parentIntfId)) {
        (*removed)->destroy();
    }
}

void IntfEncapServiceIntfColl::parentDelAll() {
    parent_.delAll([](const auto& parent) { parent->destroy(); });
}

void IntfEncapServiceIntfColl::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "parent[] #%zu\n", parent_.count());
    for (auto parent = parent_.first(); parent; ++parent) {
        context.child(indent + 4, "parent", parent.value().get());
    }
}

} // namespace Brant
