#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace Vela {

// Values have two text forms: toStrep(), compact, for traces and dumps; and valueToStrep(), the
// value form, which operator<< writes and ValueParser reads back. Here are the pieces that value
// forms are put together from, besides numbers, which are plain decimal.

/// True for a byte that is written as itself inside quotes: printable ASCII but quote and
/// backslash.
constexpr bool standsForItself(char c) {
    return c >= ' ' && c <= '~' && c != '\'' && c != '\\';
}

/// 'bytes' in single quotes, with \\, \', \n and, for every other byte that does not stand for
/// itself, \xNN in lower case. Each string has exactly one such form.
std::string quotedForm(std::string_view bytes);

/// True or False.
std::string boolForm(bool value);

/// One field of a value: its name, and its text already in value form.
struct ValueField {
    std::string_view name;
    std::string_view text;
};

/// Value('Bridging::VlanTag', ** {'tpid': 33024, 'vlanId': 10})
std::string valueForm(std::string_view type, std::initializer_list<ValueField> fields);

} // namespace Vela
