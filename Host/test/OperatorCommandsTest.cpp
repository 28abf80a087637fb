#include "Host/OperatorCommands.h"

#include "Platform/Base/UniqueFd.h"
#include "Testing/CoreFixture.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace Host {
namespace {

class TestAgent final : public Vela::Agent {
  public:
    TestAgent() : Agent("TestAgent") {}
    const char* typeName() const noexcept override { return "TestAgent"; }
    void dumpState(Vela::DumpContext& context, int indent) const override {
        context.print(indent, "TestAgent waits\n");
    }
    void doInit() override {}
    void doMountsComplete(Vela::MountStatus, const Vela::Ptr<Vela::EntityManager>&) override {}
};

/// Answers with its name and the line; refuses what has "bad" in it.
class Echo final : public Vela::AgentCommandCallback {
  public:
    explicit Echo(const char* name) : name_(name) {}
    const char* typeName() const noexcept override { return "Echo"; }
    const char* commandName() const override { return name_; }
    std::string refusal(const std::string& command) const override {
        return command.find("bad") == command.npos ? "" : "bad arguments";
    }
    void handleCommand(int fd, const std::string& command) override {
        Vela::DumpContext(fd).print(0, "%s <%s>\n", name_, command.c_str());
    }

  private:
    const char* name_;
};

class OperatorCommandsTest : public Testing::CoreFixture {
  protected:
    ~OperatorCommandsTest() override { agent_->destroy(); }

    void callbacksIs() {
        for (const char* name :
             {"showTechSupport", "showStatus", "showVlans", "showBindingsLocal", "explain"}) {
            agent_->commandRequestDirSm().callbackIs(Vela::make<Echo>(name));
        }
    }
    std::string answer(const std::string& command) const {
        EXPECT_EQ(commands_.refusal(command), "");
        return answerOf(commands_, command);
    }
    static std::string answerOf(const OperatorCommands& commands, const std::string& command) {
        return writtenBy([&](int fd) { commands.answer(command, fd); });
    }
    template <class Write>
    static std::string writtenBy(Write write) {
        Vela::UniqueFd file(memfd_create("answer", MFD_CLOEXEC));
        write(file.get());
        std::string text(static_cast<size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(file.get(), text.data(), text.size(), 0),
                  static_cast<ssize_t>(text.size()));
        return text;
    }

    OperatorCommands::Sources sources() {
        return {.agent = *agent_,
                .dumpDaemon = [](Vela::DumpContext& context) { context.print(0, "daemon\n"); },
                .writeNeighbors =
                    [](bool json, int fd) {
                        Vela::DumpContext(fd).print(0, "neighbours %s\n", json ? "json" : "text");
                    }};
    }

