#include "Linux/InterfaceNames.h"

#include "Platform/Base/Errors.h"
#include "Platform/Trace/Trace.h"

namespace Linux {

namespace {

const Vela::TraceHandle namesTrace("LinuxInterfaces");

} // namespace

std::string deviceInterfaceName(const LinuxConfiguration& configuration, const std::string& netNs,
                                const LinkMessage& link) {
    auto configured = configuration.interfaces.find({netNs, link.name});
    return configured == configuration.interfaces.end() ? link.name : configured->second;
}

Zinc::IntfId internedIntf(const std::string& name) {
    try {
        return Zinc::IntfId(name);
    } catch (const Vela::RangeError& error) {
        TRACE(namesTrace, 0, nullptr, name << " is left out: " << error.what());
        return Zinc::IntfId();
    }
}

} // namespace Linux
