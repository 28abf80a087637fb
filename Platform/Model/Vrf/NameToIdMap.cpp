#include "Platform/Model/Vrf/NameToIdMap.h"

#include "Platform/State/DumpContext.h"

namespace Vrf::VrfIdMap {

void NameToIdMap::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "vrfId[] #%zu\n", vrfId_.count());
    for (auto vrfId = vrfId_.first(); vrfId; ++vrfId) {
        context.print(indent + 4, "%s -> %s\n", vrfId.key().bytes().c_str(),
                      vrfId.value().toStrep().c_str());
    }
}

} // namespace Vrf::VrfIdMap
