// The agent as the host has it: out of its shared library.

#include "Platform/Agent/AgentFactory.h"

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/State/CaughtErrors.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TraceCapture.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using ArpSuppression::ArpSuppressionAgent;
using Vela::Agent;
using Vela::AgentLibraryError;
using Vela::loadAgent;
using Vela::Ptr;
using Zinc::IntfId;

/// The file that an address is mapped from.
std::string fileOf(const void* address) {
    Dl_info info{};
    EXPECT_NE(dladdr(address, &info), 0);
    return info.dli_fname ? fs::canonical(info.dli_fname) : fs::path();
}

/// The file that has the code of an object's virtual functions.
std::string codeOf(const Agent& agent) {
    const void* table = nullptr;
    std::memcpy(&table, dynamic_cast<const void*>(&agent), sizeof table);
    return fileOf(table);
}

/// What `nm` says of the library's dynamic symbols, a name each.
std::vector<std::string> dynamicSymbols(const std::string& library, const std::string& which) {
    std::string command = NM_PROGRAM " -D -C -P " + which + " '" + library + "'";
    FILE* output = popen(command.c_str(), "r");
    std::vector<std::string> names;
    char line[4096];
    while (output && std::fgets(line, sizeof line, output)) {
        names.emplace_back(line);
        names.back().pop_back();
    }
    EXPECT_TRUE(output && pclose(output) == 0) << command;
    return names;
}

std::string errorOf(const std::string& library) {
    try {
        loadAgent(library, "agent");
    } catch (const AgentLibraryError& error) {
        return error.what();
    }
    return "no error";
}

class AgentLibraryTest : public Testing::SwitchFixture {
  protected:
    AgentLibraryTest() {
        unsetenv("SWIFTLOGDIR");
        Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
    }
    ~AgentLibraryTest() override {
        if (agent) {
            agent->destroy();
        }
        Vela::Swiftlog::close();
    }

    void load(const std::string& library = AGENT_LIBRARY, const std::string& name = "Arps") {
        agent = loadAgent(library, name);
    }
    /// The agent as this side knows its class.
    const ArpSuppression::ArpSuppressionMounts& mounts() const {
        return *dynamic_cast<const ArpSuppressionAgent&>(*agent).mounts();
    }

    Ptr<Agent> agent;
};

TEST_F(AgentLibraryTest, theCodeIsTheLibrarys) {
    load();
    EXPECT_EQ(codeOf(*agent), fs::canonical(AGENT_LIBRARY));
    auto mine = ArpSuppression::arpSuppressionAgentFactory("Arps");
    EXPECT_EQ(codeOf(*mine), fs::canonical("/proc/self/exe")) << "the same class, linked in";
    mine->destroy();
}

TEST_F(AgentLibraryTest, theAgentComesToMountsComplete) {
    load();
    EXPECT_EQ(agent->name(), "Arps");
    EXPECT_STREQ(agent->typeName(), "ArpSuppressionAgent");
    start(*agent, true);
    EXPECT_TRUE(agent->localEntitiesCreated());
    EXPECT_TRUE(agent->isPhysicalHardware());
    ASSERT_TRUE(dynamic_cast<ArpSuppressionAgent&>(*agent).mounts());
}

TEST_F(AgentLibraryTest, theAgentKnowsWhatTheHostMade) {
    load();
    start(*agent);
    EXPECT_EQ(mounts().arpSuppressionStatus(), state().arpSuppressionStatus);
    EXPECT_EQ(mounts().arpInputConfig(), state().arpInputConfig);
    EXPECT_EQ(mounts().allVrfStatusLocal(), state().allVrfStatusLocal);
    EXPECT_EQ(mounts().ipStatus(), state().ipStatus);
    EXPECT_EQ(mounts().ip6Status(), state().ip6Status);
    EXPECT_EQ(mounts().bridgingConfig(), state().bridgingConfig);
    EXPECT_EQ(mounts().evpnStatus(), state().evpnStatus);
    EXPECT_EQ(mounts().evpnMplsConfig(), state().evpnMplsConfig);
    EXPECT_EQ(mounts().fhrpVrMacStatus(), state().fhrpVrMacStatus);
    EXPECT_EQ(mounts().allIntfStatusDir(), state().allIntfStatusDir);
    EXPECT_EQ(mounts().allIntfStatusLocalDir(), state().allIntfStatusLocalDir);
    EXPECT_EQ(mounts().l2VpnConfig(), state().l2VpnConfig);
    EXPECT_EQ(mounts().intfEncapServiceIntf(), state().intfEncapServiceIntf);
    EXPECT_EQ(mounts().vrfIdMap(), state().vrfIdMap);
    EXPECT_EQ(mounts().arpStatus(), state().arpStatus);
    EXPECT_EQ(mounts().bridgingStatus(), state().bridgingStatus);
    EXPECT_EQ(mounts().remoteBindingConfig(), state().remoteBindingConfig);
    EXPECT_EQ(state().arpInputConfig->source(), Arp::ArpSource::arpSuppression);
}

