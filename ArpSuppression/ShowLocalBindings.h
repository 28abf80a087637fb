#pragma once

#include "ArpSuppression/ArpSuppressionRootSm.h"
#include "ArpSuppression/ShowArguments.h"
#include "Platform/Agent/CommandCallback.h"

#include <string>
#include <utility>

namespace ArpSuppression {

/// The bindings that this switch has found out for itself, in the order of VLANs and addresses,
/// with the port that the MAC table names for the host. Holds a pointer per binding; lines are
/// written as they are made. While suppression does not run `root` is null, and there are none. The
/// descriptor stays the caller's.
void writeLocalBindings(const ArpSuppressionMounts& mounts, const ArpSuppressionRoot* root,
                        const ShowArguments& arguments, int fd);

/// "show bindings local [ADDRESS] [VLAN] [-j]"
class ShowLocalBindingsCallback final : public Vela::AgentCommandCallback {
  public:
    explicit ShowLocalBindingsCallback(Vela::Ptr<const ArpSuppressionRootSm> rootSm)
        : rootSm_(std::move(rootSm)) {}

    const char* typeName() const noexcept override { return "ShowLocalBindingsCallback"; }
    const char* commandName() const override { return "showBindingsLocal"; }
    std::string refusal(const std::string& command) const override;
    void handleCommand(int fd, const std::string& command) override;

  private:
    Vela::Ptr<const ArpSuppressionRootSm> rootSm_;
};

} // namespace ArpSuppression
