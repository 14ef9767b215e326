// servicetool suggest: the free ports that are nearest to a port.
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "commands/commands.h"
#include "output/text.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

constexpr unsigned int kMostSuggestions = 1000;
constexpr unsigned int kDefaultNear = 8080;
constexpr std::uint32_t kLastPrivilegedPort = 1023;

// Reads a decimal number from 1 to `most`; 0 if the text is not one.
unsigned int NumberUpTo(unsigned int most, std::string_view text) {
    unsigned int number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number <= most ? number : 0;
}

// 1 if no number is given; 0 if it is invalid.
unsigned int CountOf(const Arguments &arguments) {
    return arguments.Operands().empty() ? 1 : NumberUpTo(kMostSuggestions, arguments.Word(0));
}

// 0 if the port is invalid.
unsigned int NearOf(const Arguments &arguments) {
    return arguments.Has("--near") ? NumberUpTo(kHighestPort, arguments.Text("--near"))
                                   : kDefaultNear;
}

// The ports of `all` that are free and not `ephemeral`, which are those for outgoing connections.
// Returns nullopt if a source could not be read.
std::optional<PortRanges> FreePorts(const PortRange &all, const PortRange &ephemeral,
                                    std::uint32_t protocols, Report &report) {
    const PortQuery query = {{all}, protocols};
    const PortAnswer taken = PortSources(kEverySource, report).Ask({{query, {}}}).front();
    if (taken.failed != 0) {
        report.Raise(Status::kFailed);
        return {};
    }
    PortRanges excluded = {ephemeral, {kReservedPort, kReservedPort}};
    for (const PortConflict &conflict : taken.conflicts) {
        excluded.push_back(conflict.range);
    }
    return Without({all}, Merged(std::move(excluded)));
}

// If the kernel's ephemeral ports alone leave too few ports, the message names their range.
void ReportTooFew(const Arguments &arguments, std::size_t found, const PortRange &all,
                  const PortRange &ephemeral, Report &report) {
    const unsigned int count = CountOf(arguments);
    std::string message =
        arguments.Has("--block")
            ? "no " + std::to_string(count) + " consecutive free ports"
            : "only " + Counted(found, "port") + (found == 1 ? " is" : " are") + " free";
    std::string fix;
    if (PortCount(Without({all}, {ephemeral})) < count) {
        message +=
            ", because the kernel uses " + PortsText(ephemeral) + " for outgoing connections";
        fix = NearOf(arguments) > kLastPrivilegedPort ? "name a port below 1024 with --near" : "";
    }
    report.AddError("", "not-found", message, fix, Status::kNo);
}

void Suggest(const Arguments &arguments, Report &report) {
    const unsigned int count = CountOf(arguments);
    const unsigned int near = NearOf(arguments);
    std::uint32_t protocols = TAVO_PROTO_BOTH;
    if (const std::string words = arguments.Text("--proto"); !words.empty()) {
        if (const auto problem = ReadProtocols(words, protocols)) {
            report.AddUsageError(problem->message, problem->fix);
            return;
        }
    }
    PortRange ephemeral{};
    const std::string problem = ReadEphemeralPorts(kEphemeralPorts, ephemeral);
    if (!problem.empty()) {
        report.AddError(kEphemeralPorts, "unreadable", problem);
    }
    const PortRange all = {near <= kLastPrivilegedPort ? 1 : kLastPrivilegedPort + 1, kHighestPort};
    const std::optional<PortRanges> free = FreePorts(all, ephemeral, protocols, report);
    if (!free || !problem.empty()) {
        return;
    }
    const PortRanges found = arguments.Has("--block") ? NearestBlocks(*free, 1, count, near)
                                                      : NearestBlocks(*free, count, 1, near);
    for (const PortRange &range : found) {
        report.Print(PortsText(range) + '\n');
        report.AddResult(
            {{"start", range.first}, {"end", range.last}, {"protocols", ProtocolNames(protocols)}});
    }
    const std::size_t ports = PortCount(found);
    if (ports < count) {
        ReportTooFew(arguments, ports, all, ephemeral, report);
    }
}

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
    .examples = R"(Examples:
  servicetool suggest                    a free port
  servicetool suggest 3 --proto tcp      three, free for TCP
  servicetool suggest 10 --block --near 8000
  servicetool suggest --json | jq '.results[0]')",
    .check = ProblemOf,
    .run = Suggest,
};

}  // namespace tavo::tool
