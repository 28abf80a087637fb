#include "Platform/Base/Errors.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace {

using namespace Vela;

// Reactions catch range errors alone, so no other error may pass for one.
TEST(ErrorsTest, RangeErrorIsNoOtherErrorAndNoOtherErrorIsOne) {
    EXPECT_FALSE((std::is_base_of_v<RangeError, ParseError>));
    EXPECT_FALSE((std::is_base_of_v<RangeError, EntryExistsError>));
    EXPECT_FALSE((std::is_base_of_v<ParseError, RangeError>));
    EXPECT_FALSE((std::is_base_of_v<std::runtime_error, EntryExistsError>));
}

TEST(ErrorsTest, KeepTheirText) {
    EXPECT_STREQ(RangeError("value > 1").what(), "value > 1");
    EXPECT_STREQ(ParseError("expected 1").what(), "expected 1");
    EXPECT_STREQ(EntryExistsError("entry").what(), "entry");
}

} // namespace
