#include "Platform/State/Entity.h"

#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

#include <ostream>
#include <sstream>

namespace Vela {

namespace {
uint64_t liveEntities = 0;
}

Entity::Entity() noexcept {
    ++liveEntities;
}

Entity::~Entity() {
    assertThat(references_ == 1, "references_ == 1");
    --liveEntities;
}

uint64_t Entity::liveCount() noexcept {
    return liveEntities;
}

void Entity::formatDerivedType(std::ostream&) const {}

void Entity::dumpState(DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
}

void Entity::destroy() noexcept {
    if (!destroyed_) {
        // handleDestroy may drop what held the last reference to this object.
        Ptr<Entity> keep(this);
        endLife();
    }
}

void Entity::endLife() noexcept {
    destroyed_ = true;
    handleDestroy();
    reactorsDel();
}

void Entity::hasNotificationActiveIs(bool active) noexcept {
    if (notificationActive_ != active) {
        notificationActive_ = active;
        handleNotificationActive();
    }
}

void Entity::formatTraceObject(std::ostream& out) const {
    std::ostringstream distinction;
    formatDerivedType(distinction);
    out << typeName() << '(';
    if (distinction.view().empty()) {
        out << static_cast<const void*>(this);
    } else {
        out << distinction.view();
    }
    out << ')';
}

void Entity::releaseLast() const noexcept {
    if (!destroyed_) {
        // Still counted while its life ends, so that handleDestroy may pass the object around.
        const_cast<Entity*>(this)->endLife();
    }
    if (--references_ == 0) {
        // Counted again, so that what ends with it may pass it around and not free it twice.
        references_ = 1;
        delete this;
    }
}

} // namespace Vela