TEST_F(AgentLibraryTest, theHostKnowsWhatTheAgentMade) {
    auto localPath = entityManager()->cellPath("interface/status/local");
    entityManager()->entityDel("interface/status/all");
    entityManager()->entityDel(localPath);
    load();
    start(*agent);
    auto all = entityManager()->entity<Interface::AllIntfStatusDir>("interface/status/all");
    ASSERT_TRUE(all);
    EXPECT_EQ(all->name(), "AllIntfStatusDir");
    EXPECT_TRUE(entityManager()->entity<Interface::AllIntfStatusLocalDir>(localPath));

    auto readers = tableService()->mountGroup();
    const char* path = "arpSuppression/counter";
    readers->mount<ArpSuppression::ArpSuppressionCounterStatus>(path, Quarry::MountType::reader);
    auto counters = readers->entity<const ArpSuppression::ArpSuppressionCounterStatus>(path);
    ASSERT_TRUE(counters);
    EXPECT_EQ(counters, mounts().arpSuppressionCounterStatus());
    EXPECT_EQ(counters->counterCollection().count(), 58u);
    readers->destroy();
}

TEST_F(AgentLibraryTest, theAgentFollowsTheHostsState) {
    state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
    load();
    start(*agent);
    state().vrfIdMap->vrfIs(Vrf::VrfId(7), "red");
    runUntilIdle();
    EXPECT_EQ(mounts().vrfNameToIdMap()->vrfId("default"), Vrf::VrfId(0));
    EXPECT_EQ(mounts().vrfNameToIdMap()->vrfId("red"), Vrf::VrfId(7));
    agent->destroy();
    state().vrfIdMap->vrfIs(Vrf::VrfId(8), "blue");
    runUntilIdle();
}

TEST_F(AgentLibraryTest, traceAndDumpAreThoseOfTheHost) {
    Testing::TraceCapture trace("ArpSuppression=8");
    load();
    start(*agent);
    EXPECT_EQ(trace.count(" doInit\n"), 1u) << trace.text();
    EXPECT_EQ(trace.count(" doMountsComplete\n"), 1u) << trace.text();
    EXPECT_TRUE(Vela::Swiftlog::fileName().starts_with(directory() + "/log/Arps-"));
    Vela::DumpContext dump;
    agent->dumpState(dump, 0);
    EXPECT_TRUE(dump.text().starts_with("ArpSuppressionAgent\n")) << dump.text();
    EXPECT_NE(dump.text().find("ArpSuppressionMounts\n"), std::string::npos) << dump.text();
}

TEST_F(AgentLibraryTest, makesOneAgentAfterTheOther) {
    for (const char* name : {"first", "second"}) {
        load(AGENT_LIBRARY, name);
        EXPECT_EQ(agent->name(), name);
        start(*agent);
        EXPECT_TRUE(dynamic_cast<ArpSuppressionAgent&>(*agent).mounts());
        agent->destroy();
        restartSwitch();
    }
}

