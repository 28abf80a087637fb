#include "ArpSuppression/LocalBinding.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Base/Errors.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/SwiftlogType.h"

#include <utility>

namespace ArpSuppression {

namespace {

// What a hundred thousand exist of.
static_assert(sizeof(LocalBinding) == 56);
static_assert(sizeof(LocalMacToIp) == 40);

struct BindingRecord {
    Vela::SwiftlogText<7> change;
    Vela::SwiftlogText<100> vrfName;
    Zinc::IpGenAddr ipAddress;
    uint16_t vlanId;
    Zinc::EthAddr macAddress;
};
const Vela::SwiftlogType<BindingRecord> bindingRecord{
    "ArpSuppression/LocalBinding",
    "localBinding",
    5,
    {{"change=", &BindingRecord::change},
     {" vrfName=", &BindingRecord::vrfName},
     {" ipAddress=", &BindingRecord::ipAddress},
     {" vlanId=", &BindingRecord::vlanId},
     {" macAddress=", &BindingRecord::macAddress}}};

/// A binding that moves is deleted and created.
void record(const char* change, const LocalBinding& binding) {
    const VrfIpAddress& address = binding.vrfIpAddress();
    const VlanIdMacAddress& host = binding.vlanIdMacAddress();
    bindingRecord.write({change, address.vrfInfo() ? address.vrfInfo()->vrfName() : "",
                         address.ipAddress(), host.vlanId().value(), host.macAddress()});
}

} // namespace

// LocalBinding

std::string LocalBinding::toStrep() const {
    return "<" + vrfIpAddress_.toStrep() + ";" + vlanIdMacAddress_.toStrep() +
           ";dynSt=" + (arpStatusHasDynamicEntry_ ? "yes" : "no") + " >";
}

void LocalBinding::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "LocalBinding %s\n", toStrep().c_str());
}

// LocalMacToIp

Vela::Ptr<LocalBinding> LocalMacToIp::binding(const VrfIpAddress& vrfIpAddress) const {
    if (first_ && first_->vrfIpAddress() == vrfIpAddress) {
        return first_;
    }
    Vela::Ptr<LocalBinding>* found = further_ ? further_->find(vrfIpAddress) : nullptr;
    return found ? *found : nullptr;
}

void LocalMacToIp::bindingIs(const Vela::Ptr<LocalBinding>& binding) {
    Vela::Ptr<LocalBinding> added = binding;
    bindingDel(added->vrfIpAddress());
    if (!first_) {
        first_ = added;
        return;
    }
    if (!further_) {
        further_ = std::make_unique<Table>();
    }
    further_->findOrInsert(added->vrfIpAddress(), [&] { return added; });
}

Vela::Ptr<LocalBinding> LocalMacToIp::bindingDel(const VrfIpAddress& vrfIpAddress) {
    if (first_ && first_->vrfIpAddress() == vrfIpAddress) {
        return std::exchange(first_, nullptr);
    }
    return further_ ? further_->erase(vrfIpAddress).value_or(nullptr) : nullptr;
}

void LocalMacToIp::bindingDelAll() {
    eachBinding(
        [this](const Vela::Ptr<LocalBinding>& binding) { bindingDel(binding->vrfIpAddress()); });
}

void LocalMacToIp::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "LocalMacToIp %s\n", toStrep().c_str());
}

// LocalBindingRecord

/// The VRF is referenced before anything is removed: its count never passes through zero where a
/// binding is replaced.
Vela::Ptr<LocalBinding>
LocalBindingRecord::createLocalBinding(const VrfIpAddress& vrfIpAddress,
                                       const VlanIdMacAddress& vlanIdMacAddress) {
    // Either may stand in the binding that is replaced.
    const VrfIpAddress address = vrfIpAddress;
    const VlanIdMacAddress host = vlanIdMacAddress;
    referenceVrf(address.vrfInfo());
    Vela::Ptr<LocalBinding> existingBinding = binding(address);
    TRACE(trace, 8, this,
          "vrfIpAddress=" << address << " vlanIdMacAddress=" << host
                          << " existingBinding=" << existingBinding);
    if (existingBinding) {
        deleteLocalBinding(existingBinding);
    }
    Vela::Ptr<LocalBinding> created = bindingIs(address, host);
    record("created", *created);
    macToIpIs(host)->bindingIs(created);
    return created;
}

