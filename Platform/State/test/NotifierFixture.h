#pragma once

#include "Platform/State/Notifier.h"
#include "Platform/State/test/StateFixture.h"

#include <concepts>
#include <memory>
#include <string>

namespace Vela {

class NotifierFixture : public StateFixture {
  protected:
    /// A reaction that adds `name` to `calls` and then does `what`.
    template <std::invocable What>
    Reaction reactWith(char name, What what, const Entity* owner = nullptr) {
        return notifier->react(owner, [this, name, what] {
            calls += name;
            what();
        });
    }
    Reaction reactWith(char name, const Entity* owner = nullptr) {
        return reactWith(
            name, [] {}, owner);
    }
    std::string callsOf(Notifier& changed) {
        calls.clear();
        changed.notify();
        return calls;
    }
    std::string notify() { return callsOf(*notifier); }

    std::unique_ptr<Notifier> notifier = std::make_unique<Notifier>();
    std::string calls;
};

} // namespace Vela
