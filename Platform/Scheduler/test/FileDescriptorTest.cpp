#include "Platform/Scheduler/FileDescriptor.h"

#include "Platform/Base/Errors.h"
#include "Platform/State/CaughtErrors.h"
#include "Testing/CoreFixture.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Vela {
namespace {

class FileDescriptorTest : public Testing::CoreFixture {
  protected:
    struct Pair {
        UniqueFd first;
        UniqueFd second;
    };

    static Pair pipePair() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        return {UniqueFd(ends[0]), UniqueFd(ends[1])};
    }
    static Pair socketPair() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        return {UniqueFd(ends[0]), UniqueFd(ends[1])};
    }
    static UniqueFd readyEvent() { return UniqueFd(eventfd(1, EFD_CLOEXEC)); }

    Ptr<FileDescriptor> descriptor(UniqueFd fd, std::string name = "ArpTrap") {
        return make<FileDescriptor>(scheduler(), std::move(name), std::move(fd));
    }

    static void put(int fd) { EXPECT_EQ(::write(fd, "x", 1), 1); }

    /// Takes everything there is and says so, as who uses a descriptor has to.
    static size_t drain(FileDescriptor& descriptor) {
        std::array<char, 4096> bytes;
        size_t taken = 0;
        ssize_t count;
        while ((count = ::read(descriptor.descriptor(), bytes.data(), bytes.size())) > 0) {
            taken += static_cast<size_t>(count);
        }
        EXPECT_EQ(errno, EAGAIN);
        descriptor.readableDel();
        return taken;
    }

    static void fill(FileDescriptor& descriptor) {
        std::array<char, 4096> bytes{};
        while (::write(descriptor.descriptor(), bytes.data(), bytes.size()) > 0) {
        }
        EXPECT_EQ(errno, EAGAIN);
        descriptor.writableDel();
    }
};

TEST_F(FileDescriptorTest, NothingIsAnnouncedBeforeItIsAskedFor) {
    auto [reader, writer] = pipePair();
    auto fd = descriptor(std::move(reader));
    put(writer.get());
    EXPECT_FALSE(turn());
    EXPECT_EQ(fd->readableCount(), 0u);
    EXPECT_FALSE(fd->readable());

    fd->notifyOnReadableIs(true);
    EXPECT_TRUE(turn());
    EXPECT_EQ(fd->readableCount(), 1u);
}

