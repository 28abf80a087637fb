#pragma once

#include "Platform/Base/Errors.h"
#include "Platform/Base/ValueParser.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string_view>

/// Expects that `value` has this value form, writes it to streams, and is read back from it.
template <class T>
void expectValueForm(const T& value, std::string_view form) {
    std::ostringstream out;
    out << value;
    EXPECT_EQ(value.valueToStrep(), form);
    EXPECT_EQ(out.str(), form);
    EXPECT_EQ(Vela::parseValue<T>(form), value);
}

/// Expects that none of the texts is read as a T.
template <class T>
void expectNoValueForm(std::initializer_list<std::string_view> texts) {
    for (std::string_view text : texts) {
        EXPECT_THROW(Vela::parseValue<T>(text), Vela::ParseError) << text;
    }
}

/// Expects that the values, given in ascending order, compare so, and that each has a hash of its
/// own, which the seed changes.
template <class T>
void expectOrderedAndHashed(std::initializer_list<T> values) {
    for (const T* a = values.begin(); a != values.end(); ++a) {
        EXPECT_NE(a->hash(1), a->hash(2));
        for (const T* b = values.begin(); b != values.end(); ++b) {
            EXPECT_EQ(*a <=> *b, a - b <=> 0) << *a << " " << *b;
            EXPECT_EQ(*a == *b, a == b) << *a << " " << *b;
            EXPECT_EQ(T(*a).hash(1) == b->hash(1), a == b) << *a << " " << *b;
        }
    }
}

/// Expects a range error with this text.
template <class Call>
void expectRangeError(Call call, std::string_view text) {
    try {
        call();
        ADD_FAILURE() << "no range error";
    } catch (const Vela::RangeError& e) {
        EXPECT_EQ(e.what(), text);
    }
}
