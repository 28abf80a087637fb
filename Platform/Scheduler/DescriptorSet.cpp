#include "Platform/Scheduler/DescriptorSet.h"

#include "Platform/Scheduler/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sys/epoll.h>
#include <system_error>

namespace Vela {

DescriptorSet::DescriptorSet() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    if (!epoll_) {
        throw std::system_error(errno, std::system_category(), "epoll_create1");
    }
}

uint64_t DescriptorSet::add(FileDescriptor& descriptor) {
    entries_.emplace(++lastNumber_, Entry{&descriptor, false});
    return lastNumber_;
}

void DescriptorSet::remove(uint64_t number) noexcept {
    auto entry = entries_.find(number);
    if (entry != entries_.end()) {
        if (entry->second.watched) {
            epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, entry->second.descriptor->descriptor(), nullptr);
        }
        entries_.erase(entry);
    }
}

void DescriptorSet::watch(uint64_t number, bool readable, bool writable) {
    Entry& entry = entries_.at(number);
    epoll_event event{};
    event.events = EPOLLET | (readable ? EPOLLIN : 0u) | (writable ? EPOLLOUT : 0u);
    event.data.u64 = number;
    bool wanted = readable || writable;
    if (!wanted && !entry.watched) {
        return;
    }
    int operation = !wanted ? EPOLL_CTL_DEL : entry.watched ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (epoll_ctl(epoll_.get(), operation, entry.descriptor->descriptor(), &event) < 0) {
        throw std::system_error(errno, std::system_category(),
                                "epoll_ctl " + entry.descriptor->name());
    }
    entry.watched = wanted;
}

int DescriptorSet::wait(MonotonicTime longest) {
    int64_t milliseconds = std::chrono::ceil<std::chrono::milliseconds>(longest).count();
    epoll_event events[64];
    int count = epoll_wait(epoll_.get(), events, std::size(events),
                           static_cast<int>(std::clamp<int64_t>(milliseconds, 0, INT_MAX)));
    for (int i = 0; i < count; ++i) {
        // By number: an earlier announcement of this batch may have ended the descriptor. Copied,
        // because the kernel's event is packed and no reference may bind to what is in it.
        uint64_t number = events[i].data.u64;
        auto entry = entries_.find(number);
        if (entry != entries_.end()) {
            // Errors and hang-ups show when the descriptor is used.
            bool failed = events[i].events & (EPOLLERR | EPOLLHUP);
            entry->second.descriptor->becameReady(failed || events[i].events & EPOLLIN,
                                                  failed || events[i].events & EPOLLOUT);
        }
    }
    return std::max(count, 0);
}

} // namespace Vela
