#include "ArpSuppression/TrappedMessage.h"

#include "Platform/Base/Errors.h"
#include "Platform/Base/ValueParser.h"
#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/TraceCapture.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <sstream>
#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

using Message = Ptr<const TrappedMessage>;

const std::vector<MessageType> allTypes{
    MessageType::request, MessageType::reply, MessageType::v6NeighborSolicitation,
    MessageType::v6NeighborAdvertisement, MessageType::v6RouterSolicitation};

Message messageOf(MessageType type, Ptr<const Vela::Pkt> pkt = nullptr) {
    return trappedMessageFactory(VlanId(10), type, IntfId("Ethernet1/2"), true,
                                 IpGenAddr("10.0.0.1"), EthAddr("02:00:00:00:00:01"),
                                 IpGenAddr("10.0.0.2"), std::move(pkt));
}

/// Messages that differ in their VLAN alone.
Message message(uint16_t vlanId) {
    return trappedMessageFactory(VlanId(vlanId), MessageType::request, IntfId(), false, IpGenAddr(),
                                 EthAddr(), IpGenAddr(), nullptr);
}

std::string dump(const Vela::Entity& entity, int indent = 0) {
    Vela::DumpContext context;
    entity.dumpState(context, indent);
    return context.text();
}

TEST(MessageTypeTest, HasTheValuesThatAreExchanged) {
    for (size_t i = 0; i < allTypes.size(); ++i) {
        EXPECT_EQ(static_cast<size_t>(allTypes[i]), i);
    }
}

TEST(MessageTypeTest, ReadsItsTextsBack) {
    const std::vector<std::string> names{"request", "reply", "v6NeighborSolicitation",
                                         "v6NeighborAdvertisement", "v6RouterSolicitation"};
    for (size_t i = 0; i < allTypes.size(); ++i) {
        std::ostringstream out;
        out << allTypes[i];
        EXPECT_EQ(out.str(), names[i]);
        std::string quoted = "'" + names[i] + "'";
        Vela::ValueParser parser(quoted);
        EXPECT_EQ(messageTypeFromValue(parser), allTypes[i]);
        EXPECT_NO_THROW(parser.end());
    }
    for (const char* wrong : {"", "request", "'Request'", "'v6'", "'reply", "0"}) {
        Vela::ValueParser parser(wrong);
        EXPECT_THROW(messageTypeFromValue(parser), Vela::ParseError) << wrong;
    }
}

TEST(MessageTypeDeathTest, KnowsNoOtherValue) {
    EXPECT_EXIT(toStrep(static_cast<MessageType>(5)), testing::KilledBySignal(SIGABRT),
                "ArpSuppression/TrappedMessage:[0-9]+ toStrep: assertion failed \"false\"");
}

class TrappedMessageTest : public Testing::CoreFixture {};

TEST_F(TrappedMessageTest, KeepsWhatItWasMadeOf) {
    const std::array<uint8_t, 3> bytes{1, 2, 3};
    size_t packets = Vela::pktManager().packets();
    auto trapped = messageOf(MessageType::reply, Vela::pktManager().newPkt(bytes));
    EXPECT_EQ(trapped->vlanId(), VlanId(10));
    EXPECT_EQ(trapped->type(), MessageType::reply);
    EXPECT_EQ(trapped->srcIntfId(), IntfId("Ethernet1/2"));
    EXPECT_TRUE(trapped->isCpuPort());
    EXPECT_EQ(trapped->senderIpAddress(), IpGenAddr("10.0.0.1"));
    EXPECT_EQ(trapped->senderMacAddress(), EthAddr("02:00:00:00:00:01"));
    EXPECT_EQ(trapped->targetIpAddress(), IpGenAddr("10.0.0.2"));
    EXPECT_TRUE(std::ranges::equal(trapped->pkt()->bytes(), bytes));
    EXPECT_EQ(Vela::pktManager().packets(), packets + 1);
    trapped.reset();
    EXPECT_EQ(Vela::pktManager().packets(), packets);
}

TEST_F(TrappedMessageTest, Prints) {
    const std::vector<std::string> heads{"<request", "<reply", "<NeighborSolicitation",
                                         "<NeighborAdvertisement", "<RouterSolicitation"};
    for (size_t i = 0; i < allTypes.size(); ++i) {
        auto trapped = messageOf(allTypes[i]);
        std::string text = heads[i] + " vlanId=10 if=Ethernet1/2 cpuPort=yes sIp=10.0.0.1 "
                                      "sMac=02:00:00:00:00:01 tIp=10.0.0.2>";
        std::ostringstream out;
        out << trapped;
        EXPECT_EQ(out.str(), text);
        EXPECT_EQ(trapped->toStrep(), text);
        EXPECT_EQ(dump(*trapped, 2), "  TrappedMessage " + text + "\n");
    }
    EXPECT_EQ(message(1)->toStrep(),
              "<request vlanId=1 if= cpuPort=no sIp= sMac=00:00:00:00:00:00 tIp=>");
    std::ostringstream out;
    out << Message();
    EXPECT_EQ(out.str(), "NULL");
    EXPECT_EQ(Vela::toStrep(Message()), "NULL");
}

