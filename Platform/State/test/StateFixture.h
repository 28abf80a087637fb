#pragma once

#include "Platform/State/Attribute.h"
#include "Platform/State/Entity.h"
#include "Platform/State/Notifier.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <utility>

namespace Vela {

/// A test that has to end with as many entities as it began with.
class StateFixture : public ::testing::Test {
  protected:
    ~StateFixture() override {
        EXPECT_EQ(Entity::liveCount(), before_) << "the test left entities behind";
    }

  private:
    const uint64_t before_ = Entity::liveCount();
};

/// An entity that can be observed, can observe, and does what the test says when it is destroyed.
class Thing : public Entity {
  public:
    explicit Thing(std::string name = {}) : name_(std::move(name)) {}
    const char* typeName() const noexcept override { return "Thing"; }
    void formatDerivedType(std::ostream& out) const override { out << name_; }

    Attribute<int> level;
    Reaction reaction;
    std::function<void()> whenDestroyed;

  protected:
    void handleDestroy() noexcept override {
        if (whenDestroyed) {
            whenDestroyed();
        }
    }

  private:
    std::string name_;
};

} // namespace Vela
