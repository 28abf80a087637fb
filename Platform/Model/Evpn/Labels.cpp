#include "Platform/Model/Evpn/Labels.h"

#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"

namespace Evpn {

const char* toStrep(EncapType type) {
    switch (type) {
    case EncapType::vxlan:
        return "vxlan";
    case EncapType::mpls:
        return "mpls";
    case EncapType::none:
        break;
    }
    return "none";
}

namespace {

EncapType encapTypeFromValue(Vela::ValueParser& parser) {
    for (EncapType type : {EncapType::none, EncapType::vxlan, EncapType::mpls}) {
        if (parser.accept(Vela::quotedForm(toStrep(type)))) {
            return type;
        }
    }
    parser.fail("'none', 'vxlan' or 'mpls'", parser.offset());
}

} // namespace

ImetLabel ImetLabel::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Evpn::ImetLabel");
    parser.field("label");
    auto label = static_cast<uint32_t>(parser.number(maxMplsLabel));
    parser.field("encapsulation");
    auto encapsulation = encapTypeFromValue(parser);
    parser.closeValue();
    return {label, encapsulation};
}

std::string ImetLabel::toStrep() const {
    return "<label=" + std::to_string(label_) + " encapsulation=" + Evpn::toStrep(encapsulation_) +
           ">";
}

std::string ImetLabel::valueToStrep() const {
    return Vela::valueForm("Evpn::ImetLabel",
                           {{"label", std::to_string(label_)},
                            {"encapsulation", Vela::quotedForm(Evpn::toStrep(encapsulation_))}});
}

EsiLabel EsiLabel::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Evpn::EsiLabel");
    parser.field("mplsLabel");
    auto mplsLabel = static_cast<uint32_t>(parser.number(maxMplsLabel));
    parser.closeValue();
    return EsiLabel(mplsLabel);
}

std::string EsiLabel::toStrep() const {
    return "<mplsLabel=" + std::to_string(mplsLabel_) + ">";
}

std::string EsiLabel::valueToStrep() const {
    return Vela::valueForm("Evpn::EsiLabel", {{"mplsLabel", std::to_string(mplsLabel_)}});
}

} // namespace Evpn
