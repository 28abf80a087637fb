#include "Platform/Model/Arp/InputConfig.h"

#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

#include <utility>

namespace Arp {

void InputConfigVrf::formatDerivedType(std::ostream& out) const {
    out << vrfName_;
}

const InputConfigVrf::EntryCollection&
InputConfigVrf::afEntryCollection(const InputConfigKey& key) const {
    Vela::assertThat(key.ipAddress().af() != Zinc::ipunknown(),
                     "key.ipAddress().af() != Zinc::ipunknown()");
    return key.ipAddress().af() == Zinc::ipv4() ? ipv4Entry_ : ipv6Entry_;
}

InputConfigVrf::EntryCollection& InputConfigVrf::afEntryCollection(const InputConfigKey& key) {
    return const_cast<EntryCollection&>(std::as_const(*this).afEntryCollection(key));
}

void InputConfigVrf::noteReplaced(const InputConfigKey& key) {
    const InputConfigEntry* before = afEntry(key);
    replaced_ = before ? std::optional(*before) : std::nullopt;
}

void InputConfigVrf::afEntryIs(const InputConfigKey& key, const InputConfigEntry& entry) {
    noteReplaced(key);
    afEntryCollection(key).set(key, entry);
}

void InputConfigVrf::afEntryDynamicIs(const InputConfigKey& key, const Zinc::EthAddr& macAddress,
                                      ArpSource source, QuickRefresh quickRefresh) {
    afEntryIs(key, {macAddress, ArpType::ArpTypeId::dynamic, source, quickRefresh});
}

void InputConfigVrf::afEntryPermanentIs(const InputConfigKey& key, const Zinc::EthAddr& macAddress,
                                        ArpSource source) {
    afEntryIs(key, {macAddress, ArpType::ArpTypeId::permanent, source});
}

const InputConfigEntry* InputConfigVrf::afEntry(const InputConfigKey& key) const {
    return afEntryCollection(key).find(key);
}

bool InputConfigVrf::afEntryDel(const InputConfigKey& key) {
    noteReplaced(key);
    return afEntryCollection(key).del(key).has_value();
}

void InputConfigVrf::handleDestroy() noexcept {
    for (const EntryCollection* entries : {&ipv4Entry_, &ipv6Entry_}) {
        for (auto entry = entries->first(); entry; ++entry) {
            afEntryDel(entry.key());
        }
    }
}

void InputConfigVrf::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), vrfName_.bytes().c_str());
    context.print(indent + 2, "ipv4Entry[] #%zu\n", ipv4Entries());
    context.print(indent + 2, "ipv6Entry[] #%zu\n", ipv6Entries());
}

Vela::Ptr<InputConfigVrf> InputConfig::vrfIs(const L3::VrfName& vrfName) {
    return vrf_.findOrAdd(vrfName, [&] { return Vela::make<InputConfigVrf>(vrfName); });
}

void InputConfig::vrfDel(const L3::VrfName& vrfName) {
    if (auto removed = vrf_.del(vrfName)) {
        (*removed)->destroy();
    }
}

void InputConfig::vrfDelAll() {
    vrf_.delAll([](const auto& vrf) { vrf->destroy(); });
}

void InputConfig::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "initialized=%s\n", initialized() ? "yes" : "no");
    context.print(indent + 2, "source=%s\n", toStrep(source()).c_str());
    context.print(indent + 2, "vrf[] #%zu\n", vrfs());
    for (auto vrf = vrf_.first(); vrf; ++vrf) {
        context.child(indent + 4, "vrf", vrf.value().get());
    }
}

} // namespace Arp
