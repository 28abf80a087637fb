#include "Platform/Packet/FrameReader.h"

#include "Platform/Base/UniqueFd.h"
#include "Platform/Packet/test/Hex.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <memory>

namespace {

using namespace Vela;

class FrameReaderTest : public testing::Test {
  protected:
    FrameReaderTest() {
        std::array<int, 2> ends;
        // Keeps the boundaries between frames, as a packet socket does.
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()), 0);
        near.reset(ends[0]);
        far.reset(ends[1]);
    }

    void send(const Bytes& frame) {
        ASSERT_EQ(::send(far.get(), frame.data(), frame.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(frame.size()));
    }
    /// Empty where there is none; errno says why.
    Bytes next() {
        auto frame = reader->next(near.get());
        return frame ? Bytes(frame->begin(), frame->end()) : Bytes();
    }
    void expectNoneLeft() {
        errno = 0;
        EXPECT_FALSE(reader->next(near.get()));
        EXPECT_EQ(errno, EAGAIN);
    }

    UniqueFd near;
    UniqueFd far;
    std::unique_ptr<FrameReader> reader = std::make_unique<FrameReader>();
};

TEST_F(FrameReaderTest, framesComeOneByOneInTheirOrder) {
    constexpr uint8_t count = 2 * FrameReader::frames + 1;
    for (uint8_t i = 1; i <= count; ++i) {
        send(Bytes(i, i)); // each of another length
    }
    for (uint8_t i = 1; i <= count; ++i) {
        EXPECT_EQ(next(), Bytes(i, i));
    }
    expectNoneLeft();
}

TEST_F(FrameReaderTest, whatComesLaterComesAfterWhatWasTaken) {
    send({1});
    send({2});
    EXPECT_EQ(next(), Bytes{1});
    send({3});
    EXPECT_EQ(next(), Bytes{2});
    EXPECT_EQ(next(), Bytes{3});
    expectNoneLeft();
    send({4});
    EXPECT_EQ(next(), Bytes{4});
    expectNoneLeft();
}

TEST_F(FrameReaderTest, aFrameIsCutAndTheNextOneIsNot) {
    send(Bytes(FrameReader::frameBytes + 500, 7));
    send({8});
    EXPECT_EQ(next(), Bytes(FrameReader::frameBytes, 7));
    EXPECT_EQ(next(), Bytes{8});
    expectNoneLeft();
}

TEST_F(FrameReaderTest, droppedFramesDoNotComeBack) {
    send({1});
    send({2});
    send({3});
    auto first = reader->next(near.get());
    ASSERT_TRUE(first);
    reader->drop();
    EXPECT_EQ(first->front(), 1); // whoever drops may be looking at it
    expectNoneLeft();
    send({4});
    EXPECT_EQ(next(), Bytes{4});
}

TEST_F(FrameReaderTest, saysWhetherTakenFramesWait) {
    EXPECT_FALSE(reader->waiting());
    send({1});
    send({2});
    EXPECT_FALSE(reader->waiting()); // not taken yet
    next();
    EXPECT_TRUE(reader->waiting());
    next();
    EXPECT_FALSE(reader->waiting());
    send({3});
    send({4});
    next();
    EXPECT_TRUE(reader->waiting());
    reader->drop();
    EXPECT_FALSE(reader->waiting());
}

TEST_F(FrameReaderTest, anErrorComesAfterTheFramesThatWereTaken) {
    send({1});
    send({2});
    EXPECT_EQ(next(), Bytes{1});
    near.reset();
    EXPECT_EQ(next(), Bytes{2});
    errno = 0;
    EXPECT_FALSE(reader->next(-1));
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_FALSE(reader->next(-1)); // and nothing that was taken comes twice
    EXPECT_EQ(errno, EBADF);
}

} // namespace
