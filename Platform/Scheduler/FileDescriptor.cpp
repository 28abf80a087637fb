#include "Platform/Scheduler/FileDescriptor.h"

#include <fcntl.h>
#include <ostream>

namespace Vela {

FileDescriptor::FileDescriptor(Ptr<TaskScheduler> scheduler, std::string name, UniqueFd fd)
    : scheduler_(std::move(scheduler)), name_(std::move(name)), fd_(std::move(fd)),
      number_(scheduler_->descriptors().add(*this)) {
    int flags = fcntl(fd_.get(), F_GETFL);
    fcntl(fd_.get(), F_SETFL, flags | O_NONBLOCK);
}

void FileDescriptor::handleDestroy() noexcept {
    scheduler_->descriptors().remove(number_);
    fd_.reset();
}

void FileDescriptor::formatDerivedType(std::ostream& out) const {
    out << name_ << ' ' << fd_.get();
}

void FileDescriptor::notifyOnReadableIs(bool notify) {
    watch(notify, notifyOnWritable_);
}

void FileDescriptor::notifyOnWritableIs(bool notify) {
    watch(notifyOnReadable_, notify);
}

void FileDescriptor::watch(bool readable, bool writable) {
    if (!destroyed()) {
        scheduler_->descriptors().watch(number_, readable, writable);
        notifyOnReadable_ = readable;
        notifyOnWritable_ = writable;
    }
}

void FileDescriptor::becameReady(bool readable, bool writable) {
    Ptr<FileDescriptor> keep(this);
    if (readable && notifyOnReadable_) {
        readable_ = true;
        readableCount_.setAlways(readableCount_.get() + 1);
    }
    // The reaction to the first may have ended the descriptor.
    if (writable && notifyOnWritable_ && !destroyed()) {
        writable_ = true;
        writableCount_.setAlways(writableCount_.get() + 1);
    }
}

} // namespace Vela
