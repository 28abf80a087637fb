#include "tests/netns/Kernel.h"

#include "Testing/ChildProcess.h"
#include "Testing/IpCommand.h"
#include "Testing/NamedNetNs.h"
#include "Testing/TemporaryDirectory.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace Netns {

namespace {

void runBatch(const std::string& program, const std::string& lines) {
    Testing::TemporaryDirectory directory;
    std::string file = directory.path() + "/batch";
    std::ofstream(file) << lines;
    Testing::ChildProcess child("/usr/bin/env", {program, "-batch", file});
    if (child.status() != 0) {
        throw std::runtime_error(program + " -batch: " + child.errors());
    }
}

} // namespace

void ip(const std::string& words) {
    std::vector<std::string> arguments;
    std::istringstream in(words);
    for (std::string word; in >> word;) {
        arguments.push_back(word);
    }
    Testing::ip(arguments);
}

void ipBatch(const std::string& lines) {
    runBatch("ip", lines);
}

void bridgeBatch(const std::string& lines) {
    runBatch("bridge", lines);
}

size_t packetRings() {
    std::ifstream maps("/proc/self/maps");
    size_t count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find("socket:") != std::string::npos;
    }
    return count;
}

LiveKernelFixture::LiveKernelFixture() {
    Testing::enterOwnNamespaces();
    const char* setting = std::getenv("VELA_ALWAYS_YIELD");
    live_ = std::make_unique<Testing::LiveSwitch>(
        Vela::TaskScheduler::Settings{.alwaysYield = setting && std::string_view(setting) == "1"});
}

LiveKernelFixture::~LiveKernelFixture() {
    live_.reset();
    EXPECT_EQ(Vela::Entity::liveCount(), entitiesBefore_) << "the test left entities behind";
}

} // namespace Netns
