#include "Platform/Model/Routing/Fhrp/VirtualRouterMacStatus.h"

#include "Platform/State/DumpContext.h"

namespace Routing::Fhrp {

void VirtualRouterMacStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "varpVirtualMac=%s\n", varpVirtualMac().toStrep().c_str());
}

} // namespace Routing::Fhrp
