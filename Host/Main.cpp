#include "Host/Configuration.h"
#include "Host/Daemon.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

constexpr const char* description =
    "The ARP suppression daemon of a switch. It runs in the foreground and writes what it has to\n"
    "say to standard error; arpsupctl looks into it while it runs, and at what it left behind.";

constexpr const char* footer =
    "SIGTERM and SIGINT stop it, SIGHUP has it read its configuration again.\n"
    "Exit status: 0 stopped or checked, 1 it could not start or the configuration has mistakes,\n"
    "2 wrong usage.\n";

/// A million bindings are hundreds of megabytes in small pieces, more pages than the processor
/// keeps the addresses of. The C library asks for huge pages only if it is told so from outside, at
/// the program's start: this starts the program anew, in the same process, unless that was done.
void askForHugePages(char** argv) {
    constexpr const char* tunables = "GLIBC_TUNABLES";
    if (getenv(tunables)) {
        return;
    }
    setenv(tunables, "glibc.malloc.hugetlb=1", 1);
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        execv(program.c_str(), argv); // returns where it fails, which only costs speed
    }
}

/// A reload that is asked for while the daemon starts would end it: it waits until somebody
/// listens.
void holdReloads() {
    sigset_t reload;
    sigemptyset(&reload);
    sigaddset(&reload, SIGHUP);
    sigprocmask(SIG_BLOCK, &reload, nullptr);
}

} // namespace

int main(int argc, char** argv) {
    holdReloads();
    askForHugePages(argv);
    CLI::App app(description, "arpsupd");
    app.footer(footer);
    std::string file = "/etc/arpsup/arpsupd.toml";
    bool check = false;
    app.add_option("--config", file, "The configuration")->type_name("FILE")->capture_default_str();
    app.add_flag("--check", check, "Only say what is wrong with the configuration");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        Host::Configuration configuration = Host::readConfiguration(file);
        if (check) {
            std::cout << file << ": no mistakes\n";
            return 0;
        }
        Host::Daemon daemon(std::move(configuration), file);
        daemon.run();
    } catch (const Host::ConfigurationError& error) {
        std::cerr << error.what() << '\n';
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "arpsupd: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
