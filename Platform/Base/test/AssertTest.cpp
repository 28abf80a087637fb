#include "Platform/Base/Assert.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

void sendOn(int sock) {
    Vela::assertThat(sock >= 0, "sock >= 0");
}

void giveUp() {
    Vela::terminateWith("no more memory");
}

TEST(AssertDeathTest, PrintsUnitFunctionAndTextAndAborts) {
    EXPECT_EXIT(sendOn(-1), testing::KilledBySignal(SIGABRT),
                "(^|\n)Platform/Base/test/AssertTest:[0-9]+ sendOn: "
                "assertion failed \"sock >= 0\"\n");
}

TEST(AssertDeathTest, TerminatingPrintsTheTextOfTheError) {
    EXPECT_EXIT(giveUp(), testing::KilledBySignal(SIGABRT),
                "(^|\n)Platform/Base/test/AssertTest:[0-9]+ giveUp: "
                "unhandled error \"no more memory\"\n");
}

TEST(AssertTest, WhatHoldsIsSilent) {
    testing::internal::CaptureStderr();
    sendOn(0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

std::string_view unitOf(const char* file) {
    return Vela::SourceSite{file, "", 1}.unit();
}

TEST(SourceSiteTest, UnitIsThePathWithoutItsEnding) {
    EXPECT_EQ(unitOf("ArpSuppression/LocalBinding.cpp"), "ArpSuppression/LocalBinding");
    EXPECT_EQ(unitOf("Main.cpp"), "Main");
    EXPECT_EQ(unitOf("Arp/Arp.test.cpp"), "Arp/Arp.test");
    EXPECT_EQ(unitOf("build.d/Main"), "build.d/Main");
    EXPECT_EQ(unitOf(""), "");
}

TEST(SourceSiteTest, IsThePlaceOfTheCaller) {
    auto site = Vela::SourceSite::current();
    EXPECT_EQ(site.line, __LINE__ - 1u);
    EXPECT_EQ(site.unit(), "Platform/Base/test/AssertTest");
    EXPECT_STREQ(site.function, "TestBody");
}

} // namespace
