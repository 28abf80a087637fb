#pragma once

#include "Platform/State/Collection.h"
#include "Platform/Value/IntfId.h"

#include <cstdint>
#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace Interface {

/// The interface behind a kernel device; none by default.
/// toStrep: <intfId=Ethernet1 deviceName=et1>
/// Value form: Value('Interface::DeviceIntfStatus', ** {'intfId': 'Ethernet1', 'deviceName':
/// 'et1'})
class DeviceIntfStatus {
  public:
    DeviceIntfStatus() = default;
    DeviceIntfStatus(Zinc::IntfId intfId, std::string deviceName)
        : intfId_(intfId), deviceName_(std::move(deviceName)) {}
    static DeviceIntfStatus fromValue(Vela::ValueParser& parser);

    Zinc::IntfId intfId() const { return intfId_; }
    const std::string& deviceName() const { return deviceName_; }

    std::string toStrep() const;
    std::string valueToStrep() const;

    friend bool operator==(const DeviceIntfStatus&, const DeviceIntfStatus&) = default;
    friend std::ostream& operator<<(std::ostream& out, const DeviceIntfStatus& v) {
        return out << v.valueToStrep();
    }

  private:
    Zinc::IntfId intfId_;
    std::string deviceName_;
};

/// The kernel devices of a network namespace by their index. The setter announces only a change.
class DeviceIntfStatusDir final : public Vela::Entity {
  public:
    using DeviceIntfStatusCollection = Vela::Map<uint32_t, DeviceIntfStatus>;

    /// The name may be empty.
    explicit DeviceIntfStatusDir(std::string name) : name_(std::move(name)) {}

    const char* typeName() const noexcept override { return "Interface::DeviceIntfStatusDir"; }
    void formatDerivedType(std::ostream& out) const override { out << name_; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const std::string& name() const { return name_; }

    const DeviceIntfStatusCollection& deviceIntfStatusCollection() const {
        return deviceIntfStatus_;
    }
    DeviceIntfStatus deviceIntfStatus(uint32_t ifIndex) const {
        return deviceIntfStatus_.value(ifIndex);
    }
    void deviceIntfStatusIs(uint32_t ifIndex, DeviceIntfStatus status) {
        deviceIntfStatus_.set(ifIndex, std::move(status));
    }
    void deviceIntfStatusDel(uint32_t ifIndex) { deviceIntfStatus_.del(ifIndex); }
    void deviceIntfStatusDelAll() { deviceIntfStatus_.delAll(); }

  private:
    const std::string name_;
    DeviceIntfStatusCollection deviceIntfStatus_;
};

} // namespace Interface
