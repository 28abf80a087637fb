#pragma once

#include "Platform/Quarry/Table.h"
#include "Platform/Quarry/TableCollection.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/RemoteBindingKey.h"

#include <ostream>
#include <string>

namespace ArpSuppression {

/// A binding of a host behind a remote tunnel end point, as EVPN advertises it. 28 bytes.
/// toStrep: <vlanId=10 ipAddress=10.0.0.1 macAddress=02:00:00:00:00:0a vxlan=0 localMultihomed=0>
struct RemoteBinding {
    using Key = RemoteBindingKey;
    static constexpr const char* recordType = "ArpSuppression::RemoteBinding";

    RemoteBindingKey key;
    Zinc::EthAddr macAddress;
    uint8_t vxlan = 0;           ///< 1: learnt over VXLAN, whose end points answer themselves
    uint8_t localMultihomed = 0; ///< 1: the host's Ethernet segment is attached here, too

    std::string toStrep() const;
    friend bool operator==(const RemoteBinding&, const RemoteBinding&) = default;
    friend std::ostream& operator<<(std::ostream& out, const RemoteBinding& v) {
        return out << v.toStrep();
    }
};

/// All remote bindings, written by the EVPN control plane.
class RemoteBindingConfig final : public Quarry::Table {
  public:
    static constexpr const char* tableType = "ArpSuppression::RemoteBindingConfig";
    static constexpr uint32_t capacity = 1u << 22;

    explicit RemoteBindingConfig(const Quarry::TableSite& site)
        : Table(site), remoteBinding_(*this, "remoteBinding", capacity) {}
    const char* typeName() const noexcept override { return tableType; }

    const Quarry::TableCollection<RemoteBinding>& remoteBindingCollection() const {
        return remoteBinding_;
    }
    /// The default binding where there is none.
    RemoteBinding remoteBinding(const RemoteBindingKey& key) const {
        return remoteBinding_.value(key);
    }
    bool remoteBindingIs(const RemoteBinding& binding) { return remoteBinding_.set(binding); }
    bool remoteBindingDel(const RemoteBindingKey& key) { return remoteBinding_.del(key); }

  private:
    Quarry::TableCollection<RemoteBinding> remoteBinding_;
};

} // namespace ArpSuppression
