#pragma once

#include "Linux/bpf/PlaneState.h"

#include <cstdint>
#include <memory>
#include <string>

struct bpf_object;

namespace Linux {

/// The programs of the forwarding plane in the kernel, which end with this object and with what
/// they are attached to, and the memory that they share with it. Everything that names a device
/// works in the thread's network namespace.
class PlaneProgram {
  public:
    /// Throws PlaneError, with what the kernel's verifier has said.
    PlaneProgram();
    ~PlaneProgram();
    PlaneProgram(const PlaneProgram&) = delete;
    PlaneProgram& operator=(const PlaneProgram&) = delete;

    /// Shared with the programs: 32 and 64 bit words are written whole, in any order.
    volatile Plane::State& state() { return *state_; }
    const volatile Plane::State& state() const { return *state_; }

    /// False if there is no room for it.
    bool portIs(uint32_t ifIndex, const Plane::Port& port) noexcept;
    void portDel(uint32_t ifIndex) noexcept;

    /// The far ends of the plane's devices. Throws PlaneError.
    void attachTrap(uint32_t ifIndex);
    void attachFabric(uint32_t ifIndex);
    void attachInject(uint32_t ifIndex);

    /// Replaces what a predecessor has left there, and leaves the filters of others alone: they
    /// see what this one does not take. Throws PlaneError.
    void attachTunnel(uint32_t ifIndex);
    /// Without effect where it is not attached.
    void detachTunnel(uint32_t ifIndex) noexcept;
    /// Detaches, from all devices, what a killed predecessor has left.
    void detachLeftovers() noexcept;

  private:
    struct Close {
        void operator()(bpf_object* object) const noexcept;
    };

    int program(const char* name) const;
    int map(const char* name) const;

    std::unique_ptr<bpf_object, Close> object_;
    volatile Plane::State* state_ = nullptr;
};

} // namespace Linux
