#include "Ctl/CounterRules.h"

#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace Ctl {
namespace {

using ArpSuppression::ArpSuppressionCounterId;
using ArpSuppression::arpSuppressionCounters;

/// The rows of the page's tables that begin with a number.
std::vector<std::string> rows() {
    std::ifstream page(COUNTERS_PAGE);
    std::vector<std::string> rows;
    for (std::string line; std::getline(page, line);) {
        if (line.size() > 2 && line.starts_with("| ") && line[2] >= '0' && line[2] <= '9') {
            rows.push_back(line);
        }
    }
    return rows;
}

std::string rowOf(uint32_t number) {
    ArpSuppressionCounterId id{number};
    return "| " + std::to_string(number) + " | `" + toStrep(id) + "` | " + ruleOf(id) + " | ";
}

TEST(CounterRulesTest, ThePageHasEveryCounterWithItsNumberNameAndRuleAndNoOther) {
    const std::vector<std::string> page = rows();
    ASSERT_EQ(page.size(), arpSuppressionCounters);
    for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
        EXPECT_TRUE(page[number].starts_with(rowOf(number))) << page[number];
        // What to look at is said for each of them.
        EXPECT_GT(page[number].size(), rowOf(number).size() + 4) << page[number];
        EXPECT_TRUE(page[number].ends_with(" |")) << page[number];
    }
}

TEST(CounterRulesTest, EachHasARuleOfItsOwnInALine) {
    std::set<std::string> rules;
    for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
        std::string rule = ruleOf(ArpSuppressionCounterId{number});
        EXPECT_NE(rule, "?") << number;
        EXPECT_EQ(rule.find_first_of("\n|"), rule.npos) << rule;
        EXPECT_TRUE(rule == "never" || rules.insert(rule).second) << rule;
    }
    EXPECT_STREQ(ruleOf(ArpSuppressionCounterId{arpSuppressionCounters}), "?");
}

} // namespace
} // namespace Ctl
