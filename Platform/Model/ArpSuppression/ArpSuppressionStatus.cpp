#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"

#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

namespace ArpSuppression {

namespace {

constexpr size_t runnableOffset = 0;
constexpr uint16_t lastVlan = 4094;
constexpr uint8_t absent = 0;

constexpr uint8_t runnableByte(bool runnable) {
    return runnable ? 1 : 0;
}

constexpr uint8_t vlanByte(bool active) {
    return active ? 2 : 1;
}

} // namespace

ArpSuppressionStatus::ArpSuppressionStatus(std::span<uint8_t> image) : image_(image) {
    if (image_.empty()) {
        return;
    }
    Vela::assertThat(image_.size() == imageBytes, "image.size() == imageBytes");
    if (image_[runnableOffset] == runnableByte(true)) {
        runnable_.set(true);
    } else {
        image_[runnableOffset] = runnableByte(false);
    }
    for (uint16_t vlan = 1; vlan <= lastVlan; ++vlan) {
        uint8_t& kept = image_[vlan];
        if (kept == vlanByte(false) || kept == vlanByte(true)) {
            vlanId_.set(Bridging::VlanId(vlan), kept == vlanByte(true));
        } else {
            kept = absent;
        }
    }
}

void ArpSuppressionStatus::keep(size_t offset, uint8_t value) {
    if (!image_.empty()) {
        image_[offset] = value;
    }
}

void ArpSuppressionStatus::runnableIs(bool runnable) {
    keep(runnableOffset, runnableByte(runnable));
    runnable_.set(runnable);
}

void ArpSuppressionStatus::vlanIdIs(Bridging::VlanId vlanId, bool active) {
    keep(vlanId.value(), vlanByte(active));
    vlanId_.set(vlanId, active);
}

void ArpSuppressionStatus::vlanIdDel(Bridging::VlanId vlanId) {
    keep(vlanId.value(), absent);
    vlanId_.del(vlanId);
}

// One by one: the image follows each removal, and not a reaction's idea of what comes next.
void ArpSuppressionStatus::vlanIdDelAll() {
    Vela::Ptr<ArpSuppressionStatus> keepAlive(this); // a reaction may drop the last reference
    for (auto vlanId = vlanId_.first(); vlanId; ++vlanId) {
        vlanIdDel(vlanId.key());
    }
}

void ArpSuppressionStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "runnable=%s\n", runnable() ? "yes" : "no");
    context.print(indent + 2, "vlanId[] #%zu\n", vlanIds());
    for (auto vlanId = vlanId_.first(); vlanId; ++vlanId) {
        context.print(indent + 4, "%s -> %s\n", vlanId.key().toStrep().c_str(),
                      vlanId.value() ? "yes" : "no");
    }
}

} // namespace ArpSuppression
