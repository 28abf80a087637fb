#pragma once

#include "Host/Configuration.h"
#include "Host/ControlSocket.h"
#include "Host/OperatorCommands.h"
#include "Host/RuntimeDirectory.h"
#include "Host/SignalDescriptor.h"
#include "Host/StaticEntries.h"
#include "Linux/ForwardingPlane.h"
#include "Linux/KernelSwitch.h"
#include "Platform/Agent/Agent.h"
#include "Platform/Agent/SwitchState.h"
#include "Platform/Scheduler/ActivityLoop.h"
#include "Platform/StateDb/PersistedImage.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace Host {

/// arpsupd: the platform of a switch and the agent that runs on it, in one process and one thread.
/// In the runtime directory it keeps the lock, the tables, the names of interfaces, the published
/// status and the control socket. One per process.
class Daemon {
  public:
    /// Sets everything up and requests the agent's mounts. `configurationFile` is read again when
    /// a reload is asked for. Throws StartError, Quarry::TableError, Linux::PlaneError and
    /// std::system_error, with a text that says what is in the way.
    Daemon(Configuration configuration, std::string configurationFile);
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// Returns after SIGTERM or SIGINT. SIGHUP reads the configuration again: a file with mistakes,
    /// or one that there is no room for, changes nothing.
    void run();

  private:
    Vela::Ptr<Vela::TaskScheduler> makeScheduler();
    void publish(Configuration configuration);
    void makeForwardingPlane();
    void stopTrapping();
    void carryOutWithdrawals();
    void reload();
    void dump(Vela::DumpContext& context) const;

    const Configuration configuration_; // as it was at the start
    const std::string configurationFile_;
    const pid_t process_; // a forked child has another
    RuntimeDirectory runtimeDirectory_;
    Vela::SystemClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::ActivityLoop loop_;
    bool stopWanted_ = false;
    bool reloadWanted_ = false;
    Vela::Owned<SignalDescriptor> signals_;
    // Outlives the status that it keeps.
    Vela::PersistedImage statusImage_;
    Vela::Owned<Quarry::TableService> tableService_;
    Vela::Owned<Vela::EntityManager> entityManager_;
    std::optional<Vela::SwitchState> state_;
    std::optional<StaticEntries> staticEntries_;
    // Where the kernel is the switch.
    Vela::Owned<Linux::KernelSwitch> kernelSwitch_;
    Vela::Owned<Linux::ForwardingPlane> forwardingPlane_; // and no chip forwards
    Vela::Owned<Vela::Agent> agent_;
    std::string ringBufferFile_;
    std::optional<OperatorCommands> commands_;
    Vela::Owned<ControlSocket> controlSocket_;
};

} // namespace Host
