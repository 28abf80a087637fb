#include "Host/Daemon.h"

#include "Host/KernelSettings.h"
#include "Host/NeighborReport.h"
#include "Host/ReportOfPlane.h"
#include "Host/StartError.h"
#include "Platform/Agent/AgentFactory.h"
#include "Platform/Agent/Toggle.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/Trace.h"
#include "Platform/Value/IntfNameTable.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {

constexpr const char* agentName = "ArpSuppression";

void say(const std::string& text) {
    std::fprintf(stderr, "arpsupd: %s\n", text.c_str());
}

/// Beside the program, as the build has it, or where an installation has it.
std::string agentLibraryBeside() {
    std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const char* place : {"../ArpSuppression", "../lib/arpsup", "."}) {
        auto library = program / place / "libArpSuppression.so";
        if (std::filesystem::exists(library)) {
            return library.lexically_normal().string();
        }
    }
    throw StartError("there is no libArpSuppression.so near " + program.string() +
                     ": name it with agent_library");
}

Vela::Ptr<Vela::Agent> loadAgent(const std::string& library) {
    try {
        return Vela::loadAgent(library, agentName);
    } catch (const Vela::AgentLibraryError& error) {
        throw StartError(std::string("agent_library: ") + error.what());
    }
}

/// The keys, for people, that differ between the two and count only at the start.
std::string changedForRestart(const Configuration& a, const Configuration& b) {
    const std::pair<const char*, bool> keys[] = {
        {"runtime_directory", a.runtimeDirectory != b.runtimeDirectory},
        {"log_directory", a.logDirectory != b.logDirectory},
        {"toggle_directory", a.toggleDirectory != b.toggleDirectory},
        {"agent_library", a.agentLibrary != b.agentLibrary},
        {"physical_hardware", a.physicalHardware != b.physicalHardware},
        {"[linux]", a.onLinux.has_value() != b.onLinux.has_value()},
        {"[control]", a.control != b.control}};
    std::string names;
    for (const auto& [name, changed] : keys) {
        if (changed) {
            names += (names.empty() ? "" : ", ") + std::string(name);
        }
    }
    return names;
}

void setTrace(const Configuration& configuration) {
    // Level 0 says what is wrong, and is never switched off.
    std::string levels = "*=0";
    if (!configuration.trace.empty()) {
        levels += "," + configuration.trace;
    }
    for (const std::string& problem : Vela::traceLevelsIs(levels)) {
        say("trace: " + problem);
    }
}

} // namespace

Daemon::Daemon(Configuration configuration, std::string configurationFile)
    : configuration_(std::move(configuration)), configurationFile_(std::move(configurationFile)),
      process_(getpid()), runtimeDirectory_(configuration_.runtimeDirectory),
      scheduler_(makeScheduler()), loop_(scheduler_),
      statusImage_(runtimeDirectory_.path("status"),
                   ArpSuppression::ArpSuppressionStatus::imageBytes) {
    signals_ = Vela::make<SignalDescriptor>(
        scheduler_,
        [this] {
            stopWanted_ = true;
            loop_.stop();
        },
        [this] {
            reloadWanted_ = true;
            loop_.stop();
        });
    tableService_ = Vela::make<Quarry::TableService>(scheduler_, runtimeDirectory_.path("tables"));
    entityManager_ = Vela::make<Vela::EntityManager>(scheduler_, tableService_.ptr());
    if (!statusImage_.replaced().empty()) {
        say("the status of an earlier run is lost: " + runtimeDirectory_.path("status") + " " +
            statusImage_.replaced());
    }
    state_.emplace(entityManager_.ptr(), statusImage_.bytes());
    staticEntries_.emplace(*state_);
    publish(configuration_);
    if (kernelSwitch_ && !configuration_.physicalHardware) {
        makeForwardingPlane();
    }

    std::string library = configuration_.agentLibrary;
    agent_ = loadAgent(library.empty() ? agentLibraryBeside() : library);
    agent_->platformIs({scheduler_, entityManager_.ptr(), configuration_.physicalHardware});
    agent_->doInit();
    ringBufferFile_ = Vela::Swiftlog::fileName(); // which a forked child has not open

    commands_.emplace(OperatorCommands::Sources{
        .agent = *agent_.ptr(),
        .dumpDaemon = [this](Vela::DumpContext& context) { dump(context); },
        .writeNeighbors =
            [this](bool json, int fd) {
                writeNeighbors(*state_->arpInputConfig,
                               kernelSwitch_ ? &kernelSwitch_->neighborWriter() : nullptr, json,
                               fd);
            },
        .forwardingPlane = forwardingPlane_ ? [this] { return reportOf(*forwardingPlane_.ptr()); }
                                            : std::function<ForwardingPlaneReport()>()});
    controlSocket_ =
        Vela::make<ControlSocket>(scheduler_, runtimeDirectory_.path("control"),
                                  configuration_.control.group, commands_->controlCommands());
}

