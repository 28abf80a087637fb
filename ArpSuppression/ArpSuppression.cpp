#include "ArpSuppression/ArpSuppression.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Base/Hash.h"
#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"
#include "Platform/State/DumpContext.h"

#include <bit>

namespace ArpSuppression {

// VrfInfo

void VrfInfo::formatDerivedType(std::ostream& out) const {
    out << vrfName();
}

std::string VrfInfo::toStrep() const {
    return "<vrfName=" + vrfName() + " vrfId=" + vrfId().toStrep() + ">";
}

const char* VrfInfo::missing() const {
    return netNs_.empty() ? "no netNs" : netlinkSocket_ == 0 ? "no netlinkSocket" : nullptr;
}

bool VrfInfo::usable() const {
    const char* reason = missing();
    if (reason) {
        TRACE(trace, 8, this, reason);
    }
    return !reason;
}

void VrfInfo::userIs(const Vela::Ptr<VrfUser>& user, bool flag) {
    if (!destroyed()) {
        user_.set(user, flag);
    }
}

void VrfInfo::interfaceWatchIs(const Vela::Ptr<VrfInterfaceWatch>& watch) {
    if (!destroyed()) {
        interfaceWatch_.set(watch->kniIntfName(), watch);
    }
}

void VrfInfo::handleDestroy() noexcept {
    userDelAll();
    interfaceWatchDelAll();
}

void VrfInfo::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "VrfInfo %s usable=%s #user=%zu #interfaceWatch=%zu:\n",
                  toStrep().c_str(), missing() ? "false" : "true", user_.count(),
                  interfaceWatch_.count());
    for (auto watch = interfaceWatch_.first(); watch; ++watch) {
        context.print(indent + 2, "%s\n", watch.value()->toStrep().c_str());
    }
}

// VrfUser and its kinds

void VrfUser::formatDerivedType(std::ostream& out) const {
    out << vrfName();
}

void VrfUser::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s\n", typeName());
    context.print(indent + 2, "vrfInfo=%s\n", Vela::toStrep(vrfInfo_).c_str());
}

VrfInterfaceWatch::VrfInterfaceWatch(Vela::Ptr<VrfInfo> vrfInfo, std::string intfName)
    : VrfUser(std::move(vrfInfo)), intfName_(std::move(intfName)), kniIntfName_(intfName_) {}

void VrfInterfaceWatch::formatDerivedType(std::ostream& out) const {
    out << vrfName() << ' ' << intfName_;
}

void VrfInterfaceWatch::dumpState(Vela::DumpContext& context, int indent) const {
    VrfUser::dumpState(context, indent);
    context.print(indent + 2, "intfName=%s\n", intfName_.c_str());
    context.print(indent + 2, "kniIntfName=%s\n", kniIntfName_.c_str());
    context.print(indent + 2, "kniIntfIfIndex=%u\n", kniIntfIfIndex());
}

bool VrfInterfaceWatch::usable() const {
    return vrfInfo() && vrfInfo()->usable() && kniIntfIfIndex() != 0;
}

std::string VrfInterfaceWatch::toStrep() const {
    // Not usable(): a text form does not trace.
    bool isUsable = vrfInfo() && !vrfInfo()->missing() && kniIntfIfIndex() != 0;
    return "<vrfName=" + vrfName() + " intfName=" + intfName_ +
           " usable=" + (isUsable ? "yes" : "no") + ">";
}

VlanL3Info::VlanL3Info(Vela::Ptr<VrfInfo> vrfInfo, Bridging::VlanId vlanId)
    : VrfInterfaceWatch(std::move(vrfInfo), constructIntfNameFromVlanId(vlanId)), vlanId_(vlanId),
      vlanIntfId_(intfName()) {}

std::string VlanL3Info::constructIntfNameFromVlanId(Bridging::VlanId vlanId) {
    return "Vlan" + std::to_string(vlanId.value());
}

