#include "Platform/Model/Evpn/MplsConfig.h"

#include "Platform/State/DumpContext.h"

namespace Evpn {

void MplsConfig::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "innerDot1qDefault=%s\n", innerDot1qDefault() ? "yes" : "no");
    context.print(indent + 2, "controlWordEnabled=%s\n", controlWordEnabled() ? "yes" : "no");
}

} // namespace Evpn
