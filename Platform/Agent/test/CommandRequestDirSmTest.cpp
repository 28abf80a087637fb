#include "Platform/Agent/CommandCallback.h"

#include "Platform/State/DumpContext.h"
#include "Platform/State/test/StateFixture.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace Vela {

namespace {

class NamedCallback final : public AgentCommandCallback {
  public:
    explicit NamedCallback(std::string name) : name_(std::move(name)) {}
    const char* typeName() const noexcept override { return "NamedCallback"; }
    const char* commandName() const override { return name_.c_str(); }
    void handleCommand(int fd, const std::string& command) override {
        handled.emplace_back(fd, command);
    }

    std::vector<std::pair<int, std::string>> handled;

  private:
    const std::string name_;
};

class CommandRequestDirSmTest : public StateFixture {
  protected:
    Ptr<CommandRequestDirSm> commands = make<CommandRequestDirSm>();
    std::vector<std::string> seen;
    Reaction reaction = commands->callbackCollection().react(
        nullptr, [this](const std::string& name) { seen.push_back(name); });
};

TEST_F(CommandRequestDirSmTest, findsACallbackByItsName) {
    auto showTech = make<NamedCallback>("show-tech");
    commands->callbackIs(showTech);
    EXPECT_EQ(commands->callback("show-tech"), showTech);
    EXPECT_FALSE(commands->callback("show"));
    EXPECT_FALSE(commands->callback(""));
    EXPECT_EQ(commands->callbackCollection().count(), 1u) << "a look-up adds nothing";
    commands->callback("show-tech")->handleCommand(7, "show-tech all");
    EXPECT_EQ(showTech->handled, (std::vector<std::pair<int, std::string>>{{7, "show-tech all"}}));
}

TEST_F(CommandRequestDirSmTest, keepsTheLastOfAName) {
    uint64_t before = Entity::liveCount();
    commands->callbackIs(make<NamedCallback>("show-tech"));
    auto second = make<NamedCallback>("show-tech");
    commands->callbackIs(second);
    commands->callbackIs(second);
    EXPECT_EQ(commands->callback("show-tech"), second);
    EXPECT_EQ(commands->callbackCollection().count(), 1u);
    EXPECT_EQ(Entity::liveCount(), before + 1) << "the first is gone";
    EXPECT_EQ(seen, (std::vector<std::string>{"show-tech", "show-tech"}));
}

TEST_F(CommandRequestDirSmTest, forgetsACallback) {
    commands->callbackIs(make<NamedCallback>("a"));
    commands->callbackIs(make<NamedCallback>("b"));
    commands->callbackDel("a");
    commands->callbackDel("a");
    EXPECT_FALSE(commands->callback("a"));
    EXPECT_TRUE(commands->callback("b"));
    EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "a"}));
}

TEST_F(CommandRequestDirSmTest, dumpsTheNames) {
    commands->callbackIs(make<NamedCallback>("show-tech"));
    commands->callbackIs(make<NamedCallback>("clear"));
    DumpContext dump;
    commands->dumpState(dump, 2);
    EXPECT_EQ(dump.text(), "  CommandRequestDirSm\n"
                           "    clear\n"
                           "    show-tech\n");
}

} // namespace

} // namespace Vela
