#pragma once

#include "ArpSuppression/ArpSuppressionRootSm.h"
#include "ArpSuppression/ShowArguments.h"
#include "ArpSuppression/StatusView.h"
#include "Platform/Agent/CommandCallback.h"

#include <string>

namespace ArpSuppression {

/// Each condition of suppression with its value, for one VLAN or for all that are known. Written
/// VLAN by VLAN; the descriptor stays the caller's.
void writeStatus(const StatusView& view, const ShowArguments& arguments, int fd);
/// A line for each VLAN.
void writeVlans(const StatusView& view, const ShowArguments& arguments, int fd);

/// The view that an operator's command looks through; `rootSm` outlives it.
StatusView statusViewOf(const ArpSuppressionRootSm& rootSm);

/// "show status [VLAN] [-j]"
class ShowStatusCallback final : public Vela::AgentCommandCallback {
  public:
    explicit ShowStatusCallback(Vela::Ptr<const ArpSuppressionRootSm> rootSm)
        : rootSm_(std::move(rootSm)) {}

    const char* typeName() const noexcept override { return "ShowStatusCallback"; }
    const char* commandName() const override { return "showStatus"; }
    std::string refusal(const std::string& command) const override;
    void handleCommand(int fd, const std::string& command) override;

  private:
    Vela::Ptr<const ArpSuppressionRootSm> rootSm_;
};

/// "show vlans [-j]"
class ShowVlansCallback final : public Vela::AgentCommandCallback {
  public:
    explicit ShowVlansCallback(Vela::Ptr<const ArpSuppressionRootSm> rootSm)
        : rootSm_(std::move(rootSm)) {}

    const char* typeName() const noexcept override { return "ShowVlansCallback"; }
    const char* commandName() const override { return "showVlans"; }
    std::string refusal(const std::string& command) const override;
    void handleCommand(int fd, const std::string& command) override;

  private:
    Vela::Ptr<const ArpSuppressionRootSm> rootSm_;
};

} // namespace ArpSuppression
