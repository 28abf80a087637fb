#pragma once

#include "Platform/StateDb/EntityManager.h"
#include "Platform/StateDb/MountGroup.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Vela {

/// Two types of published entities.
class Apple final : public Entity {
  public:
    Apple() = default;
    explicit Apple(std::string name) : name_(std::move(name)) {}
    const char* typeName() const noexcept override { return "Test::Apple"; }
    const std::string& name() const { return name_; }

  private:
    const std::string name_;
};

class Pear final : public Entity {
  public:
    const char* typeName() const noexcept override { return "Test::Pear"; }
};

/// A database without anything in it.
class StateDbFixture : public Testing::CoreFixture {
  protected:
    ~StateDbFixture() override {
        entityManager->destroy();
        tableService->destroy();
    }

    Testing::TemporaryDirectory directory;
    Ptr<Quarry::TableService> tableService =
        make<Quarry::TableService>(scheduler(), directory.path());
    Ptr<EntityManager> entityManager = make<EntityManager>(scheduler(), tableService);
};

/// Keeps what it hears.
class RecordingMounter final : public Mounter {
  public:
    void doMountsComplete(MountStatus status, const Ptr<EntityManager>& entityManager) override {
        heard.push_back(status);
        if (onComplete) {
            onComplete(entityManager);
        }
    }

    std::vector<MountStatus> heard;
    std::function<void(const Ptr<EntityManager>&)> onComplete;
};

} // namespace Vela
