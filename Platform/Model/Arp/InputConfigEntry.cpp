#include "Platform/Model/Arp/InputConfigEntry.h"

#include "Platform/Base/Hash.h"
#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"

#include <type_traits>

namespace Arp {

static_assert(sizeof(InputConfigKey) == 24 && std::is_trivially_copyable_v<InputConfigKey>);
static_assert(sizeof(InputConfigEntry) == 10 && alignof(InputConfigEntry) == 1);
static_assert(std::is_trivially_copyable_v<InputConfigEntry>);

std::string toStrep(ArpSource source) {
    switch (source) {
    case ArpSource::kernel:
        return "kernel";
    case ArpSource::arpSuppression:
        return "arpSuppression";
    }
    return std::to_string(static_cast<unsigned>(source));
}

const char* ArpType::toStrep(ArpTypeId type) {
    return type == ArpTypeId::dynamic ? "dynamic" : "permanent";
}

const char* toStrep(QuickRefresh refresh) {
    return refresh == QuickRefresh::immediate ? "immediate" : "none";
}

InputConfigKey InputConfigKey::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Arp::InputConfigKey");
    parser.field("ipAddress");
    auto ipAddress = Zinc::IpGenAddr::fromValue(parser);
    parser.field("intfId");
    auto intfId = Zinc::IntfId::fromValue(parser);
    parser.closeValue();
    return {ipAddress, intfId};
}

uint64_t InputConfigKey::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(ipAddress_.hash(seed));
    hash.mix(intfId_.hash(seed));
    return hash.result();
}

std::string InputConfigKey::toStrep() const {
    return "<ipAddress=" + ipAddress_.toStrep() + " intfId=" + intfId_.toStrep() + ">";
}

std::string InputConfigKey::valueToStrep() const {
    return Vela::valueForm("Arp::InputConfigKey", {{"ipAddress", ipAddress_.valueToStrep()},
                                                   {"intfId", intfId_.valueToStrep()}});
}

namespace {

ArpType::ArpTypeId arpTypeFromValue(Vela::ValueParser& parser) {
    if (parser.accept("'permanent'")) {
        return ArpType::ArpTypeId::permanent;
    }
    parser.expect("'dynamic'");
    return ArpType::ArpTypeId::dynamic;
}

QuickRefresh quickRefreshFromValue(Vela::ValueParser& parser) {
    if (parser.accept("'none'")) {
        return QuickRefresh::none;
    }
    parser.expect("'immediate'");
    return QuickRefresh::immediate;
}

} // namespace

InputConfigEntry InputConfigEntry::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Arp::InputConfigEntry");
    parser.field("macAddress");
    auto macAddress = Zinc::EthAddr::fromValue(parser);
    parser.field("type");
    auto type = arpTypeFromValue(parser);
    parser.field("source");
    auto source = static_cast<ArpSource>(parser.number(255));
    parser.field("quickRefresh");
    auto quickRefresh = quickRefreshFromValue(parser);
    parser.closeValue();
    return {macAddress, type, source, quickRefresh};
}

std::string InputConfigEntry::toStrep() const {
    return "<macAddress=" + macAddress_.toStrep() + " type=" + ArpType::toStrep(type_) +
           " source=" + Arp::toStrep(source_) + " quickRefresh=" + Arp::toStrep(quickRefresh_) +
           ">";
}

std::string InputConfigEntry::valueToStrep() const {
    return Vela::valueForm("Arp::InputConfigEntry",
                           {{"macAddress", macAddress_.valueToStrep()},
                            {"type", Vela::quotedForm(ArpType::toStrep(type_))},
                            {"source", std::to_string(static_cast<unsigned>(source_))},
                            {"quickRefresh", Vela::quotedForm(Arp::toStrep(quickRefresh_))}});
}

} // namespace Arp