class MessageTrapTest : public Testing::CoreFixture {};

TEST_F(MessageTrapTest, AnnouncesEveryMessage) {
    auto trap = make<MessageTrap>();
    EXPECT_EQ(trap->lastTrappedMessage(), nullptr);
    std::vector<Message> seen;
    auto reaction = trap->lastTrappedMessageAttribute().react(
        nullptr, [&] { seen.push_back(trap->lastTrappedMessage()); });
    auto first = message(10);
    auto second = message(20);
    trap->lastTrappedMessageIs(first);
    trap->lastTrappedMessageIs(first);
    trap->lastTrappedMessageIs(second);
    trap->lastTrappedMessageIs(nullptr);
    EXPECT_EQ(seen, (std::vector<Message>{first, first, second, nullptr}));
}

TEST_F(MessageTrapTest, AnnouncesWhatIsExpectedAndKeepsNothingOfIt) {
    using Step = MessageTrap::Expected::Step;
    auto trap = Vela::make<MessageTrap>();
    std::vector<MessageTrap::Expected> expected;
    auto reaction = trap->expectedNotifier().react(
        nullptr, [&](const MessageTrap::Expected& e) { expected.push_back(e); });
    RemoteBindingKey key(Bridging::VlanId(10), Zinc::IpGenAddr("10.0.0.2"));
    trap->expect(key, Step::first);
    trap->expect(key, Step::second);
    ASSERT_EQ(expected.size(), 2u);
    EXPECT_EQ(expected[0].key, key);
    EXPECT_EQ(expected[0].step, Step::first);
    EXPECT_EQ(expected[1].key, key);
    EXPECT_EQ(expected[1].step, Step::second);
    EXPECT_EQ(trap->lastTrappedMessage(), nullptr);
}

TEST_F(MessageTrapTest, LetsGoOfItsMessageAtItsEnd) {
    auto trap = make<MessageTrap>();
    trap->lastTrappedMessageIs(message(10));
    uint64_t before = Vela::Entity::liveCount();
    trap->destroy();
    EXPECT_EQ(trap->lastTrappedMessage(), nullptr);
    EXPECT_EQ(Vela::Entity::liveCount(), before - 1);
}

TEST_F(MessageTrapTest, Dumps) {
    auto trap = make<MessageTrap>();
    EXPECT_EQ(dump(*trap), "MessageTrap\n  lastTrappedMessage=NULL\n");
    trap->lastTrappedMessageIs(message(10));
    EXPECT_EQ(dump(*trap, 2), "  MessageTrap\n"
                              "    TrappedMessage " +
                                  message(10)->toStrep() + "\n");
}

class MessageQueueTest : public Testing::CoreFixture {
  protected:
    void enqueue(uint16_t from, uint16_t to) {
        for (uint16_t vlanId = from; vlanId <= to; ++vlanId) {
            EXPECT_FALSE(queue_->enqueueMessage(message(vlanId))) << vlanId;
        }
    }
    std::vector<int> vlanIds() const {
        std::vector<int> found;
        for (auto it = queue_->headMessage(); it != queue_->messageEnd(); ++it) {
            found.push_back(it->message->vlanId().value());
        }
        return found;
    }
    std::vector<uint32_t> indexes() const {
        std::vector<uint32_t> found;
        for (auto it = queue_->headMessage(); it != queue_->messageEnd(); ++it) {
            found.push_back(it->index);
        }
        return found;
    }

    const Ptr<MessageQueue> queue_ = make<MessageQueue>();
};

TEST_F(MessageQueueTest, StartsEmpty) {
    EXPECT_EQ(queue_->messages(), 0u);
    EXPECT_EQ(queue_->queueLimitMin(), 50u);
    EXPECT_EQ(queue_->queueLimitMax(), 500u);
    EXPECT_EQ(queue_->queueLimitCurrent(), 500u);
    EXPECT_EQ(queue_->messageFront(), nullptr);
    EXPECT_EQ(queue_->messageBack(), nullptr);
    EXPECT_EQ(queue_->messageDeq(), nullptr);
    EXPECT_EQ(queue_->headMessage(), queue_->messageEnd());
}

