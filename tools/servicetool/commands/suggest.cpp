// servicetool suggest: the free ports that are nearest to a port.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "commands/commands.h"
#include "output/text.h"
#include "ports/free_ports.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

struct SuggestOptions {
    unsigned int count = 1;
    unsigned int near = 0;  // a port; 0 if not given
    bool block = false;     // consecutive ports
    std::string protocols;  // as in a port list; both if empty
};

constexpr std::uint32_t kDefaultNear = 8080;
constexpr std::uint32_t kLastPrivilegedPort = 1023;

class Suggestion {
  public:
    Suggestion(const SuggestOptions &options, std::uint32_t protocols, Report &report)
        : options_(options),
          protocols_(protocols),
          sources_(kEverySource, report),
          report_(report) {}

    void Run();

  private:
    std::optional<PortRanges> FreePorts();
    void Tell(const PortRanges &found);
    void TellTooFew(std::size_t found);

    std::uint32_t Near() const { return options_.near == 0 ? kDefaultNear : options_.near; }

    const SuggestOptions &options_;
    std::uint32_t protocols_;
    PortSources sources_;
    Report &report_;
    PortRange ephemeral_{};
    PortRange wanted_{};
};

void Suggestion::Run() {
    const std::optional<PortRanges> free = FreePorts();
    if (free) {
        Tell(options_.block ? NearestBlock(*free, options_.count, Near())
                            : NearestPorts(*free, options_.count, Near()));
    }
}

// Returns nullopt if a source could not be read.
std::optional<PortRanges> Suggestion::FreePorts() {
    const std::string problem = ReadEphemeralPorts(kEphemeralPorts, ephemeral_);
    if (!problem.empty()) {
        report_.TellError(kEphemeralPorts, "unreadable", problem);
    }
    const std::uint32_t lowest = Near() <= kLastPrivilegedPort ? 1 : kLastPrivilegedPort + 1;
    wanted_ = {lowest, kHighestPort};
    const PortAnswer taken = sources_.Ask({{wanted_}, protocols_});
    if (!problem.empty() || !taken.failed.empty()) {
        report_.Raise(Status::kFailed);
        return {};
    }
    PortRanges excluded = {ephemeral_, {kReservedPort, kReservedPort}};
    for (const PortConflict &conflict : taken.conflicts) {
        excluded.push_back(conflict.range);
    }
    return Without({wanted_}, Merged(std::move(excluded)));
}

void Suggestion::Tell(const PortRanges &found) {
    for (const PortRange &range : found) {
        report_.Print(PortsText(range) + '\n');
        report_.AddResult({{"start", range.first},
                           {"end", range.last},
                           {"protocols", ProtocolNames(protocols_)}});
    }
    const std::size_t ports = PortCount(found);
    if (ports < options_.count) {
        TellTooFew(ports);
    }
}

// If the kernel's ephemeral ports alone leave too few ports, the message names their range.
void Suggestion::TellTooFew(std::size_t found) {
    std::string message =
        options_.block ? "no " + std::to_string(options_.count) + " free ports in a row"
                       : "only " + Counted(found, "port") + (found == 1 ? " is" : " are") + " free";
    std::string fix;
    if (PortCount(Without({wanted_}, {ephemeral_})) < options_.count) {
        message += ", as the kernel gives " + PortsText(ephemeral_) + " to outgoing connections";
        fix = Near() > kLastPrivilegedPort ? "name a port below 1024 with --near" : "";
    }
    report_.TellError("", "not-found", message, fix);
    report_.Raise(Status::kNo);
}

void Suggest(const SuggestOptions &options, Report &report) {
    std::uint32_t protocols = TAVO_PROTO_BOTH;
    QueryProblem problem;
    if (!options.protocols.empty() && !ReadProtocols(options.protocols, protocols, problem)) {
        report.TellError("", "usage", problem.message, problem.fix);
        report.Raise(Status::kUsage);
        return;
    }
    Suggestion(options, protocols, report).Run();
}

constexpr unsigned int kMostSuggestions = 1000;

constexpr Operand kOperands[] = {
    {.value = {"COUNT"},
     .help = "Number of ports, 1 to 1000 (default 1)",
     .count = Count::kAtMostOne},
};

constexpr Option kOptions[] = {
    {.name = "--near", .help = "Port to start from (default 8080)", .value = {"PORT"}},
    {.name = "--proto",
     .help = "Protocols that must be free (default both)",
     .value = {"PROTOCOLS", Completion::kWords, "tcp udp tcp,udp"}},
    {.name = "--block", .help = "Consecutive ports"},
};

constexpr char kExamples[] = R"(Examples:
  servicetool suggest                    a free port
  servicetool suggest 3 --proto tcp      three, free for TCP
  servicetool suggest 10 --block --near 8000
  servicetool suggest --json | jq '.results[0]')";

// 1 if no number is given; 0 if it is invalid.
unsigned int CountOf(const Arguments &arguments) {
    return arguments.Operands().empty()
               ? 1
               : NumberUpTo(kMostSuggestions, arguments.Word(0)).value_or(0);
}

unsigned int NearOf(const Arguments &arguments) {
    return NumberUpTo(kHighestPort, arguments.Text("--near")).value_or(0);
}

UsageProblem ProblemOf(const Arguments &arguments) {
    if (CountOf(arguments) == 0) {
        return {"COUNT is a number from 1 to " + std::to_string(kMostSuggestions) + ", not " +
                Quoted(arguments.Word(0))};
    }
    if (arguments.Has("--near") && NearOf(arguments) == 0) {
        return {"--near takes a port from 1 to " + std::to_string(kHighestPort) + ", not " +
                Quoted(arguments.Text("--near"))};
    }
    if (arguments.Has("--proto") && arguments.Text("--proto").empty()) {
        return {"--proto takes tcp, udp or tcp,udp"};
    }
    return {};
}

}  // namespace

constinit const Command kSuggestCommand = {
    .name = "suggest",
    .summary = "Suggest ports that are free",
    .operands = kOperands,
    .options = kOptions,
    .examples = kExamples,
    .check = ProblemOf,
    .run =
        [](const Arguments &arguments, Report &report) {
            Suggest({.count = CountOf(arguments),
                     .near = NearOf(arguments),
                     .block = arguments.Has("--block"),
                     .protocols = arguments.Text("--proto")},
                    report);
        },
};

}  // namespace tavo::tool
