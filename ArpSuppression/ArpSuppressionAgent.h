#pragma once

#include "ArpSuppression/ArpSuppressionMounts.h"
#include "ArpSuppression/ArpSuppressionRootSm.h"
#include "Platform/Agent/Agent.h"
#include "Platform/Model/Vrf/VrfIdReverseMapper.h"

#include <string>

namespace ArpSuppression {

/// The agent: starts tracing, mounts what it reads and writes, and gathers it in `mounts`. Nothing
/// else here touches the state database or the table service.
class ArpSuppressionAgent final : public Vela::Agent {
  public:
    explicit ArpSuppressionAgent(std::string name) : Agent(std::move(name)) {}

    const char* typeName() const noexcept override { return "ArpSuppressionAgent"; }
    void formatDerivedType(std::ostream& out) const override { out << name(); }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Opens the ring-buffer file, named after `name`, and returns its path; empty if there is
    /// none.
    static std::string slInit(const std::string& name);
    void doInit() override;
    void doMountsComplete(Vela::MountStatus status,
                          const Vela::Ptr<Vela::EntityManager>& entityManager) override;

    /// Empty until the mounts are complete. Each ...Is replaces the child that there is.
    const Vela::Ptr<ArpSuppressionMounts>& mounts() const { return mounts_.ptr(); }
    template <class... References>
    void mountsIs(References&&... references) {
        mounts_ = arpSuppressionMountsFactory(std::forward<References>(references)...);
    }
    void mountsDel() { mounts_.reset(); }

    /// The same of the root state machine; the old one stops before the new one starts.
    const Vela::Ptr<ArpSuppressionRootSm>& rootSm() const { return rootSm_.ptr(); }
    void rootSmIs(const Vela::Ptr<ArpSuppressionMounts>& mounts, bool isPhysicalHardware,
                  const Vela::Ptr<Vela::TaskScheduler>& taskSchedulerRoot) {
        rootSmDel();
        rootSm_ = arpSuppressionRootSmFactory(mounts, isPhysicalHardware, taskSchedulerRoot);
    }
    void rootSmDel() { rootSm_.reset(); }

    const Vela::Ptr<Vrf::VrfIdMap::ReverseMapper>& vrfIdReverseMapper() const {
        return vrfIdReverseMapper_.ptr();
    }
    void vrfIdReverseMapperIs(Vela::Ptr<const Vrf::VrfIdMap::Status> vrfIdMapStatus,
                              Vela::Ptr<Vrf::VrfIdMap::NameToIdMap> nameToIdMap);
    void vrfIdReverseMapperDel() { vrfIdReverseMapper_.reset(); }

  protected:
    void handleDestroy() noexcept override;

  private:
    Vela::Owned<Vela::MountGroup> mountGroup_;
    Vela::Owned<Quarry::MountGroup> tableMountGroup_;
    Vela::Owned<Quarry::MountGroup> remoteBindingConfigMountGroup_;
    Vela::Owned<Vrf::VrfIdMap::ReverseMapper> vrfIdReverseMapper_;
    Vela::Owned<ArpSuppressionMounts> mounts_;
    Vela::Owned<ArpSuppressionRootSm> rootSm_;
};

Vela::Ptr<ArpSuppressionAgent> arpSuppressionAgentFactory(const std::string& name);

} // namespace ArpSuppression