void VlanL3Info::formatDerivedType(std::ostream& out) const {
    out << vrfName() << ' ' << intfName();
}

void VlanL3Info::dumpState(Vela::DumpContext& context, int indent) const {
    VrfInterfaceWatch::dumpState(context, indent);
    context.print(indent + 2, "vlanId=%s\n", vlanId_.toStrep().c_str());
    context.print(indent + 2, "vlanIntfId=%s\n", vlanIntfId_.toStrep().c_str());
    context.print(indent + 2, "ipAddress #%zu\n", ipAddress_.count());
    for (auto address = ipAddress_.first(); address; ++address) {
        context.print(indent + 4, "%s %s\n", address.key().toStrep().c_str(),
                      address.value() ? "yes" : "no");
    }
}

std::string VlanL3Info::toStrep() const {
    return "<vrfName=" + vrfName() + " vlanId=" + vlanId_.toStrep() + ">";
}

// VlanL3InfoStatus

Vela::Ptr<VlanL3Info> VlanL3InfoStatus::vlanL3InfoIs(const Vela::Ptr<VrfInfo>& vrfInfo,
                                                     Bridging::VlanId vlanId) {
    auto vlanL3Info =
        vlanL3Info_.findOrAdd(vlanId, [&] { return Vela::make<VlanL3Info>(vrfInfo, vlanId); });
    if (vlanL3Info->vrfInfo() != vrfInfo) {
        throw Vela::EntryExistsError("vlanL3Info " + vlanL3Info->toStrep() +
                                     " exists with another vrfInfo than " + toStrep(vrfInfo));
    }
    return vlanL3Info;
}

void VlanL3InfoStatus::vlanL3InfoDel(Bridging::VlanId vlanId) {
    if (auto removed = vlanL3Info_.del(vlanId)) {
        (*removed)->destroy();
    }
}

void VlanL3InfoStatus::vlanL3InfoDelAll() {
    vlanL3Info_.delAll([](const auto& vlanL3Info) { vlanL3Info->destroy(); });
}

Vela::Ptr<const VlanL3Info> VlanL3InfoStatus::usableVlanL3Info(Bridging::VlanId vlanId) const {
    Vela::Ptr<const VlanL3Info> found = vlanL3Info(vlanId);
    if (found && !found->usable()) {
        TRACE(trace, 8, this, "not usable vlanL3Info=" << found);
        return nullptr;
    }
    return found;
}

Vela::Ptr<VlanL3Info> VlanL3InfoStatus::usableVlanL3InfoNonConst(Bridging::VlanId vlanId) {
    return boost::const_pointer_cast<VlanL3Info>(usableVlanL3Info(vlanId));
}

Vela::Ptr<VrfInfo> VlanL3InfoStatus::vrfInfoIs(const L3::VrfName& vrfName) {
    auto vrfInfo = vrfInfo_.findOrAdd(vrfName, [&] { return Vela::make<VrfInfo>(vrfName); });
    vrfInfo->awaitsWatch_ = true;
    return vrfInfo;
}

void VlanL3InfoStatus::vrfInfoDelAll() {
    vrfInfo_.delAll([](const auto& vrfInfo) { vrfInfo->destroy(); });
}

void VlanL3InfoStatus::removeIfUnused(const Vela::Ptr<VrfInfo>& vrfInfo) {
    bool used = vrfInfo->user_.count() > 0 || vrfInfo->interfaceWatch_.count() > 0;
    if (used || vrfInfo->awaitsWatch_ || vrfInfo->arrivingWatches_ > 0 ||
        this->vrfInfo(vrfInfo->vrfName()) != vrfInfo) {
        return;
    }
    Vela::Ptr<VrfInfo> unused = vrfInfo;
    vrfInfo_.del(unused->vrfName());
    unused->destroy();
}

void VlanL3InfoStatus::addVrfUser(const Vela::Ptr<VrfUser>& user) {
    Vela::assertThat(user->vrfInfo() != nullptr, "__null != vrfInfo");
    user->vrfInfo()->userIs(user, true);
}