/// The first of all that is built: what is interned and traced from here on has its place.
Vela::Ptr<Vela::TaskScheduler> Daemon::makeScheduler() {
    setTrace(configuration_);
    Vela::toggleDirectoryIs(configuration_.toggleDirectory);
    // One file, and the one of the run before: a daemon that dies again and again must not fill the
    // disk with them.
    setenv("SWIFTLOGDIR", configuration_.logDirectory.c_str(), 0);
    Zinc::intfNameTableIs(Zinc::IntfNameTable::ownerOf(runtimeDirectory_.path("interfaces")));
    return Vela::make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings());
}

Daemon::~Daemon() {
    controlSocket_.reset();
    forwardingPlane_.reset(); // while the agent has its sockets, requests may still come
    agent_.reset(); // it withdraws what it has published, for which it needs everything else
    carryOutWithdrawals();
    kernelSwitch_.reset();
    staticEntries_.reset();
    state_.reset();
    entityManager_.reset();
    tableService_.reset();
    Vela::Swiftlog::close();
}

void Daemon::run() {
    say("running in " + runtimeDirectory_.path());
    while (!stopWanted_) {
        loop_.run();
        if (std::exchange(reloadWanted_, false)) {
            reload(); // between two turns: it may have to run some
        }
    }
    say("stopping");
    stopTrapping();
}

void Daemon::makeForwardingPlane() {
    forwardingPlane_ = Vela::make<Linux::ForwardingPlane>(
        Linux::ForwardingPlane::Inputs{.scheduler = scheduler_,
                                       .turns = loop_.turnsAttribute(),
                                       .topology = kernelSwitch_->topology(),
                                       .suppression = state_->arpSuppressionStatus,
                                       .bridgingConfig = state_->bridgingConfig,
                                       .virtualRouterMac = state_->fhrpVrMacStatus});
}

/// Lets requests pass from now on, and works off those that have been trapped.
void Daemon::stopTrapping() {
    if (!forwardingPlane_) {
        return;
    }
    forwardingPlane_->enabledIs(false);
    auto deadline = clock_.now() + std::chrono::milliseconds(300);
    while (clock_.now() < deadline && scheduler_->turn(std::chrono::milliseconds(10))) {
    }
}

/// Takes the agent's entries out of the kernel: a million takes half a minute. Those for which
/// there is no time are found there and withdrawn by the next agent.
void Daemon::carryOutWithdrawals() {
    if (!kernelSwitch_ || !kernelSwitch_->neighborWriter().started()) {
        return;
    }
    auto deadline = clock_.now() + std::chrono::seconds(60);
    while (!kernelSwitch_->neighborWriter().idle() && clock_.now() < deadline) {
        scheduler_->turn(std::chrono::milliseconds(10));
    }
}

/// Whether the kernel is the switch stays as it was at the start.
void Daemon::publish(Configuration configuration) {
    if (!configuration_.onLinux) {
        configuration.onLinux.reset();
    } else if (!configuration.onLinux) {
        configuration.onLinux = configuration_.onLinux;
    }
    staticEntries_->apply(configuration);
    if (!configuration.onLinux) {
        state_->tablesCompleteIs();
        return;
    }
    // From here on the tables' completeness is its business.
    auto settings = kernelSettings(configuration, staticEntries_->vrfIds());
    if (kernelSwitch_) {
        kernelSwitch_->configurationIs(std::move(settings));
    } else {
        kernelSwitch_ = Vela::make<Linux::KernelSwitch>(scheduler_, *state_, std::move(settings));
    }
}

void Daemon::reload() {
    try {
        Configuration next = readConfiguration(configurationFile_);
        // An agent that is switched off closes its sockets, and what it has not read is lost.
        if (state_->evpnStatus->mplsConfigured() && !next.evpn.mpls) {
            stopTrapping();
        }
        publish(next);
        setTrace(next);
        std::string text = "read " + configurationFile_ + " again";
        std::string waiting = changedForRestart(configuration_, next);
        say(waiting.empty()
                ? text
                : text + "\narpsupd: changed, but used only after a restart: " + waiting);
    } catch (const std::exception& error) {
        say("the configuration stays as it was:\n" + std::string(error.what()));
    }
    if (forwardingPlane_) {
        forwardingPlane_->enabledIs(true);
    }
}

void Daemon::dump(Vela::DumpContext& context) const {
    context.print(0, "arpsupd %s\n", runtimeDirectory_.path().c_str());
    context.print(2, "process=%d\n", process_);
    context.print(2, "configuration=%s\n", configurationFile_.c_str());
    context.print(2, "turns=%llu\n", static_cast<unsigned long long>(loop_.turns()));
    context.print(2, "ringBufferFile=%s\n", ringBufferFile_.c_str());
    context.child(0, "scheduler", scheduler_.get());
    context.child(0, "controlSocket", controlSocket_.ptr().get());
    context.child(0, "kernelSwitch", kernelSwitch_.ptr().get());
    context.child(0, "forwardingPlane", forwardingPlane_.ptr().get());
    context.child(0, "tableService", tableService_.ptr().get());
    context.child(0, "entityManager", entityManager_.ptr().get());
    const auto& entities = entityManager_->entityCollection();
    for (auto cursor = entities.first(); cursor; ++cursor) {
        context.child(0, cursor.key().c_str(), cursor.value().get());
    }
}

} // namespace Host
