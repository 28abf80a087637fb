#include "Platform/Packet/Pkt.h"

#include "Platform/Packet/test/Hex.h"
#include "Platform/State/test/AllocationCount.h"

#include <type_traits>

namespace {

using namespace Vela;
using PktPtr = boost::intrusive_ptr<Pkt>;

Bytes contents(const Pkt& pkt) {
    return Bytes(pkt.bytes().begin(), pkt.bytes().end());
}

TEST(PktTest, HoldsACopy) {
    PktManager manager;
    Bytes bytes = {1, 2, 3};
    PktPtr pkt = manager.newPkt(bytes);
    bytes[0] = 9;
    EXPECT_EQ(contents(*pkt), (Bytes{1, 2, 3}));
    EXPECT_EQ(pkt->size(), 3u);
    EXPECT_EQ(pkt->headroom(), 0u);
    pkt->bytes()[2] = 7;
    EXPECT_EQ(contents(*pkt), (Bytes{1, 2, 7}));
}

TEST(PktTest, MayBeEmpty) {
    PktManager manager;
    PktPtr pkt = manager.newPkt({});
    EXPECT_EQ(pkt->size(), 0u);
    EXPECT_TRUE(pkt->bytes().empty());
    EXPECT_TRUE(pkt->prepend(0).empty());
    PktPtr room = manager.newPkt({}, 2);
    EXPECT_EQ(room->size(), 0u);
    EXPECT_EQ(room->headroom(), 2u);
    room->prepend(2);
    EXPECT_EQ(contents(*room), (Bytes{0, 0}));
}

TEST(PktTest, PrependTakesFromTheHeadroom) {
    PktManager manager;
    PktPtr pkt = manager.newPkt(Bytes{1, 2}, 5);
    std::span<uint8_t> added = pkt->prepend(3);
    EXPECT_EQ(added.data(), pkt->bytes().data());
    EXPECT_EQ(added.size(), 3u);
    EXPECT_EQ(pkt->headroom(), 2u);
    EXPECT_EQ(contents(*pkt), (Bytes{0, 0, 0, 1, 2}));
    added[0] = 8;
    pkt->prepend(2)[1] = 9;
    EXPECT_EQ(pkt->headroom(), 0u);
    EXPECT_EQ(contents(*pkt), (Bytes{0, 9, 8, 0, 0, 1, 2}));
    EXPECT_TRUE(pkt->prepend(0).empty());
    EXPECT_EQ(pkt->size(), 7u);
}

TEST(PktTest, PrependedBytesAreZeroWhateverTheMemoryHeld) {
    PktManager manager;
    manager.newPkt(Bytes(8, 0xee)).reset();
    PktPtr pkt = manager.newPkt(Bytes{1, 2}, 6);
    pkt->prepend(6);
    EXPECT_EQ(contents(*pkt), (Bytes{0, 0, 0, 0, 0, 0, 1, 2}));
}

TEST(PktTest, PrependBeyondTheHeadroomIsAProgrammingError) {
    PktManager manager;
    PktPtr pkt = manager.newPkt(Bytes{1, 2}, 3);
    EXPECT_DEATH(pkt->prepend(4), "assertion failed \"count <= headroom\\(\\)\"");
    pkt->prepend(3);
    EXPECT_DEATH(pkt->prepend(1), "assertion failed \"count <= headroom\\(\\)\"");
    EXPECT_DEATH(pkt->prepend(SIZE_MAX), "assertion failed \"count <= headroom\\(\\)\"");
}

TEST(PktTest, LivesAsLongAsAnybodyRefersToIt) {
    PktManager manager;
    EXPECT_EQ(manager.packets(), 0u);
    PktPtr pkt = manager.newPkt(Bytes{1, 2});
    boost::intrusive_ptr<const Pkt> other = pkt;
    EXPECT_EQ(manager.packets(), 1u);
    pkt.reset();
    EXPECT_EQ(manager.packets(), 1u);
    EXPECT_EQ(manager.idle(), 0u);
    EXPECT_EQ(contents(*other), (Bytes{1, 2}));
    // Its memory does not go to another packet meanwhile.
    PktPtr next = manager.newPkt(Bytes{3, 4});
    EXPECT_EQ(contents(*other), (Bytes{1, 2}));
    EXPECT_EQ(manager.packets(), 2u);
    other.reset();
    EXPECT_EQ(manager.packets(), 1u);
    EXPECT_EQ(manager.idle(), 1u);
}

TEST(PktTest, NobodyCopiesIt) {
    EXPECT_FALSE(std::is_copy_constructible_v<Pkt>);
    EXPECT_FALSE(std::is_copy_assignable_v<Pkt>);
    EXPECT_FALSE(std::is_copy_constructible_v<PktManager>);
}

TEST(PktManagerTest, ReusesMemory) {
    PktManager manager;
    PktPtr pkt = manager.newPkt(Bytes(100, 1), 20);
    const Pkt* first = pkt.get();
    const uint8_t* memory = pkt->bytes().data();
    pkt.reset();
    EXPECT_EQ(manager.idle(), 1u);
    pkt = manager.newPkt(Bytes(50, 2), 20);
    EXPECT_EQ(manager.idle(), 0u);
    EXPECT_EQ(pkt.get(), first);
    EXPECT_EQ(pkt->bytes().data(), memory);
    // As new: nothing of the longer packet shows.
    EXPECT_EQ(contents(*pkt), Bytes(50, 2));
    EXPECT_EQ(pkt->headroom(), 20u);
}

TEST(PktManagerTest, AReusedPacketGrows) {
    PktManager manager;
    manager.newPkt(Bytes(4, 1)).reset();
    PktPtr pkt = manager.newPkt(Bytes(3000, 2), 64);
    EXPECT_EQ(contents(*pkt), Bytes(3000, 2));
    EXPECT_EQ(pkt->headroom(), 64u);
    EXPECT_EQ(pkt->prepend(64).size(), 64u);
    EXPECT_EQ(pkt->size(), 3064u);
}

TEST(PktManagerTest, AReusedPacketAllocatesNothing) {
    PktManager manager;
    Bytes bytes(1500, 1);
    uint64_t before = AllocationCount::now().allocations;
    manager.newPkt(bytes, 64).reset();
    EXPECT_EQ(AllocationCount::now().allocations - before, 2u); // the packet and its buffer
    before = AllocationCount::now().allocations;
    for (int i = 0; i < 1000; ++i) {
        PktPtr pkt = manager.newPkt(bytes, 64);
        PktPtr other = pkt;
        pkt->prepend(64);
    }
    EXPECT_EQ(AllocationCount::now().allocations - before, 0u);
}

TEST(PktManagerTest, KeepsBoundedMemory) {
    PktManager manager;
    Bytes bytes(64);
    std::vector<PktPtr> packets;
    for (size_t i = 0; i < PktManager::mostIdle + 3; ++i) {
        packets.push_back(manager.newPkt(bytes));
    }
    EXPECT_EQ(manager.packets(), PktManager::mostIdle + 3);
    EXPECT_EQ(manager.idle(), 0u);
    uint64_t allocations = AllocationCount::now().allocations;
    for (size_t i = 0; i < PktManager::mostIdle; ++i) {
        packets.pop_back();
    }
    EXPECT_EQ(manager.idle(), PktManager::mostIdle);
    size_t bytesBefore = AllocationCount::now().liveBytes;
    packets.clear();
    EXPECT_EQ(manager.packets(), 0u);
    EXPECT_EQ(manager.idle(), PktManager::mostIdle);
    EXPECT_LE(AllocationCount::now().liveBytes, bytesBefore - 3 * (sizeof(Pkt) + 64));
    EXPECT_EQ(AllocationCount::now().allocations, allocations); // giving back asks for nothing
}

TEST(PktManagerTest, GivesEverythingBackInTheEnd) {
    size_t before = AllocationCount::now().liveBytes;
    {
        PktManager manager;
        PktPtr kept = manager.newPkt(Bytes(10));
        manager.newPkt(Bytes(1000)).reset();
        EXPECT_GT(AllocationCount::now().liveBytes, before + 1000);
    }
    EXPECT_EQ(AllocationCount::now().liveBytes, before);
}

TEST(PktManagerTest, MustOutliveItsPackets) {
    EXPECT_DEATH(
        {
            PktPtr kept;
            PktManager manager;
            kept = manager.newPkt(Bytes{1});
        },
        "assertion failed \"packets_ == 0\"");
}

TEST(PktManagerTest, OneServesTheProcess) {
    EXPECT_EQ(&pktManager(), &pktManager());
    PktPtr pkt = pktManager().newPkt(Bytes{1});
    EXPECT_EQ(pktManager().packets(), 1u);
}

} // namespace
