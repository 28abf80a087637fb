#pragma once

#include "Platform/Base/Errors.h"

#include <cstdint>
#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace Evpn {

/// The largest MPLS label: a label has 20 bits.
constexpr uint32_t maxMplsLabel = 0xfffff;

/// Text forms: none, vxlan, mpls.
enum class EncapType : uint8_t { none = 0, vxlan = 1, mpls = 2 };

const char* toStrep(EncapType type);
inline std::ostream& operator<<(std::ostream& out, EncapType type) {
    return out << toStrep(type);
}

/// The inclusive-multicast label of a VLAN, and in what it is to be carried. What has no label is
/// of type none. toStrep: <label=100 encapsulation=mpls>
/// Value form: Value('Evpn::ImetLabel', ** {'label': 100, 'encapsulation': 'mpls'})
class ImetLabel {
  public:
    constexpr ImetLabel() = default;
    constexpr ImetLabel(uint32_t label, EncapType encapsulation)
        : label_(label), encapsulation_(encapsulation) {
        if (label > maxMplsLabel) {
            throw Vela::RangeError("Evpn::ImetLabel::label > 1048575 not allowed");
        }
    }
    static ImetLabel fromValue(Vela::ValueParser& parser);

    constexpr uint32_t label() const { return label_; }
    constexpr EncapType encapsulation() const { return encapsulation_; }

    std::string toStrep() const;
    std::string valueToStrep() const;

    friend constexpr bool operator==(ImetLabel, ImetLabel) = default;
    friend std::ostream& operator<<(std::ostream& out, ImetLabel v) {
        return out << v.valueToStrep();
    }

  private:
    uint32_t label_ = 0;
    EncapType encapsulation_ = EncapType::none;
};

/// The label of an Ethernet segment that an interface of this switch belongs to.
/// toStrep: <mplsLabel=200>
/// Value form: Value('Evpn::EsiLabel', ** {'mplsLabel': 200})
class EsiLabel {
  public:
    constexpr EsiLabel() = default;
    explicit constexpr EsiLabel(uint32_t mplsLabel) : mplsLabel_(mplsLabel) {
        if (mplsLabel > maxMplsLabel) {
            throw Vela::RangeError("Evpn::EsiLabel::mplsLabel > 1048575 not allowed");
        }
    }
    static EsiLabel fromValue(Vela::ValueParser& parser);

    constexpr uint32_t mplsLabel() const { return mplsLabel_; }

    std::string toStrep() const;
    std::string valueToStrep() const;

    friend constexpr bool operator==(EsiLabel, EsiLabel) = default;
    friend std::ostream& operator<<(std::ostream& out, EsiLabel v) {
        return out << v.valueToStrep();
    }

  private:
    uint32_t mplsLabel_ = 0;
};

} // namespace Evpn
