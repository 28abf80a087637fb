#pragma once

#include "Platform/Quarry/Table.h"
#include "Platform/Quarry/TableCollection.h"
#include "Platform/Value/EthAddr.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace KernelNetInfo {

/// A kernel interface's index within its network namespace.
struct IfIndex {
    uint32_t value = 0;

    uint64_t hash(uint64_t seed) const;
    friend bool operator==(IfIndex, IfIndex) = default;
};

/// A kernel interface; the default value stands for none. 32 bytes.
struct InterfaceStatus {
    using Key = IfIndex;
    static constexpr const char* recordType = "KernelNetInfo::InterfaceStatus";
    static constexpr size_t longestName = 15;

    InterfaceStatus() = default;
    /// Throws RangeError if the name is longer than the kernel allows.
    InterfaceStatus(uint32_t ifIndex, std::string_view name, uint32_t interfaceFlags,
                    const Zinc::EthAddr& address);

    IfIndex key;
    uint32_t flags = 0;                       ///< IFF_... as the kernel reports them
    std::array<char, longestName + 1> name{}; ///< zeros beyond the name
    Zinc::EthAddr macAddress;
    std::array<uint8_t, 2> unused{}; // in the place of padding

    std::string deviceName() const { return name.data(); }
    bool running() const { return (flags & 0x40) != 0; } // IFF_RUNNING
    friend bool operator==(const InterfaceStatus&, const InterfaceStatus&) = default;
};

/// The kernel interfaces of one network namespace, mounted at statusPath(namespace).
class Status final : public Quarry::Table {
  public:
    static constexpr const char* tableType = "KernelNetInfo::Status";
    static constexpr uint32_t capacity = 1u << 16;

    explicit Status(const Quarry::TableSite& site)
        : Table(site), interface_(*this, "interface", capacity) {}
    const char* typeName() const noexcept override { return tableType; }

    const Quarry::TableCollection<InterfaceStatus>& interfaceCollection() const {
        return interface_;
    }
    bool interfaceIs(const InterfaceStatus& status) { return interface_.set(status); }
    bool interfaceDel(uint32_t ifIndex) { return interface_.del({ifIndex}); }

  private:
    Quarry::TableCollection<InterfaceStatus> interface_;
};

/// "kni/ns/default/status"
std::string statusPath(const std::string& netNs);

} // namespace KernelNetInfo