TEST_F(MessageQueueTest, GivesMessagesInTheOrderInWhichTheyCame) {
    enqueue(1, 3);
    EXPECT_EQ(queue_->messages(), 3u);
    EXPECT_EQ(queue_->messageFront()->vlanId(), VlanId(1));
    EXPECT_EQ(queue_->messageBack()->vlanId(), VlanId(3));
    EXPECT_EQ(queue_->messageDeq()->vlanId(), VlanId(1));
    EXPECT_EQ(queue_->messageDeq()->vlanId(), VlanId(2));
    enqueue(4, 4);
    EXPECT_EQ(vlanIds(), (std::vector<int>{3, 4}));
    EXPECT_EQ(indexes(), (std::vector<uint32_t>{2, 3}));
    EXPECT_EQ(queue_->messageDeq()->vlanId(), VlanId(3));
    EXPECT_EQ(queue_->messageDeq()->vlanId(), VlanId(4));
    EXPECT_EQ(queue_->messageDeq(), nullptr);
}

TEST_F(MessageQueueTest, DropsTheOldestWhenItIsFull) {
    queue_->queueLimitCurrentIs(50);
    enqueue(1, 50);
    EXPECT_EQ(queue_->messages(), 50u);
    EXPECT_TRUE(queue_->enqueueMessage(message(51)));
    EXPECT_EQ(queue_->messages(), 50u);
    EXPECT_EQ(queue_->messageFront()->vlanId(), VlanId(2));
    EXPECT_EQ(queue_->messageBack()->vlanId(), VlanId(51));
}

TEST_F(MessageQueueTest, DropsOneAtATimeWhenTheLimitHasShrunk) {
    enqueue(1, 60);
    queue_->queueLimitCurrentIs(50);
    EXPECT_EQ(queue_->messages(), 60u);
    EXPECT_TRUE(queue_->enqueueMessage(message(61)));
    EXPECT_EQ(queue_->messages(), 60u);
    for (int i = 0; i < 11; ++i) {
        EXPECT_NE(queue_->messageDeq(), nullptr);
    }
    EXPECT_FALSE(queue_->enqueueMessage(message(62)));
    EXPECT_EQ(queue_->messages(), 50u);
}

TEST_F(MessageQueueTest, TheNewestGetsInWhateverTheLimit) {
    queue_->queueLimitCurrentIs(0);
    EXPECT_FALSE(queue_->enqueueMessage(message(1))); // there was none to drop
    EXPECT_TRUE(queue_->enqueueMessage(message(2)));
    EXPECT_EQ(vlanIds(), (std::vector<int>{2}));
}

TEST_F(MessageQueueTest, TakesAMessageFromTheEntryThatItDrops) {
    enqueue(1, 1);
    queue_->queueLimitCurrentIs(1);
    EXPECT_TRUE(queue_->enqueueMessage(queue_->headMessage()->message));
    EXPECT_EQ(vlanIds(), (std::vector<int>{1}));
}

TEST_F(MessageQueueTest, TracesWhatComesAndWhatIsDropped) {
    queue_->queueLimitCurrentIs(1);
    Testing::TraceCapture lines("ArpSuppression=8");
    queue_->enqueueMessage(message(1));
    EXPECT_EQ(lines.count("req=" + message(1)->toStrep() + "\n"), 1u) << lines.text();
    EXPECT_FALSE(lines.contains("dropping"));
    lines.clear();
    queue_->enqueueMessage(message(2));
    EXPECT_EQ(lines.count(" req=" + message(2)->toStrep() + "\n"), 1u);
    EXPECT_EQ(lines.count(" dropping oldReq=" + message(1)->toStrep() + "\n"), 1u);
    EXPECT_EQ(lines.count("\n"), 2u);
    EXPECT_EQ(lines.count("ArpSuppression/TrappedMessage:"), 2u);
}

TEST_F(MessageQueueTest, LimitIsTwoSlicesOfWork) {
    struct {
        uint32_t processed, limit;
    } const cases[] = {{0, 50},    {24, 50},   {25, 50},   {26, 52},           {100, 200},
                       {249, 498}, {250, 500}, {300, 500}, {0x8000'0000, 500}, {0xFFFF'FFFF, 500}};
    for (auto [processed, limit] : cases) {
        Testing::TraceCapture lines("ArpSuppression=8");
        queue_->updateQueueLimit(processed);
        EXPECT_EQ(queue_->queueLimitCurrent(), limit) << processed;
        EXPECT_EQ(lines.count(" messagesProcessed=" + std::to_string(processed) +
                              " newLimit=" + std::to_string(limit) + "\n"),
                  1u);
    }
}

