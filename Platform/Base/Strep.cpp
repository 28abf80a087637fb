#include "Platform/Base/Strep.h"

namespace Vela {

std::string quotedForm(std::string_view bytes) {
    constexpr char hexDigits[] = "0123456789abcdef";
    std::string form = "'";
    for (char c : bytes) {
        if (standsForItself(c)) {
            form += c;
        } else if (c == '\\' || c == '\'') {
            form += {'\\', c};
        } else if (c == '\n') {
            form += "\\n";
        } else {
            auto byte = static_cast<unsigned char>(c);
            form += {'\\', 'x', hexDigits[byte >> 4], hexDigits[byte & 0xf]};
        }
    }
    form += '\'';
    return form;
}

std::string boolForm(bool value) {
    return value ? "True" : "False";
}

std::string valueForm(std::string_view type, std::initializer_list<ValueField> fields) {
    std::string form = "Value(" + quotedForm(type) + ", ** {";
    bool first = true;
    for (const ValueField& field : fields) {
        if (!first) {
            form += ", ";
        }
        first = false;
        form += quotedForm(field.name);
        form += ": ";
        form += field.text;
    }
    form += "})";
    return form;
}

} // namespace Vela
