#include "Ctl/CommandLine.h"

#include "Ctl/ControlClient.h"
#include "Ctl/Explain.h"
#include "Ctl/Rounds.h"
#include "Ctl/ShowBindings.h"
#include "Ctl/ShowCounters.h"
#include "Ctl/ShowTechSupport.h"
#include "Ctl/ShowTrace.h"
#include "Platform/Base/Errors.h"

#include <CLI/CLI.hpp>
#include <optional>
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
    "-j gives JSON.\n"
    "\n"
    "  arpsupctl show vlans                     the VLANs in a line each\n"
    "  arpsupctl show status 10                 why VLAN 10 is suppressing, or why not\n"
    "  arpsupctl show counters --watch          what is counted, and how fast; Ctrl-C ends it\n"
    "  arpsupctl explain 10.0.0.7               what becomes of a request for it, and why\n"
    "  arpsupctl show bindings remote --vlan 10 the hosts behind other leaves; also after a crash\n"
    "  arpsupctl show tech-support > tech.txt   everything the daemon knows, for a support case\n"
    "  arpsupctl trace --last 50                what it did last; also after a crash\n";

constexpr const char* statusFooter =
    "A VLAN is published as active that has remote bindings, or that EVPN serves and whose\n"
    "interface is usable. It is suppressing while the agent also has its sockets and the device\n"
    "for replies. \"lacks\" names what has to change first.\n";

constexpr const char* traceFooter =
    "Works without the daemon, also after a crash. A restarted daemon begins a new file: what its\n"
    "predecessor wrote stands beside it, under the number of that process or as FILE.1.\n"
    "A line is: time (UTC), level, unit, event.\n";

constexpr const char* explainFooter =
    "Without --vlan: every VLAN that knows the address, or else every one that is suppressing.\n"
    "The events are the last 20 in the ring-buffer file with the address in them.\n";

constexpr double shortestWatch = 0.1;
constexpr double longestWatch = 86400;

const CLI::Validator ipAddress(
    [](const std::string& text) -> std::string {
        try {
            if (!Zinc::IpGenAddr(text).isUnset()) {
                return "";
            }
        } catch (const Vela::ParseError&) {
        }
        return "\"" + text + "\" is no IP address";
    },
    "ADDRESS");

/// The command line, and what it asks for.
class Arguments {
  public:
    Arguments(std::ostream& out, std::ostream& errors);

    int run(int argc, const char* const* argv);

  private:
    void addShow();
    void addCounters(CLI::App& show);
    void addBindings(CLI::App& show);
    void addExplain();
    void addTrace();
    CLI::App* withJson(CLI::App* command);
    CLI::App* withVlan(CLI::App* command, const char* what);
    std::optional<Bridging::VlanId> vlanId() const;
    void ask(std::string command);

    std::ostream& out_;
    std::ostream& errors_;
    CLI::App app_{description, "arpsupctl"};
    int status_ = 0;

    std::string runtimeDirectory_ = "/run/arpsup";
    bool json_ = false;
    unsigned vlan_ = 0;
    std::string address_;
    bool allCounters_ = false;
    double watch_ = 0;
    TraceRequest trace_;
};

Arguments::Arguments(std::ostream& out, std::ostream& errors) : out_(out), errors_(errors) {
    app_.require_subcommand(1);
    app_.add_option("--runtime-directory", runtimeDirectory_,
                    "Where the daemon runs: its configuration's runtime_directory")
        ->envname("ARPSUP_RUNTIME_DIRECTORY")
        ->type_name("DIR")
        ->capture_default_str();
    addShow();
    addExplain();
    addTrace();
    app_.footer(footer); // which subcommands would take over
}

CLI::App* Arguments::withJson(CLI::App* command) {
    command->add_flag("-j,--json", json_, "As JSON");
    return command;
}

CLI::App* Arguments::withVlan(CLI::App* command, const char* what) {
    command->add_option("--vlan", vlan_, what)->check(CLI::Range(1, 4094))->option_text("N");
    return command;
}

std::optional<Bridging::VlanId> Arguments::vlanId() const {
    return vlan_ != 0 ? std::optional(Bridging::VlanId(vlan_)) : std::nullopt;
}

void Arguments::ask(std::string command) {
    out_.flush();
    command += json_ ? " -j" : "";
    status_ = askDaemon(runtimeDirectory_, command, STDOUT_FILENO, errors_);
}

void Arguments::addShow() {
    CLI::App* show = app_.add_subcommand("show", "Shows state and counters");
    show->require_subcommand(1);

    CLI::App* status = withJson(
        show->add_subcommand("status", "Why VLANs are suppressing, or why not: each condition"));
    status->footer(statusFooter);
    status->add_option("VLAN", vlan_, "Only this one; else all that are known")
        ->check(CLI::Range(1, 4094))
        ->option_text("(1 to 4094)");
    status->callback(
        [this] { ask("show status" + (vlan_ != 0 ? " " + std::to_string(vlan_) : "")); });

    withJson(show->add_subcommand("vlans", "The VLANs in a line each"))->callback([this] {
        ask("show vlans");
    });
    addBindings(*show);
    addCounters(*show);
    withJson(show->add_subcommand("neighbours",
                                  "The neighbour entries that the agent asks for, what the kernel "
                                  "holds, and why they differ"))
        ->callback([this] { ask("show neighbours"); });
    withJson(show->add_subcommand("forwarding-plane", "What the forwarding plane has counted"))
        ->callback([this] { ask("show forwarding-plane"); });
    withJson(
        show->add_subcommand("tech-support", "The whole state of the daemon, for a support case"))
        ->callback([this] {
            if (json_) {
                status_ = showTechSupportJson(runtimeDirectory_, out_, errors_);
            } else {
                ask("show tech-support");
            }
        });
}

