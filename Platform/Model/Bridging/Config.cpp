#include "Platform/Model/Bridging/Config.h"

#include "Platform/State/DumpContext.h"

namespace Bridging {

void Config::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "bridgeMacAddr=%s\n", bridgeMacAddr().toStrep().c_str());
    context.print(indent + 2, "vlanToFid[] #%zu\n", vlanToFid_.count());
    for (auto fid = vlanToFid_.first(); fid; ++fid) {
        context.print(indent + 4, "%s -> %s\n", fid.key().toStrep().c_str(),
                      fid.value().toStrep().c_str());
    }
}

} // namespace Bridging