void VlanL3InfoStatus::delVrfUser(const Vela::Ptr<VrfUser>& user) {
    Vela::assertThat(user->vrfInfo() != nullptr, "__null != vrfInfo");
    Vela::Ptr<VlanL3InfoStatus> keep(this); // a reaction may drop the last reference
    Vela::Ptr<VrfInfo> vrfInfo = user->vrfInfo();
    vrfInfo->userDel(user);
    removeIfUnused(vrfInfo);
}

void VlanL3InfoStatus::addVrfInterfaceWatch(const Vela::Ptr<VrfInterfaceWatch>& watch) {
    Vela::assertThat(nullptr == vrfInterfaceWatch(watch->intfName()),
                     "nullptr == vrfInterfaceWatch( watch->intfName() )");
    Vela::assertThat(watch->vrfInfo() != nullptr, "__null != vrfInfo");
    Vela::Ptr<VlanL3InfoStatus> keep(this);
    Vela::Ptr<VrfInterfaceWatch> added = watch;
    added->vrfInfo()->awaitsWatch_ = false; // unless a reaction asks for the VRF again
    ++added->vrfInfo()->arrivingWatches_;
    vrfInterfaceWatch_.set(added->intfName(), added);
    --added->vrfInfo()->arrivingWatches_;
    updateVrfOf(added);
}

void VlanL3InfoStatus::delVrfInterfaceWatch(const Vela::Ptr<VrfInterfaceWatch>& watch) {
    Vela::assertThat(watch == vrfInterfaceWatch(watch->intfName()),
                     "watch == vrfInterfaceWatch( watch->intfName() )");
    Vela::Ptr<VlanL3InfoStatus> keep(this);
    Vela::Ptr<VrfInterfaceWatch> removed = watch;
    vrfInterfaceWatch_.del(removed->intfName());
    updateVrfOf(removed);
}

// Follows what is registered now: reactions may have undone what led here.
void VlanL3InfoStatus::updateVrfOf(const Vela::Ptr<VrfInterfaceWatch>& watch) {
    const Vela::Ptr<VrfInfo>& vrfInfo = watch->vrfInfo();
    if (vrfInterfaceWatch(watch->intfName()) == watch) {
        vrfInfo->interfaceWatchIs(watch);
    } else if (vrfInfo->interfaceWatch_.value(watch->kniIntfName()) == watch) {
        vrfInfo->interfaceWatchDel(watch->kniIntfName());
    }
    removeIfUnused(vrfInfo);
}

void VlanL3InfoStatus::vrfInterfaceWatchDelAll() {
    Vela::Ptr<VlanL3InfoStatus> keep(this);
    for (auto watch = vrfInterfaceWatch_.first(); watch; ++watch) {
        delVrfInterfaceWatch(watch.value());
    }
}

Vela::Ptr<VrfInterfaceWatch>
VlanL3InfoStatus::findOrCreateVrfInterfaceWatch(const std::string& intfName,
                                                const L3::VrfName& vrfName) {
    Vela::Ptr<VrfInterfaceWatch> watch = vrfInterfaceWatch(intfName);
    if (!watch) {
        watch = Vela::make<VrfInterfaceWatch>(vrfInfoIs(vrfName), intfName);
        addVrfInterfaceWatch(watch);
    }
    Vela::assertThat(watch->vrfInfo()->vrfName() == vrfName.bytes(),
                     "watch->vrfInfo()->vrfName() == vrfName");
    return watch;
}

void VlanL3InfoStatus::vlanUpdated(const Vela::Ptr<const VlanL3Info>& vlanL3Info) {
    Vela::Ptr<VlanL3InfoStatus> keep(this);
    Bridging::VlanId vlanId = vlanL3Info->vlanId(); // a reaction may drop the record
    updatedVlanIdIs(Bridging::VlanIdOrNone());
    updatedVlanIdIs(vlanId);
}

