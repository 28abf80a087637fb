#include "Platform/Agent/CommandCallback.h"

#include "Platform/State/DumpContext.h"

namespace Vela {

void CommandRequestDirSm::dumpState(DumpContext& context, int indent) const {
    context.print(indent, "CommandRequestDirSm\n");
    for (auto cursor = callback_.first(); cursor; ++cursor) {
        context.print(indent + 2, "%s\n", cursor.key().c_str());
    }
}

} // namespace Vela
