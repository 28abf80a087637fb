#pragma once

#include "Platform/Agent/CommandCallback.h"
#include "Platform/StateDb/MountGroup.h"

#include <string>

namespace Vela {

/// What an agent runs on. The host gives it to the agent before it calls `doInit`.
struct AgentPlatform {
    Ptr<TaskScheduler> scheduler;
    Ptr<EntityManager> entityManager;
    bool physicalHardware = false; ///< false: the forwarding plane is software
};

/// Base of an agent: the host makes it with its name, gives it the platform and calls `doInit`,
/// in which it requests its mounts; `doMountsComplete` follows from the loop once they are there.
/// The agent's life ends with `destroy`, before that of the platform.
class Agent : public Entity, public Mounter {
  public:
    const std::string& name() const { return name_; }

    void platformIs(AgentPlatform platform) { platform_ = std::move(platform); }
    virtual void doInit() = 0;

    bool isPhysicalHardware() const { return platform_.physicalHardware; }
    const Ptr<TaskScheduler>& taskSchedulerRoot() const { return platform_.scheduler; }
    const Ptr<EntityManager>& entityManager() const { return platform_.entityManager; }
    /// Whoever runs commands looks them up here.
    CommandRequestDirSm& commandRequestDirSm() { return *commandRequestDirSm_; }

    /// The agent has made the entities that only its process has.
    bool localEntitiesCreated() const { return localEntitiesCreated_; }

  protected:
    explicit Agent(std::string name)
        : name_(std::move(name)), commandRequestDirSm_(make<CommandRequestDirSm>()) {}

    void localEntitiesCreatedIs(bool created) { localEntitiesCreated_ = created; }

  private:
    const std::string name_;
    AgentPlatform platform_;
    Ptr<CommandRequestDirSm> commandRequestDirSm_;
    bool localEntitiesCreated_ = false;
};

} // namespace Vela
