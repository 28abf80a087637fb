#include "Linux/ForwardingPlane.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace Linux {
namespace {

TEST(PlaneCounters, everyCounterHasANameOfItsOwn) {
    std::set<std::string> names;
    for (size_t number = 0; number < Plane::counterLimit; ++number) {
        names.insert(PlaneCounters::name(static_cast<Plane::Counter>(number)));
    }
    EXPECT_EQ(names.size(), size_t{Plane::counterLimit});
    EXPECT_STREQ(PlaneCounters::name(Plane::trapped), "trapped");
    EXPECT_STREQ(PlaneCounters::name(Plane::passedNoDevice), "passedNoDevice");
    EXPECT_STREQ(PlaneCounters::name(Plane::droppedUntagged), "droppedUntagged");
    EXPECT_STREQ(PlaneCounters::name(Plane::droppedUnknownDestination),
                 "droppedUnknownDestination");
    EXPECT_STREQ(PlaneCounters::name(Plane::droppedNoMemory), "droppedNoMemory");
}

} // namespace
} // namespace Linux