    Vela::Ptr<TestAgent> agent_ = Vela::make<TestAgent>();
    OperatorCommands commands_{sources()};
};

TEST_F(OperatorCommandsTest, TheAgentAnswersWhatIsIts) {
    callbacksIs();
    EXPECT_EQ(answer("show status"), "showStatus <show status>\n");
    EXPECT_EQ(answer("show status 10 -j"), "showStatus <show status 10 -j>\n");
    EXPECT_EQ(answer("show vlans -j"), "showVlans <show vlans -j>\n");
    EXPECT_EQ(answer("show bindings local 10.0.0.1 10 -j"),
              "showBindingsLocal <show bindings local 10.0.0.1 10 -j>\n");
    EXPECT_EQ(answer("explain 10.0.0.1"), "explain <explain 10.0.0.1>\n");
    EXPECT_EQ(answer("show tech-support"), "daemon\nshowTechSupport <show tech-support>\n");
}

TEST_F(OperatorCommandsTest, TheAgentRefusesWhatMakesNoSense) {
    callbacksIs();
    EXPECT_EQ(commands_.refusal("show status bad"), "bad arguments");
    EXPECT_EQ(commands_.refusal("show vlans bad"), "bad arguments");
}

TEST_F(OperatorCommandsTest, BeforeTheAgentIsReady) {
    const std::string waits =
        "the agent still waits for what it mounts; show tech-support says for what";
    EXPECT_EQ(commands_.refusal("show status"), waits);
    EXPECT_EQ(commands_.refusal("show vlans"), waits);
    EXPECT_EQ(answer("show tech-support"), "daemon\nTestAgent waits\n");
    EXPECT_EQ(answer("show neighbours"), "neighbours text\n");
    EXPECT_EQ(answer("show neighbours -j"), "neighbours json\n");
}

TEST_F(OperatorCommandsTest, WhatIsNoCommand) {
    callbacksIs();
    for (const char* command :
         {"", "show", "show ", "show statusx", "show vlan", "Show vlans", " show vlans",
          "show tech-support -j", "show tech-support ", "show forwarding-plane x",
          "show forwarding-plane -j -j", "show neighbours x", "show neighbour", "show bindings",
          "show bindings remote", "show bindings locals", "explained", "Explain 10.0.0.1"}) {
        EXPECT_EQ(commands_.refusal(command),
                  unknownCommand(command,
                                 "show tech-support, show status [VLAN] [-j], show vlans "
                                 "[-j], show bindings local [ADDRESS] [VLAN] [-j], explain ADDRESS "
                                 "[VLAN] [-j], show neighbours [-j], show forwarding-plane [-j]"))
            << command;
    }
}

TEST_F(OperatorCommandsTest, WithoutAForwardingPlane) {
    EXPECT_EQ(commands_.refusal("show forwarding-plane"), "this arpsupd has no forwarding plane");
    EXPECT_EQ(commands_.refusal("show forwarding-plane -j"),
              "this arpsupd has no forwarding plane");
}

TEST_F(OperatorCommandsTest, TheForwardingPlaneAsItIsWhenAsked) {
    uint64_t trapped = 1;
    auto withPlane = sources();
    withPlane.forwardingPlane = [&trapped] {
        return ForwardingPlaneReport{.enabled = true,
                                     .silentBecause = trapped > 1 ? "" : "nobody reads",
                                     .tunnels = {7, 12},
                                     .problems = {"not on device 13"},
                                     .counters = {{"trapped", trapped}, {"delivered", 0}}};
    };
    const OperatorCommands commands(std::move(withPlane));
    EXPECT_EQ(commands.refusal("show forwarding-plane"), "");
    EXPECT_EQ(commands.refusal("show forwarding-plane -j"), "");
    EXPECT_EQ(answerOf(commands, "show forwarding-plane"),
              "enabled yes\n"
              "trapping no, nobody reads\n"
              "tunnels 7 12\n"
              "problem not on device 13\n"
              "trapped                                        1\n"
              "delivered                                      0\n");
    EXPECT_EQ(
        boost::json::parse(answerOf(commands, "show forwarding-plane -j")).at("silentBecause"),
        "nobody reads");
    trapped = 18446744073709551615u;
    EXPECT_EQ(boost::json::parse(answerOf(commands, "show forwarding-plane -j")),
              boost::json::parse(R"({"enabled":true,"trapping":true,"tunnels":[7,12],
                  "problems":["not on device 13"],
                  "counters":{"trapped":18446744073709551615,"delivered":0}})"));
}

TEST_F(OperatorCommandsTest, AForwardingPlaneWithoutTunnels) {
    EXPECT_EQ(writtenBy([](int fd) { writeForwardingPlane({}, false, fd); }),
              "enabled no\ntrapping yes\ntunnels none\n");
    EXPECT_EQ(
        writtenBy([](int fd) { writeForwardingPlane({}, true, fd); }),
        "{\"enabled\":false,\"trapping\":true,\"tunnels\":[],\"problems\":[],\"counters\":{}}\n");
}

TEST_F(OperatorCommandsTest, TheControlSocketGetsBoth) {
    callbacksIs();
    ControlCommands control = commands_.controlCommands();
    EXPECT_EQ(control.refusal("show status bad"), "bad arguments");
    EXPECT_EQ(control.refusal("show status"), "");
    EXPECT_EQ(writtenBy([&](int fd) { control.handler("show vlans", fd); }),
              "showVlans <show vlans>\n");
}

} // namespace
} // namespace Host
