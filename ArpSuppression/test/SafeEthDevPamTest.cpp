#include "ArpSuppression/SafeEthDevPam.h"

#include "Platform/Base/Errors.h"
#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/PacketPorts.h"
#include "Testing/TraceCapture.h"

#include <cerrno>
#include <string>
#include <string_view>

namespace ArpSuppression {

namespace {

using Testing::TraceCapture;

class SafeEthDevPamTest : public Testing::CoreFixture {
  protected:
    Vela::Ptr<SafeEthDevPam> pamIs(std::string netNs = "default") {
        return safeEthDevPamFactory("Vlan10", 0x0806, std::move(netNs), scheduler());
    }
    static std::string dumpOf(const SafeEthDevPam& pam, int indent) {
        Vela::DumpContext dump;
        pam.dumpState(dump, indent);
        return dump.text();
    }
    bool nothingPending() { return !scheduler()->hasReadyTask() && !scheduler()->nextDue(); }

    Testing::PacketPorts ports;
};

TEST_F(SafeEthDevPamTest, isEnabledSoonAfterItsConstructionAndThenLeftAlone) {
    ports.deviceIs("Vlan10", 7);
    TraceCapture capture("ArpSuppression=8");
    auto pam = pamIs();
    EXPECT_FALSE(pam->enabled());
    EXPECT_EQ(ports.opened(), 0u);
    runUntilIdle();
    EXPECT_TRUE(pam->enabled());
    EXPECT_EQ(pam->ifIndex(), 7u);
    ASSERT_EQ(ports.bindings().size(), 1u);
    EXPECT_EQ(ports.bindings()[0].protocol, 0x0806);
    EXPECT_TRUE(nothingPending());
    runFor(20);
    EXPECT_EQ(ports.opened(), 1u);
    EXPECT_EQ(capture.count(" enabled\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count("what="), 0u);
}

TEST_F(SafeEthDevPamTest, aDeviceThatComesLaterIsFoundAtTheNextRetry) {
    TraceCapture capture("ArpSuppression=2");
    auto pam = pamIs();
    runUntilIdle();
    EXPECT_EQ(capture.count("what=Vlan10: device: No such device\n"), 1u) << capture.text();
    runFor(4.9);
    EXPECT_EQ(capture.count("what="), 1u);
    runFor(2.1); // seven seconds
    EXPECT_EQ(capture.count("what="), 2u);
    ports.deviceIs("Vlan10", 7);
    runFor(2.9);
    EXPECT_FALSE(pam->enabled());
    runFor(0.1);
    EXPECT_TRUE(pam->enabled());
    EXPECT_EQ(capture.count("what="), 2u) << capture.text();
    EXPECT_TRUE(nothingPending());
}

TEST_F(SafeEthDevPamTest, triesForeverWhateverKeepsIt) {
    ports.deviceIs("Vlan10", 7);
    ports.openError = EMFILE;
    TraceCapture capture("ArpSuppression=2");
    auto pam = pamIs();
    runFor(3600);
    EXPECT_EQ(capture.count("what=Vlan10: packet socket: Too many open files\n"), 721u);
    ports.openError = 0;
    ports.bindError = ENODEV;
    runFor(5);
    EXPECT_EQ(capture.count("what=Vlan10: bind: No such device\n"), 1u);
    ports.bindError = 0;
    runFor(5);
    EXPECT_TRUE(pam->enabled());
}

TEST_F(SafeEthDevPamTest, aNamespaceThatIsNotThereIsAReasonLikeAnother) {
    ports.deviceIs("Vlan10", 7);
    TraceCapture capture("ArpSuppression=2");
    auto pam = pamIs("no-such-namespace");
    runFor(7);
    EXPECT_EQ(capture.count("what="), 2u) << capture.text();
    EXPECT_EQ(ports.opened(), 0u);
    EXPECT_FALSE(pam->enabled());
}

TEST_F(SafeEthDevPamTest, whatItReceivesIsThere) {
    ports.deviceIs("Vlan10", 7);
    auto pam = pamIs();
    runUntilIdle();
    ports.inject(7, Testing::Frame{1, 2});
    runUntilIdle();
    auto pkt = pam->rxPkt();
    ASSERT_TRUE(pkt);
    EXPECT_EQ(pkt->size(), 2u);
    EXPECT_FALSE(pam->rxPkt());
}

TEST_F(SafeEthDevPamTest, aDeviceThatIsDownIsEnabledAtTheFirstRetryAfterItComesUp) {
    ports.deviceIs("Vlan10", 7);
    ports.downIs(7, true);
    TraceCapture capture("ArpSuppression=2");
    auto pam = pamIs();
    runFor(7);
    EXPECT_EQ(capture.count("what=Vlan10: bind: Network is down\n"), 2u) << capture.text();
    ports.downIs(7, false);
    runFor(2.9);
    EXPECT_FALSE(pam->enabled());
    runFor(0.1);
    EXPECT_TRUE(pam->enabled());
    EXPECT_EQ(capture.count("what="), 2u) << capture.text();
}

TEST_F(SafeEthDevPamTest, aDeviceThatGoesDownIsListenedToAgain) {
    ports.deviceIs("Vlan10", 7);
    auto pam = pamIs();
    runUntilIdle();
    TraceCapture capture("ArpSuppression=8");
    ports.downIs(7, true);
    runFor(7);
    EXPECT_FALSE(pam->enabled());
    EXPECT_EQ(capture.count("what="), 2u) << "at once, and after five seconds";
    ports.downIs(7, false);
    runFor(3);
    EXPECT_TRUE(pam->enabled());
    EXPECT_EQ(capture.count(" enabled\n"), 1u) << capture.text();
    EXPECT_TRUE(nothingPending());
    // One that is back before anybody looks, under the same index.
    ports.downIs(7, true);
    ports.downIs(7, false);
    runUntilIdle();
    EXPECT_TRUE(pam->enabled());
    EXPECT_EQ(capture.count("what="), 2u) << capture.text();
    ports.inject(7, Testing::Frame{1, 2});
    runUntilIdle();
    EXPECT_TRUE(pam->rxPkt());
    ASSERT_EQ(ports.bindings().size(), 1u) << "the old socket is closed";
}

TEST_F(SafeEthDevPamTest, itsEndIsTheEndOfItsRetries) {
    auto pam = pamIs();
    auto enableSm = pam->enableSm();
    auto enableTask = enableSm->enableTask();
    runUntilIdle();
    EXPECT_TRUE(enableTask->scheduled());
    ports.deviceIs("Vlan10", 7);
    TraceCapture capture("ArpSuppression=8");
    pam->destroy();
    EXPECT_EQ(capture.count("handleDestroy SafeEthDevPamEnableSm("), 1u) << capture.text();
    EXPECT_TRUE(enableSm->destroyed());
    EXPECT_TRUE(enableTask->destroyed());
    EXPECT_FALSE(pam->enableSm());
    runFor(20);
    EXPECT_EQ(ports.opened(), 0u);
    EXPECT_FALSE(pam->enabled());
    EXPECT_TRUE(nothingPending());
}

TEST_F(SafeEthDevPamTest, oneThatEndsBeforeItsFirstAttemptMakesNone) {
    ports.deviceIs("Vlan10", 7);
    pamIs()->destroy();
    pamIs().reset();
    runUntilIdle();
    EXPECT_EQ(ports.opened(), 0u);
}

TEST_F(SafeEthDevPamTest, limitsAreCheckedAtConstruction) {
    ports.deviceIs("Vlan10", 7);
    auto refused = [this](SafeEthDevPam::Limits limits) -> std::string {
        try {
            safeEthDevPamFactory("Vlan10", 0x0806, "default", scheduler(), limits);
        } catch (const Vela::RangeError& error) {
            return error.what();
        }
        return "";
    };
    const std::string prio = "Zinc::EthDevPam::sockPrio < 0 or > 15 not allowed";
    const std::string limit = "Zinc::EthDevPam::socketReadLimit < 1 or > 64 not allowed";
    EXPECT_EQ(refused({0, 0}), limit);
    EXPECT_EQ(refused({0, 65}), limit);
    EXPECT_EQ(refused({16, 1}), prio);
    EXPECT_EQ(refused({16, 0}), prio);
    EXPECT_EQ(refused({0, 1}), "");
    EXPECT_EQ(refused({15, 64}), "");
    runUntilIdle();
    EXPECT_EQ(ports.opened(), 0u) << "nothing is left of those";
    EXPECT_TRUE(nothingPending());
}

TEST_F(SafeEthDevPamTest, saysWhatItIs) {
    auto pam = pamIs();
    EXPECT_STREQ(pam->typeName(), "SafeEthDevPam");
    EXPECT_EQ(pam->sockPrio(), 0u);
    EXPECT_EQ(dumpOf(*pam, 0), "SafeEthDevPam Vlan10 disabled\n  ethProtocol 2054\n"
                               "  netNs default\n");
    ports.deviceIs("Vlan10", 7);
    runUntilIdle();
    EXPECT_EQ(dumpOf(*pam, 4), "    SafeEthDevPam Vlan10 enabled\n      ethProtocol 2054\n"
                               "      netNs default\n");
    Vela::DumpContext tasks;
    scheduler()->dumpState(tasks, 0);
    EXPECT_NE(tasks.text().find("SafeEthDevPam-Vlan10"), std::string::npos) << tasks.text();
}

} // namespace

} // namespace ArpSuppression
