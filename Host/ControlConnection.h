#pragma once

#include "Host/ControlRequest.h"
#include "Platform/Scheduler/FileDescriptor.h"
#include "Platform/Scheduler/Task.h"

#include <functional>
#include <string>

namespace Host {

constexpr Vela::TaskPriority controlPriority = 3; ///< of every task that serves a client

/// Writes what fits at once and gives up the rest: an answer this short always fits unless the
/// client is gone.
void sendControlError(int fd, const std::string& text) noexcept;

/// One client of the control socket, from its first byte to the end of its line. A client that has
/// not sent its line after 10 s is told so.
///
/// Its work is done, and `ended` called, when the line was passed on or an error was answered; who
/// owns it then destroys it, which closes the connection.
class ControlConnection final : public Vela::Entity {
  public:
    static constexpr double patience = 10; // seconds

    struct Callbacks {
        /// Has the command carried out, with the connection's blocking descriptor, which it may
        /// duplicate; returns the text of an error, or nothing if there is none.
        std::function<std::string(const std::string& command, int fd)> start;
        /// May destroy the connection.
        std::function<void()> ended;
    };

    ControlConnection(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::UniqueFd fd,
                      Callbacks callbacks);

    const char* typeName() const noexcept override { return "ControlConnection"; }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    void readSome();
    void settle();
    void end();

    Callbacks callbacks_;
    ControlRequest request_;
    Vela::Owned<Vela::FileDescriptor> descriptor_;
    Vela::Owned<Vela::Task> reader_;
    Vela::Owned<Vela::Task> timeout_;
    Vela::Reaction reaction_;
};

} // namespace Host