VlanL3InfoStatus::~VlanL3InfoStatus() {
    // What was registered after the end of the status.
    vrfInfoDelAll();
}

void VlanL3InfoStatus::handleDestroy() noexcept {
    vrfInterfaceWatchDelAll();
    vlanL3InfoDelAll();
    vrfInfoDelAll();
}

void VlanL3InfoStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "VlanL3InfoStatus\n");
    context.print(indent + 2, "VlanL3Info #%zu\n", vlanL3Info_.count());
    for (auto vlanL3Info = vlanL3Info_.first(); vlanL3Info; ++vlanL3Info) {
        context.print(indent + 4, "%s\n", vlanL3Info.value()->toStrep().c_str());
    }
    context.print(indent + 2, "VrfInfo #%zu\n", vrfInfo_.count());
    for (auto vrfInfo = vrfInfo_.first(); vrfInfo; ++vrfInfo) {
        context.child(indent + 4, "vrfInfo", vrfInfo.value().get());
    }
}

// EnabledVlans and SubInterfaceInfo

void EnabledVlans::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "EnabledVlans #%zu\n", vlanIds());
    for (auto vlanId = vlanId_.first(); vlanId; ++vlanId) {
        context.print(indent + 2, "%d\n", vlanId.key().value());
    }
}

void SubInterfaceInfo::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "SubInterfaceInfo\n");
    context.print(indent + 2, "subIntfId=%s\n", subIntfId_.toStrep().c_str());
    context.print(indent + 2, "numVlanMatched=%u\n", numVlanMatched_);
}

Vela::Ptr<SubInterfaceInfo> SubInterfaceInfoIs(Zinc::IntfId subIntfId, uint8_t numVlanMatched) {
    return Vela::make<SubInterfaceInfo>(subIntfId, numVlanMatched);
}

// VrfIpAddress

VrfIpAddress::VrfIpAddress(std::string_view valueForm)
    : VrfIpAddress(Vela::parseValue<VrfIpAddress>(valueForm)) {}

VrfIpAddress VrfIpAddress::fromValue(Vela::ValueParser& parser) {
    VrfIpAddress v;
    parser.openValue("ArpSuppression::VrfIpAddress");
    parser.field("vrfInfo");
    v.vrfInfo_ = boost::static_pointer_cast<VrfInfo>(parseObjectReference(parser, "VrfInfo"));
    parser.field("ipAddress");
    v.ipAddress_ = Zinc::IpGenAddr::fromValue(parser);
    parser.field("intfId");
    v.intfId_ = Zinc::IntfId::fromValue(parser);
    parser.closeValue();
    return v;
}

VrfIpAddress VrfIpAddress::fromVlanL3Info(const Vela::Ptr<const VlanL3Info>& vlanL3Info,
                                          const Zinc::IpGenAddr& ipAddress) {
    if (!vlanL3Info) {
        return VrfIpAddress(nullptr, ipAddress);
    }
    return VrfIpAddress(vlanL3Info->vrfInfo(), ipAddress,
                        ipAddress.isLinkLocal() ? vlanL3Info->vlanIntfId() : Zinc::IntfId());
}

VrfIpAddress VrfIpAddress::fromArpKey(const VlanL3InfoStatus& vlanL3InfoStatus,
                                      const Arp::Table::ArpKey& arpKey) {
    if (!arpKey.intfId().isVlanIntf()) {
        return {};
    }
    Bridging::VlanId vlanId(arpKey.intfId().vlanNumber());
    Vela::Ptr<VlanL3Info> vlanL3Info = vlanL3InfoStatus.vlanL3Info(vlanId);
    return vlanL3Info ? fromVlanL3Info(vlanL3Info, arpKey.addr()) : VrfIpAddress();
}

