#include "Platform/Model/Routing/L2Vpn/Config.h"

#include "Platform/State/DumpContext.h"

namespace Routing::L2Vpn {

void Config::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "selectiveArpInstall=%s\n", selectiveArpInstall() ? "yes" : "no");
}

} // namespace Routing::L2Vpn
