// The rtnetlink socket against the real kernel.

#include "Linux/Rtnetlink.h"
#include "Linux/AddressMessage.h"
#include "Linux/LinkMessage.h"
#include "Testing/LiveSwitch.h"
#include "tests/netns/Kernel.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <unistd.h>
#include <utility>

namespace Netns {
namespace {

using Linux::NetlinkKind;

/// Keeps the devices' names by mark and sweep, and what it was told.
class LinkNames final : public Linux::NetlinkConsumer {
  public:
    void resyncStarted() override {
        seen_.clear();
        ++started;
    }
    void message(const nlmsghdr& message) override {
        auto link = Linux::decodeLink(message);
        ASSERT_TRUE(link);
        if (auto once = std::exchange(atFirstMessage, nullptr)) {
            once();
        }
        seen_.insert(link->ifIndex);
        if (link->removed) {
            names.erase(link->ifIndex);
        } else {
            names[link->ifIndex] = link->name;
        }
    }
    void resyncFinished() override {
        std::erase_if(names, [this](const auto& entry) { return !seen_.contains(entry.first); });
        ++finished;
    }

    bool has(const std::string& name) const {
        return std::any_of(names.begin(), names.end(),
                           [&](const auto& entry) { return entry.second == name; });
    }

    std::map<uint32_t, std::string> names;
    int started = 0;
    int finished = 0;
    std::function<void()> atFirstMessage;

  private:
    std::set<uint32_t> seen_;
};

/// The same with addresses, which the kernel dumps beside its changes.
class Addresses final : public Linux::NetlinkConsumer {
  public:
    void resyncStarted() override {
        seen_.clear();
        announced_.clear();
    }
    void message(const nlmsghdr& message) override {
        auto address = Linux::decodeAddress(message);
        ASSERT_TRUE(address);
        std::string text = address->address.toStrep();
        if (!Linux::isDumped(message)) {
            announced_.insert(text);
        } else if (announced_.contains(text)) {
            return;
        }
        seen_.insert(text);
        if (address->removed) {
            texts.erase(text);
        } else {
            texts.insert(text);
        }
    }
    void resyncFinished() override {
        std::erase_if(texts, [this](const auto& text) { return !seen_.contains(text); });
        ++finished;
    }

    std::set<std::string> texts;
    int finished = 0;

