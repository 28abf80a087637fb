#include "Platform/Model/Interface/DeviceIntfStatus.h"

#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"
#include "Platform/State/DumpContext.h"

namespace Interface {

DeviceIntfStatus DeviceIntfStatus::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Interface::DeviceIntfStatus");
    parser.field("intfId");
    auto intfId = Zinc::IntfId::fromValue(parser);
    parser.field("deviceName");
    auto deviceName = parser.quotedString();
    parser.closeValue();
    return {intfId, deviceName};
}

std::string DeviceIntfStatus::toStrep() const {
    return "<intfId=" + intfId_.toStrep() + " deviceName=" + deviceName_ + ">";
}

std::string DeviceIntfStatus::valueToStrep() const {
    return Vela::valueForm(
        "Interface::DeviceIntfStatus",
        {{"intfId", intfId_.valueToStrep()}, {"deviceName", Vela::quotedForm(deviceName_)}});
}

void DeviceIntfStatusDir::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "name=%s\n", name_.c_str());
    context.print(indent + 2, "deviceIntfStatus[] #%zu\n", deviceIntfStatus_.count());
    for (auto status = deviceIntfStatus_.first(); status; ++status) {
        context.print(indent + 4, "%u -> %s\n", status.key(), status.value().toStrep().c_str());
    }
}

} // namespace Interface
