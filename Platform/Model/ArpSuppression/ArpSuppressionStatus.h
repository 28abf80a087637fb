#pragma once

#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/VlanId.h"

#include <cstdint>
#include <span>

namespace ArpSuppression {

/// Whether suppression runs, and on which VLANs it is active.
///
/// The status may outlive its process: the object loads itself from the image that it is given and
/// writes each change there before it announces it. An object that ends leaves the image as it is.
/// The image, 4096 bytes:
///
///     byte 0        runnable: 0 no, 1 yes
///     byte 1..4094  the VLAN of that number: 0 absent, 1 present and false, 2 present and true
///     byte 4095     unused
///
/// Any other value is taken for 0 and cleared.
///
/// Setters and removers announce only a change. Reactions may call back, and may drop the object.
class ArpSuppressionStatus final : public Vela::Entity {
  public:
    using VlanIdCollection = Vela::Map<Bridging::VlanId, bool>;

    static constexpr size_t imageBytes = 4096;

    /// `image` belongs to the caller and outlives the object; empty if nothing is to be kept.
    explicit ArpSuppressionStatus(std::span<uint8_t> image = {});

    const char* typeName() const noexcept override {
        return "ArpSuppression::ArpSuppressionStatus";
    }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    bool runnable() const { return runnable_.get(); }
    const Vela::Attribute<bool>& runnableAttribute() const { return runnable_; }
    void runnableIs(bool runnable);

    /// Whether suppression is active on the VLAN.
    const VlanIdCollection& vlanIdCollection() const { return vlanId_; }
    size_t vlanIds() const { return vlanId_.count(); }
    bool vlanIdHas(Bridging::VlanId vlanId) const { return vlanId_.has(vlanId); }
    void vlanIdIs(Bridging::VlanId vlanId, bool active);
    void vlanIdDel(Bridging::VlanId vlanId);
    void vlanIdDelAll();

  private:
    void keep(size_t offset, uint8_t value);

    const std::span<uint8_t> image_;
    Vela::Attribute<bool> runnable_;
    VlanIdCollection vlanId_;
};

} // namespace ArpSuppression
