#pragma once

#include "Platform/State/Collection.h"
#include "Platform/State/Entity.h"
#include "Platform/Value/RemoteBindingKey.h"

#include <set>

namespace Linux {

/// The remote bindings that the configuration file gives. Whatever the kernel says of such an
/// address, its binding is left as the file has it; who reads the file writes it.
class ConfiguredBindings final : public Vela::Entity {
  public:
    using Key = ArpSuppression::RemoteBindingKey;
    using KeyCollection = Vela::Set<Key>;

    const char* typeName() const noexcept override { return "Linux::ConfiguredBindings"; }

    /// Announces each key that comes or goes.
    const KeyCollection& keyCollection() const { return key_; }
    bool keyHas(const Key& key) const { return key_.has(key); }
    void keysAre(const std::set<Key>& keys) {
        for (auto cursor = key_.first(); cursor; ++cursor) {
            if (!keys.contains(cursor.key())) {
                key_.del(cursor.key());
            }
        }
        for (const Key& key : keys) {
            key_.set(key, {});
        }
    }

  private:
    KeyCollection key_;
};

} // namespace Linux
