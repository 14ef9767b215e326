// servicetool why: a table of the declarers and holders of ports, and below it a summary of each
// port in a sentence.
#include <unistd.h>

#include <algorithm>
#include <set>
#include <utility>

#include "commands/commands.h"
#include "output/table.h"
#include "output/text.h"
#include "ports/port_claims.h"
#include "ports/port_query.h"
#include "ports/port_sentence.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

struct WhyOptions {
    std::vector<std::string> ports;  // PORT[/PROTOCOLS]
    bool no_legend = false;
};

// The most sockets of one port in the table: a server may have hundreds of processes.
constexpr std::size_t kMostSockets = 10;

// Printed instead of the name of a process that cannot be inspected.
constexpr char kUnknownHolder[] = "unknown";

void TellUsage(const std::string &text, const QueryProblem &problem, Report &report) {
    report.TellError(
        "", "usage",
        Quoted(text) + ", column " + std::to_string(problem.column) + ": " + problem.message,
        problem.fix);
    report.Raise(Status::kUsage);
}

bool ReadOnePort(const std::string &text, PortQuery &query, QueryProblem &problem) {
    if (!ReadPortQuery(text, query, problem)) {
        return false;
    }
    if (query.items.size() == 1 && query.items[0].first == query.items[0].last) {
        return true;
    }
    problem = {1, "only one port can be asked for at a time",
               "name ports one by one, or put the list to check"};
    return false;
}

// Parses all arguments before any source is read. Removes duplicate ports.
bool ReadTargets(const std::vector<std::string> &texts, std::vector<PortTarget> &targets,
                 Report &report) {
    std::set<PortTarget> known;
    for (const std::string &text : texts) {
        PortQuery query;
        QueryProblem problem;
        if (!ReadOnePort(text, query, problem)) {
            TellUsage(text, problem, report);
            return false;
        }
        for (const std::uint32_t protocol : kProtocols) {
            const PortTarget target = {query.items[0].first, protocol};
            if ((query.protocols & protocol) != 0 && known.insert(target).second) {
                targets.push_back(target);
            }
        }
    }
    return true;
}

void RaiseStatus(PortVerdict verdict, Report &report) {
    report.Raise(verdict == PortVerdict::kTaken  ? Status::kNo
                 : verdict == PortVerdict::kFree ? Status::kOk
                                                 : Status::kFailed);
}

// ---- The table

std::string PlaceText(const Declaration &claim) {
    const bool setting = claim.source == kSettingSource;
    return setting ? claim.declarer->entry + " in " + claim.declarer->file : claim.declarer->place;
}

class AccountTable {
  public:
    void Add(const PortAccount &account);

    // Returns "" if none of the ports has a declarer or holder.
    std::string Text(bool header, std::size_t columns) const;

  private:
    void AddRow(const PortAccount &account, std::vector<std::string> cells);
    void AddSockets(const PortAccount &account);

    std::vector<std::vector<std::string>> rows_;
};

void AccountTable::AddRow(const PortAccount &account, std::vector<std::string> cells) {
    cells.insert(cells.begin(), {std::to_string(account.port), ProtocolsText(account.protocol)});
    rows_.push_back(std::move(cells));
}

void AccountTable::Add(const PortAccount &account) {
    if (account.reserved) {
        AddRow(account, {std::string(kReservedSource), "", "", "", "", "always taken"});
    }
    for (const std::vector<Declaration> *claims : {&account.declared, &account.forwarded}) {
        for (const Declaration &claim : *claims) {
            AddRow(account,
                   {std::string(claim.source), claim.declarer->name, "", "", "", PlaceText(claim)});
        }
    }
    AddSockets(account);
}

