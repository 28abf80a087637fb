// Reads arbitrary text as every value type and through the parser's single operations. Whatever is
// read must print as the text it was read from.
//
// An input without a line feed is a value form and is tried as each type. One with a line feed is a
// list of operations, a letter each, and below it the text that they read.

#include "ArpSuppression/ArpSuppression.h"
#include "Platform/Base/Assert.h"
#include "Platform/Base/Errors.h"
#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"
#include "Platform/Model/Arp/ArpKey.h"
#include "Platform/Model/Arp/InputConfigEntry.h"
#include "Platform/Model/Brant/IntfEncap.h"
#include "Platform/Model/Bridging/Fid.h"
#include "Platform/Model/Evpn/Labels.h"
#include "Platform/Model/Interface/DeviceIntfStatus.h"
#include "Platform/Model/Ip/AddrWithMask.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/RemoteBindingKey.h"
#include "Platform/Value/VlanId.h"
#include "Platform/Value/VlanTag.h"
#include "Platform/Value/VrfId.h"

#include <limits>
#include <string>
#include <string_view>

namespace {

using Vela::assertThat;

/// An error must stay short and printable, whatever the input was.
void checkError(const Vela::ParseError& error) {
    std::string_view text = error.what();
    assertThat(text.size() < 300, "text.size() < 300");
    for (char c : text) {
        assertThat(c >= ' ' && c <= '~', "c >= ' ' && c <= '~'");
    }
}

template <class T>
void readAs(std::string_view text) {
    try {
        T value = Vela::parseValue<T>(text);
        assertThat(value.valueToStrep() == text, "value.valueToStrep() == text");
        assertThat(Vela::parseValue<T>(text) == value, "Vela::parseValue<T>(text) == value");
        assertThat(value.toStrep().size() <= text.size(), "value.toStrep().size() <= text.size()");
    } catch (const Vela::ParseError& error) {
        checkError(error);
    } catch (const Vela::RangeError& error) {
        // Interface names are kept for ever, so a long run uses them up.
        assertThat(error.what() == std::string_view("Zinc::IntfId::names > 65536 not allowed"),
                   error.what());
    }
}

/// Every value type stands here.
constexpr void (*valueTypes[])(std::string_view) = {
    readAs<Bridging::VlanId>,
    readAs<Bridging::VlanIdOrNone>,
    readAs<Bridging::VlanTag>,
    readAs<Vrf::VrfId>,
    readAs<Zinc::EthAddr>,
    readAs<Zinc::IpGenAddr>,
    readAs<Zinc::IntfId>,
    readAs<ArpSuppression::RemoteBindingKey>,
    readAs<Arp::Table::ArpKey>,
    readAs<Arp::InputConfigKey>,
    readAs<Arp::InputConfigEntry>,
    readAs<Brant::IntfEncap>,
    readAs<Bridging::Fid>,
    readAs<Evpn::EsiLabel>,
    readAs<Evpn::ImetLabel>,
    readAs<Interface::DeviceIntfStatus>,
    readAs<Ip::AddrWithMask>,
    readAs<ArpSuppression::VrfIpAddress>,
    readAs<ArpSuppression::VlanIdMacAddress>,
    readAs<ArpSuppression::ArpInputConfigBookmark>,
};

/// Performs one operation and returns the text of what it read. `firstField` follows the parser:
/// whether the next field is the first of its value.
std::string perform(char operation, Vela::ValueParser& parser, bool& firstField) {
    switch (operation) {
    case 's':
        return Vela::quotedForm(parser.quotedString());
    case 'n':
        return std::to_string(parser.number(std::numeric_limits<uint64_t>::max()));
    case 'v':
        return std::to_string(parser.number(4094));
    case 'b':
        return Vela::boolForm(parser.boolean());
    case ',':
        parser.expect(", ");
        return ", ";
    case 'o':
        parser.openValue("T");
        firstField = true;
        return "Value('T', ** {";
    case 'f': {
        std::string separator = firstField ? "" : ", ";
        parser.field("f");
        firstField = false;
        return separator + "'f': ";
    }
    case 'c':
        parser.closeValue();
        firstField = false;
        return "})";
    default:
        return "";
    }
}

void readWith(std::string_view operations, std::string_view text) {
    Vela::ValueParser parser(text);
    std::string printed;
    bool firstField = true;
    try {
        for (char operation : operations) {
            printed += perform(operation, parser, firstField);
            assertThat(printed == text.substr(0, parser.offset()),
                       "printed == text.substr(0, parser.offset())");
        }
        parser.end();
        assertThat(printed == text, "printed == text");
    } catch (const Vela::ParseError& error) {
        checkError(error);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(data, data + size);
    const std::string_view input = bytes;
    if (size_t lineFeed = input.find('\n'); lineFeed != input.npos) {
        readWith(input.substr(0, lineFeed), input.substr(lineFeed + 1));
        return 0;
    }
    for (auto readAsType : valueTypes) {
        readAsType(input);
    }
    return 0;
}
