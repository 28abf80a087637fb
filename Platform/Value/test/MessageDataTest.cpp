#include "Platform/Value/MessageData.h"

#include <gtest/gtest.h>

namespace {

using ArpSuppression::MessageData;

TEST(MessageDataTest, ViewsTheFrameAndCopiesNothing) {
    uint8_t frame[] = {1, 2, 3};
    MessageData message(frame, 2);
    EXPECT_EQ(message.data(), frame);
    EXPECT_EQ(message.length(), 2u);
    EXPECT_EQ(message.bytes().data(), frame);
    EXPECT_EQ(message.bytes().size(), 2u);
    frame[1] = 7;
    EXPECT_EQ(message.bytes()[1], 7);
}

TEST(MessageDataTest, MayBeEmpty) {
    MessageData message(nullptr, 0);
    EXPECT_TRUE(message.bytes().empty());
}

} // namespace
