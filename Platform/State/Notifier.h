#pragma once

#include "Platform/State/Entity.h"

#include <cstdint>
#include <type_traits>
#include <utility>

namespace Vela {

class NotifierBase;

/// One registered reaction. Allocated at registration; owned by its handle, and kept beyond it only
/// while its callable runs.
class ReactionNode {
  public:
    ReactionNode(const ReactionNode&) = delete;
    ReactionNode& operator=(const ReactionNode&) = delete;

  protected:
    explicit ReactionNode(const Entity* owner) : owner_(owner) {}
    virtual ~ReactionNode() = default;

    /// `key` points to what the notifier announces; null where it announces no key.
    virtual void call(const void* key) = 0;

  private:
    friend class NotifierBase;
    friend class Reaction;

    ReactionNode* previous_ = nullptr;
    ReactionNode* next_ = nullptr;
    const NotifierBase* notifier_ = nullptr; // null once removed or the notifier is gone
    const Entity* owner_;
    uint64_t serial_ = 0;
    uint32_t running_ = 0;
    bool handleGone_ = false;
};

/// The handle of a reaction: destroying or clearing it removes the reaction, also while it runs.
/// It is a member of whoever reacts. It may outlive what it observes.
class [[nodiscard]] Reaction {
  public:
    Reaction() = default;
    Reaction(Reaction&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
    Reaction& operator=(Reaction&& other) noexcept {
        if (this != &other) {
            clear();
            node_ = std::exchange(other.node_, nullptr);
        }
        return *this;
    }
    ~Reaction() { clear(); }

    void clear() noexcept;
    /// Whether a change can still reach the reaction.
    explicit operator bool() const noexcept { return node_ && node_->notifier_; }

  private:
    friend class NotifierBase;
    explicit Reaction(ReactionNode* node) : node_(node) {}

    ReactionNode* node_ = nullptr;
};

/// The reactions to one attribute or collection. The contract, for every derived class:
/// - notification is synchronous and in registration order, and allocates nothing;
/// - a reaction may remove itself or any other; a removed one is not called any more, even within
///   the current dispatch;
/// - a reaction added during a dispatch first sees the next change;
/// - observer and observed may die in either order, also during a dispatch;
/// - a nested change notifies at once, so a reaction reads the current state and never keeps an
///   old value;
/// - a reaction is skipped while its owner does not react (destroyed, or notification inactive);
/// - a range error that leaves a reaction ends that reaction only; it is traced and counted.
///   Anything else that escapes terminates the process with its text.
/// Registering is const, so that a read-only view can be observed.
class NotifierBase {
  public:
    NotifierBase() = default;
    NotifierBase(const NotifierBase&) = delete;
    NotifierBase& operator=(const NotifierBase&) = delete;

    bool observed() const noexcept { return first_ != nullptr; }

    /// On the stack of whoever goes on after an announcement: whether the notifier, and what it is
    /// a part of, is still there.
    class Watch {
      public:
        explicit Watch(NotifierBase& notifier) noexcept
            : notifier_(&notifier), outer_(std::exchange(notifier.watches_, this)) {}
        ~Watch() {
            if (notifier_) {
                notifier_->watches_ = outer_;
            }
        }
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

        bool notifierGone() const noexcept { return !notifier_; }

      private:
        friend class NotifierBase;
        NotifierBase* notifier_;
        Watch* outer_;
        ReactionNode* next_ = nullptr; // whom the dispatch calls next
    };

  protected:
    ~NotifierBase();

    Reaction add(ReactionNode* node) const;
    void dispatch(const void* key);

  private:
    friend class Reaction;

    static void invoke(ReactionNode& node, const void* key);
    void remove(ReactionNode& node) const noexcept;

    mutable ReactionNode* first_ = nullptr;
    mutable ReactionNode* last_ = nullptr;
    Watch* watches_ = nullptr; // innermost first
};

/// Announces that something changed.
class Notifier : public NotifierBase {
  public:
    /// `owner` is the entity that reacts and holds the handle; may be null.
    template <class Callable>
    [[nodiscard]] Reaction react(const Entity* owner, Callable callable) const {
        struct Node final : ReactionNode {
            Node(const Entity* reactor, Callable&& c)
                : ReactionNode(reactor), callable(std::move(c)) {}
            void call(const void*) override { callable(); }
            Callable callable;
        };
        return add(new Node(owner, std::move(callable)));
    }

    /// May destroy the notifier, through its reactions.
    void notify() {
        if (observed()) {
            dispatch(nullptr);
        }
    }
};

/// Announces which entry changed.
template <class Key>
class KeyNotifier : public NotifierBase {
  public:
    /// The callable takes the key; the reference is valid for the call.
    template <class Callable>
    [[nodiscard]] Reaction react(const Entity* owner, Callable callable) const {
        struct Node final : ReactionNode {
            Node(const Entity* reactor, Callable&& c)
                : ReactionNode(reactor), callable(std::move(c)) {}
            void call(const void* key) override { callable(*static_cast<const Key*>(key)); }
            Callable callable;
        };
        return add(new Node(owner, std::move(callable)));
    }

    /// `key` must outlive the call: pass a copy where a reaction could remove the entry it stands
    /// in. May destroy the notifier.
    void notify(const Key& key) {
        if (observed()) {
            dispatch(&key);
        }
    }
};

} // namespace Vela
