#include "Platform/State/Notifier.h"

#include "Platform/Base/Assert.h"
#include "Platform/State/CaughtErrors.h"

#include <exception>

namespace Vela {

namespace {
uint64_t lastSerialGiven = 0;
}

void Reaction::clear() noexcept {
    ReactionNode* node = std::exchange(node_, nullptr);
    if (!node) {
        return;
    }
    if (node->notifier_) {
        node->notifier_->remove(*node);
    }
    if (node->running_ > 0) {
        node->handleGone_ = true; // freed when its callable returns
    } else {
        delete node;
    }
}

NotifierBase::~NotifierBase() {
    for (Watch* watch = watches_; watch; watch = watch->outer_) {
        watch->notifier_ = nullptr;
        watch->next_ = nullptr;
    }
    for (ReactionNode* node = first_; node; node = node->next_) {
        node->notifier_ = nullptr;
    }
}

Reaction NotifierBase::add(ReactionNode* node) const {
    node->notifier_ = this;
    node->serial_ = ++lastSerialGiven;
    node->previous_ = last_;
    (last_ ? last_->next_ : first_) = node;
    last_ = node;
    return Reaction(node);
}

void NotifierBase::remove(ReactionNode& node) const noexcept {
    for (Watch* watch = watches_; watch; watch = watch->outer_) {
        if (watch->next_ == &node) {
            watch->next_ = node.next_;
        }
    }
    (node.previous_ ? node.previous_->next_ : first_) = node.next_;
    (node.next_ ? node.next_->previous_ : last_) = node.previous_;
    node.notifier_ = nullptr;
}

void NotifierBase::dispatch(const void* key) {
    const uint64_t lastSerial = lastSerialGiven;
    Watch watch(*this);
    watch.next_ = first_;
    // The list is in order of serials: what was added since the dispatch began stands at its end.
    while (watch.next_ && watch.next_->serial_ <= lastSerial) {
        ReactionNode& node = *watch.next_;
        watch.next_ = node.next_;
        invoke(node, key);
    }
}

void NotifierBase::invoke(ReactionNode& node, const void* key) {
    if (node.owner_ && !node.owner_->reacts()) {
        return;
    }
    // The owner may be destroyed by its own reaction; its memory must last until the call returns.
    Ptr<const Entity> keep(node.owner_);
    ++node.running_;
    try {
        node.call(key);
    } catch (const RangeError& error) {
        caughtRangeError(error, keep.get());
    } catch (const std::exception& error) {
        terminateWith(error.what());
    } catch (...) {
        terminateWith("not a std::exception");
    }
    if (--node.running_ == 0 && node.handleGone_) {
        delete &node;
    }
}

} // namespace Vela