TEST_F(MessageQueueTest, LimitStaysWithinItsBounds) {
    queue_->queueLimitMinIs(10);
    queue_->queueLimitMaxIs(20);
    queue_->updateQueueLimit(4);
    EXPECT_EQ(queue_->queueLimitCurrent(), 10u);
    queue_->updateQueueLimit(7);
    EXPECT_EQ(queue_->queueLimitCurrent(), 14u);
    queue_->updateQueueLimit(11);
    EXPECT_EQ(queue_->queueLimitCurrent(), 20u);
    queue_->queueLimitMinIs(30); // the lower bound wins
    queue_->updateQueueLimit(14);
    EXPECT_EQ(queue_->queueLimitCurrent(), 30u);
}

TEST_F(MessageQueueTest, AnnouncesALimitThatChanges) {
    std::vector<uint32_t> seen;
    auto reaction = queue_->queueLimitCurrentAttribute().react(
        nullptr, [&] { seen.push_back(queue_->queueLimitCurrent()); });
    queue_->updateQueueLimit(250);
    EXPECT_TRUE(seen.empty());
    queue_->updateQueueLimit(100);
    queue_->updateQueueLimit(100);
    queue_->queueLimitCurrentIs(200);
    EXPECT_EQ(seen, (std::vector<uint32_t>{200}));
}

TEST_F(MessageQueueTest, AnnouncesEveryMessageThatComes) {
    std::vector<uint32_t> seen;
    auto reaction =
        queue_->messageNotifier().react(nullptr, [&] { seen.push_back(queue_->messages()); });
    queue_->queueLimitCurrentIs(2);
    queue_->enqueueMessage(message(1));
    queue_->enqueueMessage(message(2));
    queue_->enqueueMessage(message(3)); // the dropped one is not announced
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 2, 2}));
    queue_->messageDeq();
    queue_->messageDelAll();
    EXPECT_EQ(seen.size(), 3u);
}

TEST_F(MessageQueueTest, AReactionMayTakeTheMessageOut) {
    Message taken;
    auto reaction = queue_->messageNotifier().react(nullptr, [&] { taken = queue_->messageDeq(); });
    EXPECT_FALSE(queue_->enqueueMessage(message(7)));
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(taken->vlanId(), VlanId(7));
    EXPECT_EQ(queue_->messages(), 0u);
}

TEST_F(MessageQueueTest, ReplacesAndRemovesByIndex) {
    enqueue(1, 4); // indexes 0 to 3
    queue_->messageIs(1, message(20));
    EXPECT_EQ(vlanIds(), (std::vector<int>{1, 20, 3, 4}));
    queue_->messageDel(uint32_t{2});
    EXPECT_EQ(vlanIds(), (std::vector<int>{1, 20, 4}));
    queue_->messageDel(uint32_t{2});
    queue_->messageDel(uint32_t{9});
    EXPECT_EQ(queue_->messages(), 3u);
    queue_->messageDel(queue_->headMessage());
    EXPECT_EQ(vlanIds(), (std::vector<int>{20, 4}));
    queue_->messageIs(2, message(30));
    queue_->messageIs(7, message(40));
    queue_->messageEnq(message(50));
    EXPECT_EQ(vlanIds(), (std::vector<int>{20, 30, 4, 40, 50}));
    EXPECT_EQ(indexes(), (std::vector<uint32_t>{1, 2, 3, 7, 8}));
}

TEST_F(MessageQueueTest, IndexesWrapAround) {
    queue_->messageIs(0xFFFF'FFFE, message(1));
    enqueue(2, 4);
    EXPECT_EQ(indexes(), (std::vector<uint32_t>{0xFFFF'FFFE, 0xFFFF'FFFF, 0, 1}));
    queue_->messageDel(uint32_t{0});
    EXPECT_EQ(vlanIds(), (std::vector<int>{1, 2, 4}));
    queue_->messageDel(uint32_t{0xFFFF'FFFF});
    EXPECT_EQ(vlanIds(), (std::vector<int>{1, 4}));
}

TEST_F(MessageQueueTest, LetsGoOfItsMessagesAtItsEnd) {
    uint64_t before = Vela::Entity::liveCount();
    enqueue(1, 100);
    EXPECT_EQ(Vela::Entity::liveCount(), before + 100);
    queue_->destroy();
    EXPECT_EQ(queue_->messages(), 0u);
    EXPECT_EQ(Vela::Entity::liveCount(), before);
}

TEST_F(MessageQueueTest, Dumps) {
    EXPECT_EQ(dump(*queue_), "MessageQueue #messages=0\n");
    enqueue(1, 2);
    EXPECT_EQ(dump(*queue_, 2), "  MessageQueue #messages=2\n"
                                "    TrappedMessage " +
                                    message(1)->toStrep() +
                                    "\n"
                                    "    TrappedMessage " +
                                    message(2)->toStrep() + "\n");
}

} // namespace
} // namespace ArpSuppression
