#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>

namespace Vela {

class DumpContext;
class Entity;

template <class T>
using Ptr = boost::intrusive_ptr<T>;

void intrusive_ptr_add_ref(const Entity* entity) noexcept;
void intrusive_ptr_release(const Entity* entity) noexcept;

/// Base of every object of the state model. Counting is intrusive and not atomic: there is one
/// thread.
///
/// Life: a factory (`make`) constructs the object and then calls `handleInitialized`. The object's
/// life ends once, when its owner calls `destroy` (what every ...Del does) or with its last Ptr,
/// whichever comes first: `handleDestroy` runs and the object is not called by its reactions and
/// tasks any more. Only the memory waits for the last Ptr. Neither constructors nor destructors
/// make virtual calls. Either may pass a Ptr to the object around; one taken while the memory goes
/// must not be kept.
class Entity {
  public:
    Entity(const Entity&) = delete;
    Entity& operator=(const Entity&) = delete;

    /// The class name, as traces and dumps show it.
    virtual const char* typeName() const noexcept = 0;

    /// What tells this object from others of its type, as "af=ipv4 vlanId=10"; may be empty.
    virtual void formatDerivedType(std::ostream& out) const;

    /// Writes the object for the show-tech command: a header line at `indent`, attributes and
    /// children at `indent` + 2. Does no I/O of its own and changes nothing.
    virtual void dumpState(DumpContext& context, int indent) const;

    /// Ends the object's life. Safe to call again, and from a reaction of the object itself.
    void destroy() noexcept;
    bool destroyed() const noexcept { return destroyed_; }

    /// An object whose notification is not active is not called by what it observes, and its walks
    /// wait. Active from construction.
    bool hasNotificationActive() const noexcept { return notificationActive_; }
    void hasNotificationActiveIs(bool active) noexcept;

    /// Whether a reaction of this object may run now.
    bool reacts() const noexcept { return notificationActive_ && !destroyed_; }

    /// Type and distinction in one word, for traces.
    void formatTraceObject(std::ostream& out) const;

    /// How many objects exist in this process; a test that ends with any has a leak or a cycle.
    static uint64_t liveCount() noexcept;

  protected:
    Entity() noexcept;
    virtual ~Entity();

    virtual void handleInitialized() {}
    virtual void handleDestroy() noexcept {}
    /// Follows handleDestroy: for bases that must stop something whatever their derived classes do.
    virtual void reactorsDel() noexcept {}
    /// `hasNotificationActive` changed.
    virtual void handleNotificationActive() noexcept {}

  private:
    friend void intrusive_ptr_add_ref(const Entity* entity) noexcept;
    friend void intrusive_ptr_release(const Entity* entity) noexcept;
    template <class T, class... Args>
    friend Ptr<T> make(Args&&... args);

    void initialize() { handleInitialized(); }
    void endLife() noexcept;
    void releaseLast() const noexcept;

    mutable uint32_t references_ = 1; // the first is make's
    bool destroyed_ = false;
    bool notificationActive_ = true;
};

inline void intrusive_ptr_add_ref(const Entity* entity) noexcept {
    ++entity->references_;
}
inline void intrusive_ptr_release(const Entity* entity) noexcept {
    if (entity->references_ == 1) [[unlikely]] {
        entity->releaseLast();
    } else {
        --entity->references_;
    }
}

/// The one way to create an entity.
template <class T, class... Args>
Ptr<T> make(Args&&... args) {
    Ptr<T> entity(new T(std::forward<Args>(args)...), false);
    static_cast<Entity&>(*entity).initialize();
    return entity;
}

/// The text of something that may be absent.
template <class T>
std::string toStrep(const Ptr<T>& entity) {
    return entity ? entity->toStrep() : std::string("NULL");
}

/// Holds the child of an owner: replacing, clearing or outliving the holder ends the child's life.
template <class T>
class Owned {
  public:
    Owned() = default;
    Owned(Owned&& other) noexcept : child_(std::move(other.child_)) { other.child_.reset(); }
    Owned& operator=(Owned&& other) noexcept {
        reset(std::move(other.child_));
        return *this;
    }
    Owned& operator=(Ptr<T> child) noexcept {
        reset(std::move(child));
        return *this;
    }
    ~Owned() { reset(); }

    /// The old child is out of sight before its life ends, so what reacts to that sees the new one.
    void reset(Ptr<T> child = nullptr) noexcept {
        Ptr<T> old = std::move(child_);
        child_ = std::move(child);
        if (old && old != child_) {
            old->destroy();
        }
    }

    const Ptr<T>& ptr() const noexcept { return child_; }
    T* operator->() const noexcept { return child_.get(); }
    T& operator*() const noexcept { return *child_; }
    explicit operator bool() const noexcept { return child_ != nullptr; }

  private:
    Ptr<T> child_;
};

} // namespace Vela
