#pragma once

#include "Platform/Base/UniqueFd.h"
#include "Platform/Scheduler/TaskScheduler.h"
#include "Platform/State/Attribute.h"

#include <cstdint>
#include <string>

namespace Vela {

/// An open descriptor whose readiness is announced by the scheduler's loop. Owns the descriptor,
/// makes it non-blocking and closes it when it is destroyed.
///
/// Readiness is edge-triggered: a count goes up when the descriptor becomes ready and when
/// something happens while it is (more arrives, the other side hangs up; a change in one direction
/// may count in the other, too), but not because it stays ready: an idle writable socket costs
/// nothing. So reactions must bear an announcement too many, and none is missing. Who uses it reads
/// (or writes) until EAGAIN and then says so with `readableDel` (`writableDel`); until then
/// `readable` (`writable`) stays true.
class FileDescriptor final : public Entity {
  public:
    FileDescriptor(Ptr<TaskScheduler> scheduler, std::string name, UniqueFd fd);

    const char* typeName() const noexcept override { return "FileDescriptor"; }
    void formatDerivedType(std::ostream& out) const override;

    const std::string& name() const { return name_; }
    /// -1 once destroyed.
    int descriptor() const noexcept { return fd_.get(); }

    /// Nothing is announced before it is asked for; what there is then, is. A std::system_error
    /// means that the descriptor cannot be polled (a regular file), or that the kernel is out of
    /// memory. Without effect once destroyed.
    void notifyOnReadableIs(bool notify);
    void notifyOnWritableIs(bool notify);

    /// How often that happened; every time is announced, and the reaction may destroy the object.
    uint32_t readableCount() const { return readableCount_.get(); }
    uint32_t writableCount() const { return writableCount_.get(); }
    const Attribute<uint32_t>& readableCountAttribute() const { return readableCount_; }
    const Attribute<uint32_t>& writableCountAttribute() const { return writableCount_; }

    bool readable() const noexcept { return readable_; }
    bool writable() const noexcept { return writable_; }
    void readableDel() noexcept { readable_ = false; }
    void writableDel() noexcept { writable_ = false; }

    std::string toStrep() const { return name_; }

  protected:
    void handleDestroy() noexcept override;

  private:
    friend class DescriptorSet;
    void watch(bool readable, bool writable);
    void becameReady(bool readable, bool writable);

    Ptr<TaskScheduler> scheduler_;
    const std::string name_;
    UniqueFd fd_;
    uint64_t number_;
    bool notifyOnReadable_ = false;
    bool notifyOnWritable_ = false;
    bool readable_ = false;
    bool writable_ = false;
    Attribute<uint32_t> readableCount_;
    Attribute<uint32_t> writableCount_;
};

} // namespace Vela