void LocalBindingRecord::deleteLocalBinding(const Vela::Ptr<LocalBinding>& binding) {
    TRACE(trace, 8, this, "binding=" << binding);
    const Vela::Ptr<LocalBinding> given = binding; // the caller's may stand in what changes
    const VrfIpAddress& vrfIpAddress = given->vrfIpAddress();
    Vela::Ptr<LocalBinding> deleted = bindingDel(vrfIpAddress);
    Vela::assertThat(deleted == given, "deletedBinding == _binding");
    record("deleted", *given);
    Vela::Ptr<LocalMacToIp> macToIp = macToIp_.value(given->vlanIdMacAddress());
    Vela::assertThat(nullptr != macToIp, "nullptr != _macToIp");
    deleted = macToIp->bindingDel(vrfIpAddress);
    Vela::assertThat(deleted == given, "deletedBinding == _binding");
    if (macToIp->bindings() == 0) {
        macToIpDel(macToIp->vlanIdMacAddress());
    }
    releaseVrf(vrfIpAddress.vrfInfo());
}

Vela::Ptr<LocalBinding> LocalBindingRecord::bindingIs(const VrfIpAddress& vrfIpAddress,
                                                      const VlanIdMacAddress& vlanIdMacAddress) {
    auto found = binding_.findOrAdd(
        vrfIpAddress, [&] { return Vela::make<LocalBinding>(vrfIpAddress, vlanIdMacAddress); });
    if (found->vlanIdMacAddress() != vlanIdMacAddress) {
        throw Vela::EntryExistsError("binding " + found->toStrep() +
                                     " exists with another vlanIdMacAddress than " +
                                     vlanIdMacAddress.toStrep());
    }
    return found;
}

Vela::Ptr<LocalBinding> LocalBindingRecord::bindingDel(const VrfIpAddress& vrfIpAddress) {
    Vela::Ptr<LocalBinding> removed = binding_.del(vrfIpAddress).value_or(nullptr);
    if (removed) {
        removed->destroy();
    }
    return removed;
}

void LocalBindingRecord::bindingDelAll() {
    binding_.delAll([](const auto& binding) { binding->destroy(); });
}

Vela::Ptr<LocalMacToIp> LocalBindingRecord::macToIpIs(const VlanIdMacAddress& vlanIdMacAddress) {
    return macToIp_.findOrAdd(vlanIdMacAddress,
                              [&] { return Vela::make<LocalMacToIp>(vlanIdMacAddress); });
}

Vela::Ptr<LocalMacToIp> LocalBindingRecord::macToIpDel(const VlanIdMacAddress& vlanIdMacAddress) {
    Vela::Ptr<LocalMacToIp> removed = macToIp_.del(vlanIdMacAddress).value_or(nullptr);
    if (removed) {
        removed->destroy();
    }
    return removed;
}

void LocalBindingRecord::macToIpDelAll() {
    macToIp_.delAll([](const auto& macToIp) { macToIp->destroy(); });
}

void LocalBindingRecord::handleDestroy() noexcept {
    bindingDelAll();
    macToIpDelAll();
    VrfUseTracker::handleDestroy();
}

void LocalBindingRecord::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "LocalBindingRecord\n");
    indent += 4;
    context.print(indent, "binding #%zu\n", bindings());
    for (auto binding = binding_.first(); binding; ++binding) {
        binding.value()->dumpState(context, indent + 4);
    }
    context.print(indent, "macToIp #%zu\n", macToIps());
    for (auto macToIp = macToIp_.first(); macToIp; ++macToIp) {
        macToIp.value()->dumpState(context, indent + 4);
    }
    dumpVrfUseTrackerState(context, indent);
}

Vela::Ptr<LocalBindingRecord>
localBindingRecordFactory(Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus) {
    return Vela::make<LocalBindingRecord>(std::move(vlanL3InfoStatus));
}

} // namespace ArpSuppression