void Arguments::addBindings(CLI::App& show) {
    CLI::App* bindings = show.add_subcommand("bindings", "Which MAC address has an IP address");
    bindings->require_subcommand(1);
    CLI::App* remote = withJson(bindings->add_subcommand(
        "remote", "Those of hosts behind other leaves, from shared memory, by VLAN and address"));
    remote->add_option("ADDRESS", address_, "Only those of this IP address")
        ->check(ipAddress)
        ->option_text("(IPv4 or IPv6)");
    withVlan(remote, "Only those of VLAN N");
    remote->callback([this] {
        RemoteBindingsRequest request{.runtimeDirectory = runtimeDirectory_, .json = json_};
        request.vlanId = vlanId();
        if (!address_.empty()) {
            request.address = Zinc::IpGenAddr(address_);
        }
        status_ = showRemoteBindings(request, out_, errors_);
    });
    CLI::App* local = withJson(
        bindings->add_subcommand("local", "Those of this switch's own hosts, by VLAN and address"));
    local->add_option("ADDRESS", address_, "Only those of this IP address")
        ->check(ipAddress)
        ->option_text("(IPv4 or IPv6)");
    withVlan(local, "Only those of hosts on VLAN N");
    local->callback([this] {
        ask("show bindings local" + (address_.empty() ? "" : " " + address_) +
            (vlan_ != 0 ? " " + std::to_string(vlan_) : ""));
    });
}

void Arguments::addCounters(CLI::App& show) {
    CLI::App* counters =
        withJson(show.add_subcommand("counters", "What the agent has counted, from shared memory"));
    counters->add_flag("--all", allCounters_, "Those at zero, too; JSON always has them");
    CLI::Option* watch =
        counters
            ->add_option("--watch", watch_,
                         "Again every SECONDS (1 if not given), with what they grow by per second")
            ->expected(0, 1)
            ->default_str("1")
            ->check(CLI::Range(shortestWatch, longestWatch))
            ->option_text("[SECONDS]");
    counters->callback([this, watch] {
        CountersRequest request{runtimeDirectory_, allCounters_, json_};
        if (watch->count() == 0) {
            status_ = showCounters(request, out_, errors_);
            return;
        }
        Rounds rounds{std::chrono::duration<double>(watch_)};
        status_ = watchCounters(
            request, [&] { return rounds.next(); }, out_, errors_);
    });
}

void Arguments::addExplain() {
    CLI::App* command = withJson(app_.add_subcommand(
        "explain", "What would become of a request for an address now, why, and what became of "
                   "the last ones"));
    command->footer(explainFooter);
    command->add_option("ADDRESS", address_, "The IP address that is asked for")
        ->check(ipAddress)
        ->required()
        ->option_text("(IPv4 or IPv6)");
    withVlan(command, "Only on VLAN N");
    command->add_option("--log-directory", trace_.directory, "Where to look for the newest file")
        ->type_name("DIR")
        ->capture_default_str();
    command->callback([this] {
        status_ = explain({.runtimeDirectory = runtimeDirectory_,
                           .logDirectory = trace_.directory,
                           .address = Zinc::IpGenAddr(address_),
                           .vlanId = vlanId(),
                           .json = json_},
                          out_, errors_);
    });
}

void Arguments::addTrace() {
    CLI::App* trace =
        withJson(app_.add_subcommand("trace", "Prints the ring-buffer file: the latest events"));
    trace->footer(traceFooter);
    trace->add_option("FILE", trace_.file, "The file; without it the newest *.sl there is")
        ->option_text("(path)");
    trace->add_option("--log-directory", trace_.directory, "Where to look for the newest file")
        ->type_name("DIR")
        ->capture_default_str();
    trace->add_option("--level", trace_.level, "Only levels up to N: 0 (rare) to 9 (everything)")
        ->option_text("N")
        ->check(CLI::Range(0, 9));
    trace->add_option("--address", address_, "Only events with this IP address in them")
        ->check(ipAddress)
        ->option_text("ADDRESS");
    withVlan(trace, "Only events of VLAN N, or that name none");
    trace->add_option("--last", trace_.last, "Only the last N events")->type_name("N");
    trace->callback([this] {
        trace_.json = json_;
        trace_.vlanId = vlanId();
        if (!address_.empty()) {
            trace_.address = Zinc::IpGenAddr(address_);
        }
        status_ = showTrace(trace_, out_, errors_);
    });
}

int Arguments::run(int argc, const char* const* argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app_.exit(error, out_, errors_) == 0 ? 0 : 2;
    }
    return status_;
}

} // namespace

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& errors) {
    return Arguments(out, errors).run(argc, argv);
}

} // namespace Ctl