TEST_F(FileDescriptorTest, DoesNotBlock) {
    auto [reader, writer] = pipePair();
    EXPECT_FALSE(fcntl(reader.get(), F_GETFL) & O_NONBLOCK);
    auto fd = descriptor(std::move(reader));
    EXPECT_TRUE(fcntl(fd->descriptor(), F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(drain(*fd), 0u);
}

TEST_F(FileDescriptorTest, IsAnnouncedOnceWhenItBecomesReadable) {
    auto [reader, writer] = pipePair();
    auto fd = descriptor(std::move(reader));
    fd->notifyOnReadableIs(true);
    uint32_t announced = 0;
    auto reaction = fd->readableCountAttribute().react(nullptr, [&] {
        ++announced;
        EXPECT_TRUE(fd->readable());
    });
    EXPECT_FALSE(turn());
    put(writer.get());
    EXPECT_TRUE(turn());
    EXPECT_FALSE(turn());
    EXPECT_FALSE(turn());
    EXPECT_EQ(announced, 1u);
    EXPECT_EQ(fd->readableCount(), 1u);
    EXPECT_EQ(fd->writableCount(), 0u);
}

TEST_F(FileDescriptorTest, IsReadableUntilSomebodyFoundNothingMore) {
    auto [reader, writer] = pipePair();
    auto fd = descriptor(std::move(reader));
    fd->notifyOnReadableIs(true);
    put(writer.get());
    turn();
    turn();
    EXPECT_TRUE(fd->readable());
    EXPECT_EQ(drain(*fd), 1u);
    EXPECT_FALSE(fd->readable());
    EXPECT_FALSE(turn());
    EXPECT_FALSE(fd->readable());

    put(writer.get());
    EXPECT_TRUE(turn());
    EXPECT_TRUE(fd->readable());
    EXPECT_EQ(fd->readableCount(), 2u);
}

TEST_F(FileDescriptorTest, WhatArrivesBetweenTheLastReadAndTheNextTurnIsAnnounced) {
    auto [reader, writer] = pipePair();
    auto fd = descriptor(std::move(reader));
    fd->notifyOnReadableIs(true);
    put(writer.get());
    turn();
    drain(*fd);
    put(writer.get());
    fd->readableDel();
    EXPECT_TRUE(turn());
    EXPECT_TRUE(fd->readable());
    EXPECT_EQ(drain(*fd), 1u);
}

TEST_F(FileDescriptorTest, MoreThatArrivesIsAnnouncedThoughNobodyHasReadWhatThereWas) {
    auto [ours, theirs] = socketPair();
    auto fd = descriptor(std::move(ours));
    fd->notifyOnReadableIs(true);
    for (uint32_t i = 1; i <= 3; ++i) {
        put(theirs.get());
        EXPECT_TRUE(turn());
        EXPECT_EQ(fd->readableCount(), i);
        EXPECT_FALSE(turn());
    }
}

TEST_F(FileDescriptorTest, AnIdleWritableSocketCostsOneAnnouncementAndNoTurn) {
    auto [ours, theirs] = socketPair();
    auto fd = descriptor(std::move(ours));
    fd->notifyOnWritableIs(true);
    EXPECT_TRUE(turn());
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(turn());
    }
    EXPECT_EQ(fd->writableCount(), 1u);
    EXPECT_EQ(fd->readableCount(), 0u);
    EXPECT_TRUE(fd->writable());
    EXPECT_EQ(scheduler()->slices(), 0u);
}

TEST_F(FileDescriptorTest, IsAnnouncedAgainWhenAFullSocketBecomesWritable) {
    auto [ours, theirs] = socketPair();
    auto peer = descriptor(std::move(theirs), "peer");
    auto fd = descriptor(std::move(ours));
    fd->notifyOnWritableIs(true);
    turn();
    fill(*fd);
    while (turn()) { // some kernels announce on the way to full
        fill(*fd);
    }
    EXPECT_FALSE(fd->writable());
    uint32_t before = fd->writableCount();
    EXPECT_GT(drain(*peer), 0u);
    EXPECT_TRUE(turn());
    EXPECT_TRUE(fd->writable());
    EXPECT_EQ(fd->writableCount(), before + 1);
    EXPECT_FALSE(turn());
}

TEST_F(FileDescriptorTest, BothDirectionsAreAnnounced) {
    auto [ours, theirs] = socketPair();
    auto fd = descriptor(std::move(ours));
    std::string seen;
    auto readable = fd->readableCountAttribute().react(nullptr, [&] { seen += 'r'; });
    auto writable = fd->writableCountAttribute().react(nullptr, [&] { seen += 'w'; });
    put(theirs.get());
    fd->notifyOnReadableIs(true);
    fd->notifyOnWritableIs(true);
    EXPECT_TRUE(turn());
    EXPECT_EQ(seen, "rw");
    EXPECT_FALSE(turn());
}

TEST_F(FileDescriptorTest, SwitchedOffNothingIsAnnouncedAndSwitchedOnWhatThereIs) {
    auto [ours, theirs] = socketPair();
    auto fd = descriptor(std::move(ours));
    fd->notifyOnReadableIs(true);
    fd->notifyOnReadableIs(false);
    put(theirs.get());
    EXPECT_FALSE(turn());
    EXPECT_EQ(fd->readableCount(), 0u);

    fd->notifyOnReadableIs(true);
    EXPECT_TRUE(turn());
    EXPECT_EQ(fd->readableCount(), 1u);

    // Also what was announced before and not read.
    fd->notifyOnReadableIs(false);
    EXPECT_FALSE(turn());
    fd->notifyOnReadableIs(true);
    EXPECT_TRUE(turn());
    EXPECT_EQ(fd->readableCount(), 2u);
}

TEST_F(FileDescriptorTest, SwitchingOneDirectionOffLeavesTheOther) {
    auto [ours, theirs] = socketPair();
    auto fd = descriptor(std::move(ours));
    fd->notifyOnReadableIs(true);
    fd->notifyOnWritableIs(true);
    turn();
    fd->notifyOnWritableIs(false);
    turn();
    uint32_t before = fd->writableCount();
    put(theirs.get());
    EXPECT_TRUE(turn());
    EXPECT_EQ(fd->readableCount(), 1u);
    EXPECT_EQ(fd->writableCount(), before);
}

TEST_F(FileDescriptorTest, ATaskAskedForByAnAnnouncementRunsInTheSameTurn) {
    auto fd = descriptor(readyEvent());
    int slices = 0;
    auto task = make<Task>(scheduler(), TaskPriority{3}, "reader", nullptr, [&] {
        ++slices;
        return SliceResult{false, 1};
    });
    auto reaction = fd->readableCountAttribute().react(nullptr, [&] { task->schedule(); });
    fd->notifyOnReadableIs(true);
    EXPECT_TRUE(turn());
    EXPECT_EQ(slices, 1);
    EXPECT_FALSE(turn());
}

TEST_F(FileDescriptorTest, OneMayBeDestroyedByAnothersAnnouncement) {
    auto a = descriptor(readyEvent());
    auto b = descriptor(readyEvent());
    a->notifyOnReadableIs(true);
    b->notifyOnReadableIs(true);
    std::string seen;
    auto first = a->readableCountAttribute().react(nullptr, [&] {
        seen += 'a';
        b.reset();
    });
    auto second = b->readableCountAttribute().react(nullptr, [&] {
        seen += 'b';
        a.reset();
    });
    EXPECT_TRUE(turn());
    EXPECT_EQ(seen.size(), 1u);
    EXPECT_FALSE(turn());
    EXPECT_EQ((a != nullptr) + (b != nullptr), 1);
}

TEST_F(FileDescriptorTest, OneMayBeSwitchedOffByAnothersAnnouncement) {
    auto a = descriptor(readyEvent());
    auto b = descriptor(readyEvent());
    a->notifyOnReadableIs(true);
    b->notifyOnReadableIs(true);
    auto first = a->readableCountAttribute().react(nullptr, [&] { b->notifyOnReadableIs(false); });
    auto second = b->readableCountAttribute().react(nullptr, [&] { a->notifyOnReadableIs(false); });
    EXPECT_TRUE(turn());
    EXPECT_EQ(a->readableCount() + b->readableCount(), 1u);
    EXPECT_EQ(a->readable() + b->readable(), 1);
}

TEST_F(FileDescriptorTest, MayBeDestroyedByItsOwnAnnouncement) {
    auto [ours, theirs] = socketPair();
    auto fd = descriptor(std::move(ours));
    put(theirs.get());
    fd->notifyOnReadableIs(true);
    fd->notifyOnWritableIs(true);
    std::string seen;
    auto readable = fd->readableCountAttribute().react(nullptr, [&] {
        seen += 'r';
        fd->destroy();
    });
    auto writable = fd->writableCountAttribute().react(nullptr, [&] { seen += 'w'; });
    EXPECT_TRUE(turn());
    EXPECT_EQ(seen, "r");
    EXPECT_FALSE(turn());
}

TEST_F(FileDescriptorTest, ItsLastReferenceMayGoInItsOwnAnnouncement) {
    auto fd = descriptor(readyEvent());
    fd->notifyOnReadableIs(true);
    int announced = 0;
    auto reaction = fd->readableCountAttribute().react(nullptr, [&] {
        ++announced;
        fd.reset();
    });
    EXPECT_TRUE(turn());
    EXPECT_FALSE(turn());
    EXPECT_EQ(announced, 1);
}

TEST_F(FileDescriptorTest, OneMadeByAnAnnouncementIsSeenInTheNextTurn) {
    auto fd = descriptor(readyEvent());
    Ptr<FileDescriptor> accepted;
    auto reaction = fd->readableCountAttribute().react(nullptr, [&] {
        accepted = descriptor(readyEvent());
        accepted->notifyOnReadableIs(true);
    });
    fd->notifyOnReadableIs(true);
    EXPECT_TRUE(turn());
    EXPECT_EQ(accepted->readableCount(), 0u);
    EXPECT_TRUE(turn());
    EXPECT_EQ(accepted->readableCount(), 1u);
}

TEST_F(FileDescriptorTest, ARangeErrorInAReactionDoesNotReachTheOtherDescriptors) {
    uint64_t before = caughtRangeErrors();
    auto a = descriptor(readyEvent());
    auto b = descriptor(readyEvent());
    a->notifyOnReadableIs(true);
    b->notifyOnReadableIs(true);
    auto fails = [] { throw RangeError("no such frame"); };
    auto first = a->readableCountAttribute().react(nullptr, fails);
    auto second = b->readableCountAttribute().react(nullptr, fails);
    EXPECT_TRUE(turn());
    EXPECT_EQ(a->readableCount(), 1u);
    EXPECT_EQ(b->readableCount(), 1u);
    EXPECT_EQ(caughtRangeErrors(), before + 2);
}

TEST_F(FileDescriptorTest, ManyAtOnceAreAllAnnounced) {
    std::vector<Ptr<FileDescriptor>> all;
    for (int i = 0; i < 200; ++i) {
        all.push_back(descriptor(readyEvent()));
        all.back()->notifyOnReadableIs(true);
    }
    runUntilIdle();
    for (auto& fd : all) {
        EXPECT_EQ(fd->readableCount(), 1u);
    }
}

TEST_F(FileDescriptorTest, AReaderSeesTheHangUpOfItsWriter) {
    auto [reader, writer] = pipePair();
    auto fd = descriptor(std::move(reader));
    fd->notifyOnReadableIs(true);
    EXPECT_FALSE(turn());
    writer.reset();
    EXPECT_TRUE(turn());
    EXPECT_TRUE(fd->readable());
    char byte;
    EXPECT_EQ(::read(fd->descriptor(), &byte, 1), 0);
    EXPECT_FALSE(turn());
}

TEST_F(FileDescriptorTest, AnIdleWriterSeesTheHangUpOfItsReader) {
    auto [reader, writer] = pipePair();
    auto fd = descriptor(std::move(writer));
    fd->notifyOnWritableIs(true);
    EXPECT_TRUE(turn());
    EXPECT_FALSE(turn());
    reader.reset();
    EXPECT_TRUE(turn());
    EXPECT_EQ(fd->writableCount(), 2u);
    EXPECT_EQ(fd->readableCount(), 0u);
}

TEST_F(FileDescriptorTest, AnErrorShowsInADirectionThatThereIsNot) {
    auto [reader, writer] = pipePair();
    auto fd = descriptor(std::move(writer));
    fd->notifyOnReadableIs(true);
    EXPECT_FALSE(turn());
    reader.reset();
    EXPECT_TRUE(turn());
    EXPECT_EQ(fd->readableCount(), 1u);
    EXPECT_EQ(fd->writableCount(), 0u);
}

TEST_F(FileDescriptorTest, ASocketSeesThatItsPeerIsGoneInEitherDirection) {
    for (bool readable : {true, false}) {
        auto [ours, theirs] = socketPair();
        auto fd = descriptor(std::move(ours));
        readable ? fd->notifyOnReadableIs(true) : fd->notifyOnWritableIs(true);
        turn();
        uint32_t before = fd->readableCount() + fd->writableCount();
        theirs.reset();
        EXPECT_TRUE(turn()) << readable;
        EXPECT_EQ(fd->readableCount() + fd->writableCount(), before + 1);
        EXPECT_EQ(send(fd->descriptor(), "x", 1, MSG_NOSIGNAL), -1);
        EXPECT_EQ(errno, EPIPE);
    }
}

TEST_F(FileDescriptorTest, ARegularFileIsRefused) {
    auto fd = descriptor(UniqueFd(open("/proc/self/exe", O_RDONLY | O_CLOEXEC)), "executable");
    ASSERT_GE(fd->descriptor(), 0);
    for (bool readable : {true, false}) {
        try {
            readable ? fd->notifyOnReadableIs(true) : fd->notifyOnWritableIs(true);
            ADD_FAILURE() << "was not refused";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EPERM);
            EXPECT_NE(std::string(error.what()).find("executable"), std::string::npos);
        }
    }
    fd->notifyOnReadableIs(false);
    EXPECT_FALSE(turn());
    EXPECT_EQ(fd->readableCount() + fd->writableCount(), 0u);
}

