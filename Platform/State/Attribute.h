#pragma once

#include "Platform/State/Notifier.h"

#include <utility>

namespace Vela {

/// A value that announces its changes. Accessors of the entity that has it are one-liners; which
/// of the two setters they use is stated there. What a setter replaces lasts until the announcement
/// is over.
template <class T>
class Attribute {
  public:
    Attribute() = default;
    explicit Attribute(T value) : value_(std::move(value)) {}

    const T& get() const noexcept { return value_; }

    /// Announces only a value that differs; returns whether it did.
    bool set(T value) {
        if (value_ == value) {
            return false;
        }
        std::swap(value_, value);
        notifier_.notify();
        return true;
    }

    /// Announces every call.
    void setAlways(T value) {
        std::swap(value_, value);
        notifier_.notify();
    }

    /// See NotifierBase. The callable takes nothing: it reads the value that stands when it runs.
    template <class Callable>
    [[nodiscard]] Reaction react(const Entity* owner, Callable callable) const {
        return notifier_.react(owner, std::move(callable));
    }

  private:
    T value_{};
    Notifier notifier_;
};

} // namespace Vela
