// Things happen to the whole agent by chance, and it is compared with a naive model:
//
//     RandomAgent [--toggles 0..3] [--seed N] [--seeds N] [--steps N]
//
// Each seed has a process of its own, in which everything follows from the seed: a seed that failed
// fails again. RANDOM_AGENT_SEED and RANDOM_AGENT_STEPS stand in for options that are not given.

#include "Platform/Agent/Toggle.h"
#include "Platform/Base/HashSeed.h"
#include "Platform/State/Entity.h"
#include "tests/random/Leaf.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Random::Toggles;

struct Options {
    uint32_t toggles = 0;
    uint64_t seed = 1;
    uint64_t seeds = 1;
    uint64_t steps = 4'500;
};

/// The last steps of the process that takes them, for who is left when it has failed.
class Journal {
  public:
    static constexpr size_t most = 60;
    static constexpr size_t longest = 200;

    Journal()
        : pages_(static_cast<Pages*>(mmap(nullptr, sizeof(Pages), PROT_READ | PROT_WRITE,
                                          MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        if (pages_ == MAP_FAILED) {
            std::perror("mmap");
            std::exit(2);
        }
    }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;
    ~Journal() { munmap(pages_, sizeof(Pages)); }

    void clear() { pages_->count = 0; }
    void say(const std::string& text) {
        char* line = pages_->lines[pages_->count++ % most];
        line[text.copy(line, longest - 1)] = 0;
    }
    void print() const {
        for (size_t i = pages_->count > most ? pages_->count - most : 0; i < pages_->count; ++i) {
            std::fprintf(stderr, "  %zu  %s\n", i, pages_->lines[i % most]);
        }
    }
    uint64_t digest() const { return pages_->digest; }
    void digestIs(uint64_t digest) { pages_->digest = digest; }

  private:
    struct Pages {
        size_t count;
        uint64_t digest;
        char lines[most][longest];
    };
    Pages* const pages_;
};

Toggles togglesOf(uint32_t number) {
    return {(number & 1) == 0, (number & 2) == 0};
}

void write(const std::string& path, const char* toggle, bool enabled) {
    std::ofstream(path) << "{\"" << toggle << "\": " << (enabled ? "true" : "false") << "}";
}

/// In a process of its own.
int run(const Options& options, uint64_t seed, Journal& journal) {
    const Toggles toggles = togglesOf(options.toggles);
    Testing::TemporaryDirectory directory;
    Vela::toggleDirectoryIs(directory.path());
    write(directory.path() + "/ArpSuppression.json", "LocalMultihomeSelectiveArpInstall",
          toggles.localMultihomeSelectiveArpInstall);
    write(directory.path() + "/EvpnLib.json", "EvpnMplsProxyArpRefresh",
          toggles.evpnMplsProxyArpRefresh);
    const uint64_t entitiesBefore = Vela::Entity::liveCount();
    uint64_t settled = 0;
    uint64_t followed = 0;
    try {
        Random::Leaf leaf(seed, toggles, [&](const std::string& text) { journal.say(text); });
        for (uint64_t step = 0; step < options.steps; ++step) {
            leaf.step();
        }
        leaf.settle();
        settled = leaf.settled();
        followed = leaf.followed();
        journal.digestIs(leaf.digest());
    } catch (const Random::Difference& difference) {
        std::fprintf(stderr, "%s\n", difference.what());
        return 1;
    }
    if (Vela::Entity::liveCount() != entitiesBefore) {
        std::fprintf(stderr, "entities are left behind\n");
        return 1;
    }
    std::printf("seed %lu: %lu steps, settled %lu times, followed %lu times, digest %016lx\n", seed,
                options.steps, settled, followed, journal.digest());
    return 0;
}

bool survives(const char* program, const Options& options, uint64_t seed, Journal& journal) {
    journal.clear();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        std::exit(run(options, seed, journal));
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        std::perror("fork");
        return false;
    }
    if (status == 0) {
        return true;
    }
    std::fprintf(stderr, "the last steps:\n");
    journal.print();
    std::fprintf(stderr, "once more: %s --toggles %u --seed %lu --steps %lu\n", program,
                 options.toggles, seed, options.steps);
    return false;
}

/// Else a seed that failed could not be looked into.
bool goesTheSameWayTwice(const char* program, Options options, Journal& journal) {
    options.steps = std::min<uint64_t>(options.steps, 500);
    uint64_t digests[2];
    for (uint64_t& digest : digests) {
        if (!survives(program, options, options.seed, journal)) {
            return false;
        }
        digest = journal.digest();
    }
    if (digests[0] != digests[1]) {
        std::fprintf(stderr, "seed %lu goes two ways\n", options.seed);
    }
    return digests[0] == digests[1];
}

Options optionsOf(int argc, char** argv) {
    Options options;
    const auto number = [](const char* text) { return std::strtoull(text, nullptr, 10); };
    if (const char* seed = std::getenv("RANDOM_AGENT_SEED")) {
        options.seed = number(seed);
    }
    if (const char* steps = std::getenv("RANDOM_AGENT_STEPS")) {
        options.steps = number(steps);
    }
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--toggles") {
            options.toggles = static_cast<uint32_t>(number(argv[i + 1]));
        } else if (option == "--seed") {
            options.seed = number(argv[i + 1]);
        } else if (option == "--seeds") {
            options.seeds = number(argv[i + 1]);
        } else if (option == "--steps") {
            options.steps = number(argv[i + 1]);
        } else {
            std::fprintf(stderr, "unknown option %s\n", argv[i]);
            std::exit(2);
        }
    }
    return options;
}

/// Tables order VRFs by where they lie in memory: that, too, must be the same each time.
void fixAddresses(char** argv) {
    const int now = personality(0xffffffff);
    if (now != -1 && !(now & ADDR_NO_RANDOMIZE) &&
        personality(static_cast<unsigned long>(now) | ADDR_NO_RANDOMIZE) != -1) {
        execv("/proc/self/exe", argv);
    }
}

} // namespace

int main(int argc, char** argv) {
    fixAddresses(argv);
    const Options options = optionsOf(argc, argv);
    Vela::processHashSeedIs(0x5EED5EED5EED5EEDull);
    Journal journal;
    if (!goesTheSameWayTwice(argv[0], options, journal)) {
        return 1;
    }
    for (uint64_t seed = options.seed; seed < options.seed + options.seeds; ++seed) {
        if (!survives(argv[0], options, seed, journal)) {
            return 1;
        }
    }
    return 0;
}