  private:
    std::set<std::string> seen_;
    std::set<std::string> announced_;
};

class RtnetlinkTest : public LiveKernelFixture {
  protected:
    Vela::Ptr<Linux::Rtnetlink> open(const std::string& netNs = "default", size_t buffer = 0) {
        return Vela::make<Linux::Rtnetlink>(live().scheduler(), live().changeLog(), netNs, buffer);
    }
};

TEST_F(RtnetlinkTest, dumpsWhatIsThereAndTellsOfWhatComes) {
    ip("link add first type bridge");
    auto socket = open();
    LinkNames links;
    EXPECT_FALSE(socket->synchronized());
    socket->consumerIs(NetlinkKind::links, links);
    ASSERT_TRUE(live().turnUntil([&] { return socket->synchronized(); }));
    EXPECT_EQ(links.started, 1);
    EXPECT_EQ(links.finished, 1);
    EXPECT_TRUE(links.has("first"));

    ip("link add second type bridge");
    ASSERT_TRUE(live().turnUntil([&] { return links.has("second"); }));
    ip("link set second name third");
    ASSERT_TRUE(live().turnUntil([&] { return links.has("third"); }));
    EXPECT_FALSE(links.has("second"));
    ip("link del first");
    ASSERT_TRUE(live().turnUntil([&] { return !links.has("first"); }));
    EXPECT_EQ(links.finished, 1);
    EXPECT_EQ(socket->statistics().overruns, 0u);
    socket->destroy();
}

TEST_F(RtnetlinkTest, aPortThatLeavesItsBridgeIsNoDeviceThatGoes) {
    ip("link add bridge type bridge");
    ip("link add port type veth peer name far");
    ip("link set port master bridge");
    auto socket = open();
    LinkNames links;
    socket->consumerIs(NetlinkKind::links, links);
    ASSERT_TRUE(live().turnUntil([&] { return socket->synchronized(); }));
    ip("link set port nomaster");
    ip("link set far name last");
    ASSERT_TRUE(live().turnUntil([&] { return links.has("last"); }));
    EXPECT_TRUE(links.has("port"));
    socket->destroy();
}

TEST_F(RtnetlinkTest, requestsForAResyncAreOneDump) {
    auto socket = open();
    LinkNames links;
    Addresses addresses;
    socket->consumerIs(NetlinkKind::links, links);
    socket->consumerIs(NetlinkKind::addresses, addresses);
    ASSERT_TRUE(live().turnUntil([&] { return socket->synchronized(); }));
    socket->requestResync(NetlinkKind::links);
    socket->requestResync(NetlinkKind::links);
    EXPECT_FALSE(socket->synchronized());
    ASSERT_TRUE(live().turnUntil([&] { return socket->synchronized(); }));
    EXPECT_EQ(links.finished, 2);
    EXPECT_EQ(addresses.finished, 1);
    // Of what nobody consumes there is no dump.
    socket->requestResync(NetlinkKind::fdb);
    EXPECT_TRUE(socket->synchronized());
    socket->destroy();
}

TEST_F(RtnetlinkTest, aNamespaceThatIsNotThereIsAnError) {
    EXPECT_THROW(open("no-such-" + std::to_string(getpid())), std::system_error);
}

TEST_F(RtnetlinkTest, anOverrunIsMadeUpForByADump) {
    ip("link add device type bridge");
    auto socket = open("default", 4096);
    LinkNames links;
    Addresses addresses;
    socket->consumerIs(NetlinkKind::links, links);
    socket->consumerIs(NetlinkKind::addresses, addresses);
    ASSERT_TRUE(live().turnUntil([&] { return socket->synchronized(); }));
    addresses.texts.insert("192.0.2.1/32"); // as if its deletion had been lost
    std::string batch;
    for (int i = 1; i < 250; ++i) {
        batch += "addr add 10.0.0." + std::to_string(i) + "/32 dev device\n";
    }
    for (int i = 1; i < 200; ++i) {
        batch += "addr del 10.0.0." + std::to_string(i) + "/32 dev device\n";
    }
    ipBatch(batch);
    ASSERT_TRUE(live().turnUntil(
        [&] { return socket->statistics().overruns > 0 && socket->synchronized(); }));
    std::set<std::string> expected{"127.0.0.1/8", "::1/128"};
    for (int i = 200; i < 250; ++i) {
        expected.insert("10.0.0." + std::to_string(i) + "/32");
    }
    EXPECT_EQ(addresses.texts, expected);
    EXPECT_GE(addresses.finished, 2);
    socket->destroy();
}

TEST_F(RtnetlinkTest, aDumpDuringWhichTheListChangesIsTakenAgain) {
    // More than the kernel tells in one piece.
    std::string batch;
    for (int i = 0; i < 150; ++i) {
        batch += "link add d" + std::to_string(i) + " type bridge\n";
    }
    ipBatch(batch);
    auto socket = open();
    LinkNames links;
    links.atFirstMessage = [] {
        ip("link del d0");
        ip("link add late type bridge");
    };
    socket->consumerIs(NetlinkKind::links, links);
    ASSERT_TRUE(live().turnUntil([&] { return socket->synchronized(); }));
    EXPECT_GE(socket->statistics().interrupted, 1u);
    EXPECT_EQ(socket->statistics().overruns, 0u);
    EXPECT_EQ(links.started, 2);
    EXPECT_EQ(links.finished, 1); // nothing is swept by what does not hang together
    EXPECT_TRUE(links.has("late"));
    EXPECT_FALSE(links.has("d0"));
    EXPECT_EQ(links.names.size(), 151u); // with the loopback
    socket->destroy();
}

TEST_F(RtnetlinkTest, aKindMayBeLeftOutLater) {
    auto socket = open();
    LinkNames links;
    socket->consumerIs(NetlinkKind::links, links);
    socket->consumerDel(NetlinkKind::links);
    EXPECT_FALSE(socket->synchronized()) << "nobody has heard of anything";
    ip("link add device type bridge");
    EXPECT_TRUE(live().turnUntil([&] { return socket->statistics().ignored > 0; }));
    EXPECT_EQ(links.started, 0);
    EXPECT_TRUE(links.names.empty());
    socket->destroy();
}

TEST_F(RtnetlinkTest, whileTheChangeLogIsOverHalfFullNothingIsRead) {
    auto socket = open();
    LinkNames links;
    socket->consumerIs(NetlinkKind::links, links);
    ASSERT_TRUE(live().turnUntil([&] { return socket->synchronized(); }));

    // The log drains by itself as soon as the loop turns, so what is read is looked at from within.
    int announced = 0;
    Vela::Reaction reaction =
        live().state().vrfIdMap->vrfCollection().react(nullptr, [&](Vrf::VrfId) {
            ++announced;
            if (live().changeLog()->overHalfFull()) {
                EXPECT_FALSE(links.has("late"));
            }
        });
    ip("link add late type bridge");
    for (uint32_t i = 0; i <= Quarry::ChangeLog::defaultCapacity / 2 + 1; ++i) {
        live().state().vrfIdMap->vrfIs(Vrf::VrfId(1), i % 2 == 0 ? "a" : "b");
    }
    ASSERT_TRUE(live().changeLog()->overHalfFull());
    ASSERT_TRUE(live().turnUntil([&] { return links.has("late"); }));
    EXPECT_FALSE(live().changeLog()->overHalfFull());
    EXPECT_GT(announced, static_cast<int>(Quarry::ChangeLog::defaultCapacity / 4));
    socket->destroy();
}

} // namespace
} // namespace Netns
