#include "Platform/Base/Strep.h"

#include <gtest/gtest.h>

namespace {

using namespace Vela;
using namespace std::string_literals;

TEST(StrepTest, QuotedFormEscapesWhatIsNotPlain) {
    EXPECT_EQ(quotedForm(""), "''");
    EXPECT_EQ(quotedForm("Vlan10 ~\"{}"), "'Vlan10 ~\"{}'");
    EXPECT_EQ(quotedForm("a'b\\c\nd"), R"('a\'b\\c\nd')");
    EXPECT_EQ(quotedForm("\t\r\x1f\x7f\0"s), R"('\x09\x0d\x1f\x7f\x00')");
    EXPECT_EQ(quotedForm("\xc3\xa4\xff"), R"('\xc3\xa4\xff')");
}

TEST(StrepTest, BoolForm) {
    EXPECT_EQ(boolForm(true), "True");
    EXPECT_EQ(boolForm(false), "False");
}

TEST(StrepTest, ValueFormHasExactBlanks) {
    EXPECT_EQ(valueForm("ArpSuppression::VlanIdMacAddress",
                        {{"vlanId", "10"}, {"macAddress", quotedForm("02:00:00:00:00:0a")}}),
              "Value('ArpSuppression::VlanIdMacAddress', ** "
              "{'vlanId': 10, 'macAddress': '02:00:00:00:00:0a'})");
    EXPECT_EQ(valueForm("T", {{"a", "1"}}), "Value('T', ** {'a': 1})");
    EXPECT_EQ(valueForm("T", {}), "Value('T', ** {})");
}

} // namespace