TEST_F(AgentLibraryTest, isNeverUnloaded) {
    load();
    agent->destroy();
    agent.reset();
    void* handle = dlopen(AGENT_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    dlclose(handle);
    dlclose(handle); // in the place of the one who loaded it
    EXPECT_NE(dlopen(AGENT_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST_F(AgentLibraryTest, theLibraryExportsItsFactoryAlone) {
    EXPECT_EQ(dynamicSymbols(AGENT_LIBRARY, "--defined-only").size(), 1u);
    EXPECT_TRUE(dynamicSymbols(AGENT_LIBRARY, "--defined-only")
                    .front()
                    .starts_with(std::string(Vela::agentFactoryName) + " T "));
    EXPECT_GT(dynamicSymbols(PLATFORM_LIBRARY, "--defined-only").size(), 100u)
        << "what exports more shows more";

    void* library = dlopen(AGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(library, nullptr);
    void* factory = dlsym(library, Vela::agentFactoryName);
    ASSERT_NE(factory, nullptr);
    EXPECT_EQ(fileOf(factory), fs::canonical(AGENT_LIBRARY));
    // arpSuppressionAgentFactory, which it has as well
    EXPECT_EQ(dlsym(library, "_ZN14ArpSuppression26arpSuppressionAgentFactoryERKNSt7__cxx1112basic_"
                             "stringIcSt11char_traitsIcESaIcEEE"),
              nullptr);
}

// Two copies of the platform would disagree about interned names, live entities and trace levels.
TEST_F(AgentLibraryTest, theLibraryLeansOnTheHostsPlatform) {
    std::vector<std::string> needed = dynamicSymbols(AGENT_LIBRARY, "--undefined-only");
    for (const char* symbol :
         {"Vela::Entity::Entity() ", "Vela::failAssertion(", "Quarry::TableService::mountGroup() ",
          "Vela::Swiftlog::", "Zinc::IntfId::IntfId("}) {
        EXPECT_TRUE(std::any_of(needed.begin(), needed.end(), [&](const std::string& name) {
            return name.starts_with(symbol);
        })) << symbol;
    }
}

TEST_F(AgentLibraryTest, theFactoryRefusesAnotherPlatform) {
    void* library = dlopen(AGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(library, nullptr);
    auto factory = std::bit_cast<Vela::AgentFactory>(dlsym(library, Vela::agentFactoryName));
    uint64_t before = Vela::Entity::liveCount();
    for (uint64_t abi : {uint64_t{0}, Vela::platformAbi() + 1, ~Vela::platformAbi()}) {
        EXPECT_EQ(factory(abi, "Arps"), nullptr);
    }
    EXPECT_EQ(Vela::Entity::liveCount(), before);
    Ptr<Agent> right(factory(Vela::platformAbi(), "Arps"), false);
    ASSERT_TRUE(right);
    EXPECT_EQ(codeOf(*right), fs::canonical(AGENT_LIBRARY));
    right->destroy();
}

TEST_F(AgentLibraryTest, aLibraryOfAnotherPlatformIsRefused) {
    EXPECT_EQ(errorOf(STRANGE_AGENT_LIBRARY),
              STRANGE_AGENT_LIBRARY ": was built against other headers of the platform");
}

TEST_F(AgentLibraryTest, aLibraryThatIsNoAgentIsRefused) {
    EXPECT_EQ(errorOf(PLATFORM_LIBRARY),
              PLATFORM_LIBRARY ": is no agent: it has no velaAgentFactory");
}

TEST_F(AgentLibraryTest, whatIsNoLibraryIsRefused) {
    const std::string path = directory() + "/agent.so";
    auto refused = [&](const std::string& why) {
        std::string text = errorOf(path);
        EXPECT_TRUE(text.starts_with(path + ": ")) << text;
        EXPECT_NE(text.find(why), std::string::npos) << text;
    };
    refused("No such file or directory");
    std::ofstream(path) << "";
    refused("file too short");
    std::ofstream(path) << std::string(10'000, 'x');
    refused("invalid ELF header");
    fs::remove(path);
    // All of the header, and nothing of what it promises.
    fs::copy_file(AGENT_LIBRARY, path);
    fs::resize_file(path, 64);
    refused("");
    fs::remove(path);
    fs::create_directory(path);
    refused("Is a directory");
}

TEST_F(AgentLibraryTest, aRangeErrorThrownInTheLibraryIsCaughtHere) {
    load(BOUNDARY_AGENT_LIBRARY, "throw");
    EXPECT_EQ(codeOf(*agent), fs::canonical(BOUNDARY_AGENT_LIBRARY));
    try {
        start(*agent);
        ADD_FAILURE() << "no error";
    } catch (const Vela::RangeError& error) {
        EXPECT_STREQ(error.what(), "Bridging::Fid::value > 65535 not allowed");
    }
}

TEST_F(AgentLibraryTest, aRangeErrorThatLeavesALibrarysReactionEndsThatReaction) {
    load(BOUNDARY_AGENT_LIBRARY, "react");
    start(*agent);
    uint64_t before = Vela::caughtRangeErrors();
    Testing::TraceCapture quiet(""); // the error is traced
    state().bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:00:01"));
    EXPECT_EQ(Vela::caughtRangeErrors(), before + 1);
}

class ThrowingCallback final : public Vela::AgentCommandCallback {
  public:
    const char* typeName() const noexcept override { return "ThrowingCallback"; }
    const char* commandName() const override { return "throw"; }
    void handleCommand(int, const std::string&) override { throw Vela::RangeError("of the host"); }
};

TEST_F(AgentLibraryTest, aRangeErrorThrownHereIsCaughtInTheLibrary) {
    load(BOUNDARY_AGENT_LIBRARY, "catch");
    agent->commandRequestDirSm().callbackIs(Vela::make<ThrowingCallback>());
    start(*agent);
    EXPECT_TRUE(agent->localEntitiesCreated()) << "so it says that it has caught the error";
}

TEST_F(AgentLibraryTest, interfaceNamesAreInternedOnce) {
    // Numbers that a table of the library's own would not give to these names.
    for (const char* name : {"Before1", "Before2", "Before3"}) {
        IntfId before(name);
        EXPECT_TRUE(before);
    }
    auto here = Vela::make<Interface::AllIntfStatusDir>("here");
    here->intfStatusIs(IntfId("Boundary1"));
    entityManager()->entityIs("made/here", here);
    load(BOUNDARY_AGENT_LIBRARY, "interfaces");
    start(*agent);
    auto there = entityManager()->entity<Interface::AllIntfStatusDir>("made/there");
    ASSERT_TRUE(there);
    EXPECT_TRUE(there->intfStatus(IntfId("Boundary1")));
    EXPECT_FALSE(there->intfStatus(IntfId("Boundary2")));
    EXPECT_TRUE(there->intfStatus(IntfId("Boundary3"))) << "named there first";
    EXPECT_EQ(there->intfStatusCollection().count(), 2u);
}

} // namespace