std::strong_ordering operator<=>(const VrfIpAddress& a, const VrfIpAddress& b) {
    if (a.vrfInfo_ != b.vrfInfo_) {
        return std::compare_three_way()(a.vrfInfo_.get(), b.vrfInfo_.get());
    }
    auto byAddress = a.ipAddress_ <=> b.ipAddress_;
    return byAddress != 0 ? byAddress : a.intfId_ <=> b.intfId_;
}

uint64_t VrfIpAddress::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(std::bit_cast<uint64_t>(vrfInfo_.get()));
    hash.mix(ipAddress_.hash(seed));
    hash.mix(intfId_.hash(seed));
    return hash.result();
}

std::string VrfIpAddress::toStrep() const {
    return "<" + Vela::toStrep(vrfInfo_) + ";" + ipAddress_.toStrep() + ";" + intfId_.shortName() +
           ">";
}

std::string VrfIpAddress::valueToStrep() const {
    return Vela::valueForm("ArpSuppression::VrfIpAddress",
                           {{"vrfInfo", Vela::objectReference(vrfInfo_.get())},
                            {"ipAddress", ipAddress_.valueToStrep()},
                            {"intfId", intfId_.valueToStrep()}});
}

// VlanIdMacAddress

VlanIdMacAddress::VlanIdMacAddress(std::string_view valueForm)
    : VlanIdMacAddress(Vela::parseValue<VlanIdMacAddress>(valueForm)) {}

VlanIdMacAddress VlanIdMacAddress::fromValue(Vela::ValueParser& parser) {
    VlanIdMacAddress v;
    parser.openValue("ArpSuppression::VlanIdMacAddress");
    parser.field("vlanId");
    v.vlanId_ = Bridging::VlanId::fromValue(parser);
    parser.field("macAddress");
    v.macAddress_ = Zinc::EthAddr::fromValue(parser);
    parser.closeValue();
    return v;
}

uint64_t VlanIdMacAddress::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(vlanId_.hash(0));
    hash.mix(macAddress_.hash(seed));
    return hash.result();
}

std::string VlanIdMacAddress::toStrep() const {
    return "<vlanId=" + vlanId_.toStrep() + " macAddress=" + macAddress_.toStrep() + ">";
}

std::string VlanIdMacAddress::valueToStrep() const {
    return Vela::valueForm(
        "ArpSuppression::VlanIdMacAddress",
        {{"vlanId", vlanId_.valueToStrep()}, {"macAddress", macAddress_.valueToStrep()}});
}

// ArpInputConfigBookmark

ArpInputConfigBookmark::ArpInputConfigBookmark(std::string_view valueForm)
    : ArpInputConfigBookmark(Vela::parseValue<ArpInputConfigBookmark>(valueForm)) {}

ArpInputConfigBookmark ArpInputConfigBookmark::fromValue(Vela::ValueParser& parser) {
    ArpInputConfigBookmark v;
    parser.openValue("ArpSuppression::ArpInputConfigBookmark");
    parser.field("vrfName");
    v.vrfName_ = parser.quotedString();
    parser.field("ipAddress");
    v.ipAddress_ = Zinc::IpGenAddr::fromValue(parser);
    parser.field("intfId");
    v.intfId_ = Zinc::IntfId::fromValue(parser);
    parser.closeValue();
    return v;
}

uint64_t ArpInputConfigBookmark::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mixText(vrfName_);
    hash.mix(ipAddress_.hash(seed));
    hash.mix(intfId_.hash(seed));
    return hash.result();
}

std::string ArpInputConfigBookmark::toStrep() const {
    return "<vrfName=" + vrfName_ + " ipAddress=" + ipAddress_.toStrep() +
           " intfId=" + intfId_.toStrep() + ">";
}

std::string ArpInputConfigBookmark::valueToStrep() const {
    return Vela::valueForm("ArpSuppression::ArpInputConfigBookmark",
                           {{"vrfName", Vela::quotedForm(vrfName_)},
                            {"ipAddress", ipAddress_.valueToStrep()},
                            {"intfId", intfId_.valueToStrep()}});
}

} // namespace ArpSuppression
