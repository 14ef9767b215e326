// servicetool why: a table of the declarers and holders of ports, and below it a summary of each
// port in a sentence.
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <set>

#include "commands/commands.h"
#include "output/text.h"
#include "ports/port_claims.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

// The most sockets of one port in the table: a server may have hundreds of processes.
constexpr std::size_t kMostSockets = 10;

// Parses all arguments before any source is read. `all` gets the ports of all targets.
bool ReadTargets(const std::vector<std::string> &texts, std::vector<PortTarget> &targets,
                 PortQuery &all, Report &report) {
    std::set<PortTarget> known;
    for (const std::string &text : texts) {
        PortQuery query;
        std::optional<PortProblem> problem = ReadPortQuery(text, query);
        if (!problem && (query.items.size() != 1 || query.items[0].first != query.items[0].last)) {
            problem = {text, "only one port can be given at a time",
                       "name ports one by one, or use servicetool check"};
        }
        if (problem) {
            return ReportBadQuery(text, *problem, report);
        }
        all.items.push_back(query.items[0]);
        all.protocols |= query.protocols;
        for (const std::uint32_t protocol : kProtocols) {
            const PortTarget target = {query.items[0].first, protocol};
            if ((query.protocols & protocol) != 0 && known.insert(target).second) {
                targets.push_back(target);
            }
        }
    }
    return true;
}

// ---- The table

void AddRow(const PortTarget &target, int source, std::vector<std::string> cells, Table &table) {
    cells.insert(cells.begin(), {std::to_string(target.port), ProtocolsText(target.protocol),
                                 std::string(SourceName(source))});
    table.Row(cells);
}

void AddRows(const PortAccount &account, Table &table) {
    if (account.IsReserved()) {
        AddRow(account.target, TAVO_PORT_CHECK_DEFAULT, {"", "", "", "", "always taken"}, table);
    }
    ClaimList shown = account.declared;
    shown.insert(shown.end(), account.forwarded.begin(), account.forwarded.end());
    shown.insert(shown.end(), account.held.begin(), account.held.end());
    const std::size_t more = account.held.size() - std::min(account.held.size(), kMostSockets);
    shown.resize(shown.size() - more);
    for (const PortClaim *claim : shown) {
        const bool held = claim->IsHeld();
        const std::string name =
            held ? HolderName(*claim) : std::string(OrEmpty(claim->declarer->name));
        const std::string where =
            held ? claim->Process().program : FullPlaceText(claim->source, *claim->declarer);
        AddRow(account.target, claim->source,
               {name, claim->PidText(), claim->Process().user, StateName(*claim), where}, table);
    }
    if (more != 0) {
        AddRow(account.target, TAVO_PORT_CHECK_RUNTIME,
               {"and " + std::to_string(more) + " more", "", "", "", ""}, table);
    }
}

// ---- JSON

Json DeclaredJson(const PortClaim *claim) {
    Json json = {{"source", SourceName(claim->source)}};
    json.Merge(DeclarerJson(*claim->declarer));
    return json;
}

Json SocketJson(const PortClaim *socket) {
    const HoldingProcess &process = socket->Process();
    return {{"pid", socket->PidJson()},
            {"program", TextOrNull(process.program)},
            {"process", TextOrNull(process.name)},
            {"user", TextOrNull(process.user)},
            {"unit", TextOrNull(process.unit)},
            {"state", TextOrNull(StateName(*socket))}};
}

Json AccountJson(const PortAccount &account, const std::string &sentence) {
    return {{"port", account.target.port},
            {"protocol", ProtocolsText(account.target.protocol)},
            {"verdict", VerdictName(account.Verdict())},
            {"sentence", Utf8Text(sentence)},
            {"reserved", account.IsReserved()},
            {"declared_by", Json::ArrayOf(account.declared, DeclaredJson)},
            {"forwarded_by", Json::ArrayOf(account.forwarded, DeclaredJson)},
            {"held_by", Json::ArrayOf(account.held, SocketJson)},
            {"same_service", account.same_service},
            {"failed_sources", SourceNames(account.failed)}};
}

void Why(const Arguments &arguments, Report &report) {
    std::vector<PortTarget> targets;
    PortQuery query;
    if (!ReadTargets(arguments.Operands(), targets, query, report)) {
        return;
    }
    const bool as_root = geteuid() == 0;
    Table table({"PORT", "PROTO", "SOURCE", "NAME", "PID", "USER", "STATE", "WHERE"});
    std::string sentences;
    const PortClaims claims = ReadPortClaims(query, kEverySource, report);
    for (const PortAccount &account : AccountsOf(targets, claims, report)) {
        const std::string sentence = PortSentence(account, as_root);
        report.Raise(StatusOf(account.Verdict()));
        AddRows(account, table);
        sentences += Escaped(sentence) + '\n';
        report.AddResult([&] { return AccountJson(account, sentence); });
    }
    if (table.HasRows()) {
        report.Print(table.Text(!arguments.Has("--no-legend"), report.Columns()));
    }
    report.Print(sentences);
}

constexpr Operand kOperands[] = {
    {.value = {"PORT[/PROTOCOLS]"},
     .help = "Ports, such as 8080 or 53/udp; default both protocols",
     .count = Count::kSome},
};

constexpr Option kOptions[] = {kNoLegend};

}  // namespace

constinit const Command kWhyCommand = {
    .name = "why",
    .summary = "Report who declares and who holds a port",
    .operands = kOperands,
    .options = kOptions,
    .examples = R"(Examples:
  servicetool why 8080                   who has port 8080, for TCP and for UDP
  servicetool why 80/tcp 443/tcp
  servicetool why --json 53/udp | jq -r '.results[].verdict')",
    .check = [](const Arguments &arguments) { return ProblemOfEmptyName(arguments.Operands()); },
    .run = Why,
};

}  // namespace tavo::tool
