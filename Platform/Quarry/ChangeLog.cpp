#include "Platform/Quarry/ChangeLog.h"

#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <utility>

namespace Quarry {

ChangeLog::ChangeLog(Vela::Ptr<Vela::TaskScheduler> scheduler, size_t capacity)
    : scheduler_(std::move(scheduler)), capacity_(capacity) {
    task_ = Vela::make<Vela::Task>(scheduler_, 3, "TableChanges", this, [this] { return drain(); });
}

void ChangeLog::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent,
                  "Quarry::ChangeLog entries=%zu mostEntries=%zu capacity=%zu announced=%llu\n",
                  entries_, mostEntries_, capacity_, static_cast<unsigned long long>(announced_));
}

uint64_t ChangeLog::listenerIs(ChangeListener& listener) {
    listeners_.emplace(++lastNumber_, &listener);
    return lastNumber_;
}

void ChangeLog::listenerDel(uint64_t number) {
    listeners_.erase(number);
}

void ChangeLog::record(uint64_t number, std::span<const uint64_t> key) {
    words_.push_back(number);
    words_.push_back(key.size());
    words_.insert(words_.end(), key.begin(), key.end());
    mostEntries_ = std::max(mostEntries_, ++entries_);
    if (task_ && !task_->scheduled()) {
        task_->schedule();
    }
    overHalfFull_.set(overHalfFull() || entries_ > capacity_ / 2);
}

Vela::SliceResult ChangeLog::drain() {
    Vela::Ptr<ChangeLog> self(this); // a reaction may let go of everything
    uint32_t count = 0;
    while (entries_ > 0 && !destroyed()) {
        announceOldest();
        ++count;
        if (scheduler_->mustYield()) {
            break;
        }
    }
    return {entries_ > 0 && !destroyed(), count};
}

void ChangeLog::announceOldest() {
    uint64_t number = words_[0];
    auto keyBegin = words_.begin() + 2;
    auto keyEnd = keyBegin + static_cast<ptrdiff_t>(words_[1]);
    key_.assign(keyBegin, keyEnd);
    words_.erase(words_.begin(), keyEnd);
    --entries_;
    ++announced_;
    if (overHalfFull() && entries_ <= capacity_ / 4) {
        overHalfFull_.set(false);
    }
    if (auto found = listeners_.find(number); found != listeners_.end()) {
        found->second->handleChange(key_.data());
    }
}

} // namespace Quarry