TEST_F(FileDescriptorTest, WithoutADescriptorItIsRefusedToo) {
    auto fd = descriptor(UniqueFd());
    EXPECT_THROW(fd->notifyOnReadableIs(true), std::system_error);
    EXPECT_FALSE(turn());
}

TEST_F(FileDescriptorTest, IsClosedAtTheEndOfItsLife) {
    auto fd = descriptor(readyEvent());
    int number = fd->descriptor();
    EXPECT_GE(fcntl(number, F_GETFD), 0);
    fd->destroy();
    EXPECT_EQ(fd->descriptor(), -1);
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);

    fd = descriptor(readyEvent());
    number = fd->descriptor();
    fd->notifyOnReadableIs(true);
    fd.reset();
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(turn());
}

TEST_F(FileDescriptorTest, ADuplicateElsewhereKeepsNothingAlive) {
    auto [reader, writer] = pipePair();
    UniqueFd duplicate(dup(reader.get()));
    auto fd = descriptor(std::move(reader));
    fd->notifyOnReadableIs(true);
    fd.reset();
    put(writer.get());
    EXPECT_FALSE(turn());
}

TEST_F(FileDescriptorTest, TheNextOfTheSameNumberStartsAfresh) {
    auto first = descriptor(readyEvent());
    int number = first->descriptor();
    first->notifyOnReadableIs(true);
    first.reset();
    auto second = descriptor(readyEvent());
    EXPECT_EQ(second->descriptor(), number);
    EXPECT_FALSE(turn());
    second->notifyOnReadableIs(true);
    EXPECT_TRUE(turn());
    EXPECT_EQ(second->readableCount(), 1u);
}

TEST_F(FileDescriptorTest, DestroyedItIgnoresRequests) {
    auto fd = descriptor(readyEvent());
    fd->destroy();
    fd->notifyOnReadableIs(true);
    fd->notifyOnWritableIs(true);
    fd->notifyOnReadableIs(false);
    EXPECT_FALSE(turn());
    EXPECT_EQ(fd->readableCount() + fd->writableCount(), 0u);
}

TEST_F(FileDescriptorTest, ShowsNameAndNumberInTraces) {
    auto fd = descriptor(readyEvent(), "ArpTrap");
    std::ostringstream text;
    fd->formatTraceObject(text);
    EXPECT_EQ(text.str(), "FileDescriptor(ArpTrap " + std::to_string(fd->descriptor()) + ")");
    EXPECT_EQ(fd->toStrep(), "ArpTrap");
    EXPECT_EQ(fd->name(), "ArpTrap");
}

} // namespace
} // namespace Vela