void AccountTable::AddSockets(const PortAccount &account) {
    const std::string source(kSocketSource);
    const std::size_t shown = std::min(account.held.size(), kMostSockets);
    for (std::size_t i = 0; i < shown; ++i) {
        const HeldSocket &socket = account.held[i];
        if (const HoldingProcess *process = socket.process) {
            AddRow(account, {source, process->name, std::to_string(process->pid), process->user,
                             StateName(socket), process->program});
        } else {
            AddRow(account, {source, kUnknownHolder, "", "", StateName(socket), ""});
        }
    }
    const std::size_t more = account.held.size() - shown;
    if (more != 0) {
        AddRow(account, {source, "and " + std::to_string(more) + " more", "", "", "", ""});
    }
}

std::string AccountTable::Text(bool header, std::size_t columns) const {
    if (rows_.empty()) {
        return {};
    }
    Table table({"PORT", "PROTO", "SOURCE", "NAME", "PID", "USER", "STATE", "WHERE"});
    for (const std::vector<std::string> &cells : rows_) {
        table.Row(cells);
    }
    return table.Text(header, columns);
}

// ---- JSON

Json ClaimsJson(const std::vector<Declaration> &claims) {
    return Json::ArrayOf(claims, [](const Declaration &claim) -> Json {
        return {{"source", claim.source},
                {"name", TextOrNull(claim.declarer->name)},
                {"file", TextOrNull(claim.declarer->file)},
                {"entry", TextOrNull(claim.declarer->entry)}};
    });
}

Json SocketJson(const HeldSocket &socket) {
    const HoldingProcess nobody;
    const HoldingProcess &process = socket.process != nullptr ? *socket.process : nobody;
    return {{"pid", socket.process != nullptr ? Json(process.pid) : Json(nullptr)},
            {"program", TextOrNull(process.program)},
            {"process", TextOrNull(process.name)},
            {"user", TextOrNull(process.user)},
            {"unit", TextOrNull(process.unit)},
            {"state", TextOrNull(StateName(socket))}};
}

Json AccountJson(const PortAccount &account, const std::string &sentence) {
    return {{"port", account.port},
            {"protocol", ProtocolsText(account.protocol)},
            {"verdict", VerdictName(account.Verdict())},
            {"sentence", Utf8Text(sentence)},
            {"reserved", account.reserved},
            {"declared_by", ClaimsJson(account.declared)},
            {"forwarded_by", ClaimsJson(account.forwarded)},
            {"held_by", Json::ArrayOf(account.held, SocketJson)},
            {"same_service", account.same_service},
            {"failed_sources", account.failed}};
}

void Why(const WhyOptions &options, Report &report) {
    std::vector<PortTarget> targets;
    if (!ReadTargets(options.ports, targets, report)) {
        return;
    }
    const bool as_root = geteuid() == 0;
    AccountTable table;
    std::string sentences;
    const PortAccounts read = ReadPortAccounts(targets, report);
    for (const PortAccount &account : read.accounts) {
        const std::string sentence = PortSentence(account, as_root);
        RaiseStatus(account.Verdict(), report);
        table.Add(account);
        sentences += Escaped(sentence) + '\n';
        if (report.PrintsJson()) {
            report.AddResult(AccountJson(account, sentence));
        }
    }
    report.Print(table.Text(!options.no_legend, report.Columns()));
    report.Print(sentences);
}

constexpr Operand kOperands[] = {
    {.value = {"PORT[/PROTOCOL]"},
     .help = "Ports, such as 8080 or 53/udp; default both protocols",
     .count = Count::kSome},
};

constexpr Option kOptions[] = {kNoLegend};

constexpr char kExamples[] = R"(Examples:
  servicetool why 8080                   who has port 8080, for TCP and for UDP
  servicetool why 80/tcp 443/tcp
  servicetool why --json 53/udp | jq -r '.results[].verdict')";

}  // namespace

constinit const Command kWhyCommand = {
    .name = "why",
    .summary = "Report who declares and who holds a port",
    .operands = kOperands,
    .options = kOptions,
    .examples = kExamples,
    .check = [](const Arguments &arguments) { return ProblemOfEmptyName(arguments.Operands()); },
    .run =
        [](const Arguments &arguments, Report &report) {
            Why({.ports = arguments.Operands(), .no_legend = arguments.Has("--no-legend")}, report);
        },
};

}  // namespace tavo::tool
