#pragma once

#include "ArpSuppression/AddressView.h"
#include "ArpSuppression/ArpSuppressionRootSm.h"
#include "ArpSuppression/ShowArguments.h"
#include "Platform/Agent/CommandCallback.h"

#include <string>
#include <utility>

namespace ArpSuppression {

/// What is known of an address, and what would become of a request for it and why: for the VLAN
/// asked for, else for each that knows the address, else for each that is suppressing. There must
/// be an address. Written VLAN by VLAN; the descriptor stays the caller's.
void writeExplanation(const AddressView& view, const ShowArguments& arguments, int fd);

/// "explain ADDRESS [VLAN] [-j]"
class ExplainCallback final : public Vela::AgentCommandCallback {
  public:
    explicit ExplainCallback(Vela::Ptr<const ArpSuppressionRootSm> rootSm)
        : rootSm_(std::move(rootSm)) {}

    const char* typeName() const noexcept override { return "ExplainCallback"; }
    const char* commandName() const override { return "explain"; }
    std::string refusal(const std::string& command) const override;
    void handleCommand(int fd, const std::string& command) override;

  private:
    Vela::Ptr<const ArpSuppressionRootSm> rootSm_;
};

} // namespace ArpSuppression
