// servicetool suggest. What is declared is asked for once, about all ports; sockets, which the
// library does not name, only about the candidates.
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "commands.h"
#include "ephemeral_ports.h"
#include "port_candidates.h"
#include "port_query.h"
#include "port_sources.h"
#include "protocols.h"
#include "text.h"

namespace tavo {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint32_t kDefaultNear = 8080;
constexpr std::uint32_t kLastPrivilegedPort = 1023;

constexpr int kDeclaringSources =
    TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY;

PortRanges SetOf(const std::vector<std::uint32_t> &ports) {
    PortRanges ranges;
    for (const std::uint32_t port : ports) {
        ranges.push_back({port, port});
    }
    return Merged(std::move(ranges));
}

class Suggestion {
  public:
    Suggestion(const SuggestOptions &options, std::uint32_t protocols, Report &report)
        : options_(options),
          protocols_(protocols),
          sources_(kDeclaringSources, report),
          report_(report) {}

    void Run();

  private:
    std::optional<PortRanges> UndeclaredPorts();
    std::optional<PortRanges> FreePorts(PortCandidates candidates);
    std::optional<PortRanges> FreeBlock(PortCandidates candidates);
    void Tell(const PortRanges &found);
    void TellTooFew(std::size_t found);

    std::uint32_t Near() const { return options_.near == 0 ? kDefaultNear : options_.near; }

    const SuggestOptions &options_;
    std::uint32_t protocols_;
    PortSources sources_;
    Report &report_;
};

void Suggestion::Run() {
    const std::optional<PortRanges> undeclared = UndeclaredPorts();
    if (!undeclared) {
        return;
    }
    PortCandidates candidates(Near(), *undeclared);
    const std::optional<PortRanges> found =
        options_.block ? FreeBlock(std::move(candidates)) : FreePorts(std::move(candidates));
    if (found) {
        Tell(*found);
    }
}

// None where something cannot be told.
std::optional<PortRanges> Suggestion::UndeclaredPorts() {
    PortRange ephemeral{};
    const std::string problem = ReadEphemeralPorts(kEphemeralPorts, ephemeral);
    if (!problem.empty()) {
        report_.TellError(kEphemeralPorts, "unreadable", problem);
    }
    const std::uint32_t lowest = Near() <= kLastPrivilegedPort ? 1 : kLastPrivilegedPort + 1;
    const PortRange wanted = {lowest, kHighestPort};
    const PortAnswer declared = sources_.Ask({{wanted}, protocols_}, {});
    if (!problem.empty() || !declared.failed.empty()) {
        report_.Raise(Status::kFailed);
        return {};
    }
    PortRanges excluded = {ephemeral, {kReservedPort, kReservedPort}};
    for (const PortConflict &conflict : declared.conflicts) {
        excluded.push_back(conflict.range);
    }
    return Without({wanted}, Merged(std::move(excluded)));
}

// As many candidates as are missing are put to the sockets at once.
std::optional<PortRanges> Suggestion::FreePorts(PortCandidates candidates) {
    PortRanges found;
    while (found.size() < options_.count) {
        const std::vector<std::uint32_t> nearest =
            candidates.NearestPorts(options_.count - found.size());
        const PortRanges asked = SetOf(nearest);
        const std::optional<PortRanges> held = sources_.HeldBySockets(asked, protocols_);
        if (!held) {
            return {};
        }
        for (const std::uint32_t port : nearest) {
            if (Overlap(*held, {port, port}).empty()) {
                found.push_back({port, port});
            }
        }
        if (nearest.empty()) {
            break;
        }
        candidates.Remove(asked);
    }
    return found;
}

std::optional<PortRanges> Suggestion::FreeBlock(PortCandidates candidates) {
    while (const std::optional<PortRange> block = candidates.NearestBlock(options_.count)) {
        const std::optional<PortRanges> held = sources_.HeldBySockets({*block}, protocols_);
        if (!held) {
            return {};
        }
        if (held->empty()) {
            return PortRanges{*block};
        }
        candidates.Remove(*held);
    }
    return PortRanges{};
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

void Suggestion::TellTooFew(std::size_t found) {
    report_.TellError(
        "", "not-found",
        options_.block ? "no " + std::to_string(options_.count) + " free ports in a row"
                       : "only " + Counted(found, "port") + (found == 1 ? " is" : " are") + " free",
        "");
    report_.Raise(Status::kNo);
}

}  // namespace

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

}  // namespace tavo
