#include "ArpSuppression/SuppressionDecision.h"

#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>

namespace ArpSuppression {

namespace {

using Action = DecisionAction;
using Id = ArpSuppressionCounterId;
using Port = Asker::Port;
using Rule = DecisionRule;

const Zinc::EthAddr none;
const Zinc::EthAddr localMac("02:00:00:00:00:0a");
const Zinc::EthAddr remoteMac("02:00:00:00:00:0b");

TargetFacts facts(MacConnectionType type, const Zinc::EthAddr& local, const Zinc::EthAddr& remote) {
    TargetFacts facts;
    facts.localBindingMacAddress = local;
    facts.hasRemoteBinding = !remote.isZero();
    facts.remoteBindingMacAddress = remote;
    facts.bindingMacAddress = local.isZero() ? remote : local;
    facts.connectionType = type;
    return facts;
}

void expectDecision(const TargetFacts& facts, const Asker& asker, Rule rule, Action action,
                    std::optional<Id> counter = {}, const Zinc::EthAddr& mac = none) {
    Decision decision = decide(facts, asker);
    EXPECT_STREQ(stringValue(decision.rule), stringValue(rule));
    EXPECT_STREQ(stringValue(decision.action), stringValue(action)) << stringValue(rule);
    EXPECT_EQ(decision.counter, counter) << stringValue(rule);
    EXPECT_EQ(decision.macAddress, mac) << stringValue(rule);
}

const Asker host;
const Asker ofSwitch{.localArpReq = true};

TEST(SuppressionDecisionTest, theFirstRuleThatAppliesCounts) {
    TargetFacts all = facts(MacConnectionType::remote, none, remoteMac);
    Asker asker{.probe = true, .announcement = true};
    expectDecision(all, host, Rule::remoteBinding, Action::reply, Id::answeredFromRemoteBinding,
                   remoteMac);
    expectDecision(all, {.probe = true}, Rule::probe, Action::sendToRemoteTeps);
    expectDecision(all, asker, Rule::announcement, Action::sendToRemoteTeps);
    all.targetIsMine = true;
    expectDecision(all, asker, Rule::targetIsMine, Action::nothing, Id::targetIsMine);
    all.ignoreVxlan = true;
    expectDecision(all, asker, Rule::remoteVxlan, Action::nothing);
}

TEST(SuppressionDecisionTest, aHostElsewhere) {
    for (auto type : {MacConnectionType::unknown, MacConnectionType::remote}) {
        for (const Asker& asker : {host, ofSwitch}) {
            expectDecision(facts(type, none, none), asker, Rule::noRemoteBinding,
                           Action::sendToRemoteTeps);
            expectDecision(facts(type, localMac, none), asker, Rule::noRemoteBinding,
                           Action::sendToRemoteTeps);
        }
        // The kernel's neighbour goes before the remote binding.
        expectDecision(facts(type, localMac, remoteMac), host, Rule::remoteBinding, Action::reply,
                       Id::answeredFromRemoteBinding, localMac);
        expectDecision(facts(type, none, remoteMac), ofSwitch, Rule::remoteBinding, Action::bind,
                       Id::answeredFromRemoteBinding, remoteMac);
    }
}

TEST(SuppressionDecisionTest, aReplyNeedsAPortThatIsNotTheTargets) {
    TargetFacts remote = facts(MacConnectionType::remote, none, remoteMac);
    expectDecision(remote, {.port = Port::unknown}, Rule::remoteBinding, Action::unknownSourcePort,
                   Id::answeredFromRemoteBinding, remoteMac);
    expectDecision(remote, {.port = Port::ofTarget}, Rule::remoteBinding, Action::samePort,
                   Id::answeredFromRemoteBinding, remoteMac);
    for (Port port : {Port::unknown, Port::ofTarget, Port::other}) {
        expectDecision(remote, {.localArpReq = true, .port = port}, Rule::remoteBinding,
                       Action::bind, Id::answeredFromRemoteBinding, remoteMac);
    }
}

TEST(SuppressionDecisionTest, aHostHere) {
    auto df = MacConnectionType::localMultihomedDf;
    auto nonDf = MacConnectionType::localMultihomedNonDf;
    for (const Asker& asker : {host, ofSwitch}) {
        expectDecision(facts(MacConnectionType::localSinglehomed, localMac, remoteMac), asker,
                       Rule::localSinglehomed, Action::nothing, Id::localTargetNotAnswered);
        expectDecision(facts(df, localMac, none), asker, Rule::segmentWithForwarder,
                       Action::nothing, Id::localTargetNotAnswered);
    }
    expectDecision(facts(df, localMac, remoteMac), host, Rule::segmentWithForwarder,
                   Action::nothing, Id::localTargetNotAnswered);
    expectDecision(facts(df, localMac, remoteMac), ofSwitch, Rule::switchAsksOnSegmentWithForwarder,
                   Action::bind, Id::answeredForDesignatedForwarder, remoteMac);
    expectDecision(facts(nonDf, localMac, remoteMac), host, Rule::segmentWithoutForwarder,
                   Action::reply, Id::answeredForNonDesignatedForwarder, localMac);
    expectDecision(facts(nonDf, localMac, remoteMac), ofSwitch,
                   Rule::switchAsksOnSegmentWithoutForwarder, Action::bind,
                   Id::answeredForNonDesignatedForwarder, remoteMac);
    expectDecision(facts(nonDf, localMac, none), ofSwitch, Rule::switchAsksWithoutRemoteBinding,
                   Action::sendToRemoteTeps);
    expectDecision(facts(nonDf, none, remoteMac), ofSwitch, Rule::segmentWithoutForwarder,
                   Action::bind, Id::answeredForNonDesignatedForwarder, remoteMac);
}

TEST(SuppressionDecisionTest, actionsThatAlwaysCount) {
    EXPECT_EQ(counterOf(Action::sendToRemoteTeps), Id::sentToRemoteTeps);
    EXPECT_EQ(counterOf(Action::unknownSourcePort), Id::unknownSourcePort);
    EXPECT_EQ(counterOf(Action::samePort), Id::sourceAndTargetOnSamePort);
    for (Action action : {Action::nothing, Action::bind, Action::reply}) {
        EXPECT_EQ(counterOf(action), std::nullopt) << stringValue(action);
    }
}

TEST(SuppressionDecisionTest, everyRuleHasANameAndAReasonOfItsOwn) {
    std::set<std::string> names;
    std::set<std::string> reasons;
    for (uint8_t number = 0; number <= uint8_t(Rule::switchAsksWithoutRemoteBinding); ++number) {
        EXPECT_TRUE(names.insert(stringValue(Rule(number))).second);
        EXPECT_TRUE(reasons.insert(reasonOf(Rule(number))).second);
    }
    EXPECT_STREQ(stringValue(Rule::remoteVxlan), "remoteVxlan");
    EXPECT_STREQ(stringValue(Rule::switchAsksWithoutRemoteBinding),
                 "switchAsksWithoutRemoteBinding");
    EXPECT_STREQ(reasonOf(Rule::switchAsksWithoutRemoteBinding),
                 "the host is on an Ethernet segment without a designated forwarder, and has no "
                 "remote binding");
}

TEST(SuppressionDecisionDeathTest, thereIsNoOtherConnection) {
    EXPECT_DEATH(decide(facts(MacConnectionType(5), none, none), host),
                 "decideByConnection.*false");
}

} // namespace

} // namespace ArpSuppression
