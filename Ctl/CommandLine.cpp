#include "Ctl/CommandLine.h"

#include "Ctl/ControlClient.h"
#include "Ctl/ShowCounters.h"
#include "Ctl/ShowTrace.h"

#include <CLI/CLI.hpp>
#include <ostream>
#include <string>
#include <unistd.h>

namespace Ctl {

namespace {

constexpr const char* description =
    "Looks into a running arpsupd, the ARP suppression daemon, or at what it left behind.\n"
    "Nothing here changes anything or slows the daemon down.";

constexpr const char* footer =
    "Exit status: 0 done, 1 failed (the reason is on standard error), 2 wrong usage.\n"
    "\n"
    "  arpsupctl show tech-support > tech.txt   everything the daemon knows, for a support case\n"
    "  arpsupctl show counters                  what it has counted; also after a crash\n"
    "  arpsupctl trace --last 50                what it did last; also after a crash\n";

constexpr const char* traceFooter =
    "Works without the daemon, also after a crash. A restarted daemon begins a new file: what its\n"
    "predecessor wrote stands beside it, under the number of that process or as FILE.1.\n"
    "A line is: time (UTC), level, unit, event.\n";

} // namespace

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& errors) {
    CLI::App app(description, "arpsupctl");
    app.footer(footer);
    app.require_subcommand(1);
    std::string runtimeDirectory = "/run/arpsup";
    app.add_option("--runtime-directory", runtimeDirectory,
                   "Where the daemon runs: its configuration's runtime_directory")
        ->envname("ARPSUP_RUNTIME_DIRECTORY")
        ->type_name("DIR")
        ->capture_default_str();

    int status = 0;
    auto ask = [&](const std::string& command) {
        out.flush();
        status = askDaemon(runtimeDirectory, command, STDOUT_FILENO, errors);
    };

    CLI::App* show = app.add_subcommand("show", "Asks the running daemon");
    show->require_subcommand(1);
    show->add_subcommand("tech-support", "The whole state of the daemon, for a support case")
        ->callback([&] { ask("show tech-support"); });
    bool all = false;
    CLI::App* counters =
        show->add_subcommand("counters", "What the agent has counted, from shared memory");
    counters->add_flag("--all", all, "Those at zero, too");
    counters->callback([&] { status = showCounters(runtimeDirectory, all, out, errors); });

    TraceRequest request;
    CLI::App* trace = app.add_subcommand("trace", "Prints the ring-buffer file: the latest events");
    trace->footer(traceFooter);
    trace->add_option("FILE", request.file, "The file; without it the newest *.sl there is");
    trace->add_option("--log-directory", request.directory, "Where to look for the newest file")
        ->type_name("DIR")
        ->capture_default_str();
    trace->add_option("--level", request.level, "Only levels up to N: 0 (rare) to 9 (everything)")
        ->type_name("N")
        ->check(CLI::Range(0, 9));
    trace->add_option("--last", request.last, "Only the last N events")->type_name("N");
    trace->callback([&] { status = showTrace(request, out, errors); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, out, errors) == 0 ? 0 : 2;
    }
    return status;
}

} // namespace Ctl
