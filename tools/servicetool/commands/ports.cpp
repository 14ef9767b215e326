// servicetool ports: all claims to ports, as a table, as JSON, or as a map.
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "commands/commands.h"
#include "output/text.h"
#include "picture/port_map.h"
#include "ports/port_claims.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

// The width of a window if it is unknown.
constexpr std::size_t kOrdinaryColumns = 80;

// In a narrower window the states are omitted, to leave more room for the places.
constexpr std::size_t kColumnsForStates = 100;

// The sources of the claims to show.
int ShownSources(const Arguments &arguments) {
    const bool held = arguments.Has("--held");
    return arguments.Has("--declared") == held ? kEverySource
           : held                              ? TAVO_PORT_CHECK_RUNTIME
                                               : kDeclaringSources;
}

// ---- The table

std::string ServiceText(const PortClaim &claim) {
    return std::string(claim.declarer == nullptr ? "" : OrEmpty(claim.declarer->name));
}

std::string ProgramText(const PortClaim &claim) {
    const std::string &program = claim.Process().program;
    return program.empty() ? HolderName(claim) : program;
}

// The place of a declaration, or the program of a socket.
std::string WhereText(const PortClaim &claim) {
    return claim.IsHeld() ? claim.Process().program : PlaceText(claim.source, *claim.declarer);
}

// A column after those of the port; it can be hidden. The longest text is in the last column, which
// is cut to fit.
struct Column {
    const char *title;
    bool shown;
    std::string (*cell)(const PortClaim &);
};

std::vector<Column> ColumnsFor(int sources, std::size_t window) {
    const bool declared = (sources & kDeclaringSources) != 0;
    const bool held = (sources & TAVO_PORT_CHECK_RUNTIME) != 0;
    const bool roomy = !declared || window == 0 || window >= kColumnsForStates;
    std::vector<Column> columns = {
        {"SOURCE", declared,
         [](const PortClaim &claim) { return std::string(SourceName(claim.source)); }},
        {"SERVICE", declared, ServiceText},
        {"PID", held, [](const PortClaim &claim) { return claim.PidText(); }},
        {"USER", !declared, [](const PortClaim &claim) { return claim.Process().user; }},
        {"PROGRAM", held && declared, HolderName},
        {"STATE", held && roomy, StateName},
        {"PROGRAM", !declared, ProgramText},
        {"WHERE", declared, WhereText},
    };
    std::erase_if(columns, [](const Column &column) { return !column.shown; });
    return columns;
}

// Ports in conflict are marked; a range is marked if one of its ports is in conflict.
std::string TableText(const std::vector<PortClaim> &claims, const PortClaims &all,
                      const Arguments &arguments, std::size_t window) {
    const std::vector<Column> columns = ColumnsFor(ShownSources(arguments), window);
    std::vector<std::string> cells = {"PROTO", "PORT"};
    for (const Column &column : columns) {
        cells.emplace_back(column.title);
    }
    Table table(cells);
    for (const PortClaim &claim : claims) {
        cells = {ProtocolsText(claim.protocol),
                 PortsText(claim.range) + (Collides(claim, all) ? " !" : "")};
        for (const Column &column : columns) {
            cells.push_back(column.cell(claim));
        }
        table.Row(cells);
    }
    return table.HasRows() ? table.Text(!arguments.Has("--no-legend"), window) : "";
}

// ---- JSON

// All results have the same keys; missing values are null.
Json ClaimJson(const PortClaim &claim, Json conflict) {
    const PortDeclarer none;
    const PortDeclarer &declarer = claim.declarer == nullptr ? none : *claim.declarer;
    const HoldingProcess &process = claim.Process();
    return {{"protocol", ProtocolsText(claim.protocol)},
            {"start", claim.range.first},
            {"end", claim.range.last},
            {"source", SourceName(claim.source)},
            {"service", TextOrNull(OrEmpty(declarer.name))},
            {"file", TextOrNull(OrEmpty(declarer.file))},
            {"entry", TextOrNull(OrEmpty(declarer.entry))},
            {"pid", claim.PidJson()},
            {"program", TextOrNull(process.program)},
            {"process", TextOrNull(process.name)},
            {"user", TextOrNull(process.user)},
            {"state", TextOrNull(StateName(claim))},
            {"conflict", std::move(conflict)}};
}

// ---- Maps

std::string MapOfAll(const std::vector<PortClaim> &claims, const PortClaims &all, bool legend,
                     const Report &report) {
    WindowSize window = report.Window();
    window.columns = window.columns == 0 ? kOrdinaryColumns : window.columns;
    const MapShape shape = ShapeForWindow(window);
    std::string text;
    for (const std::uint32_t protocol : kProtocols) {
        text += ProtocolsText(protocol) + '\n' +
                MapText({claims, all.collide.at(protocol), protocol}, shape, report.Colour());
    }
    return legend ? text + MapLegend(shape, window.columns, report.Colour()) : text;
}

void WriteSvg(const std::string &path, const std::string &svg, Report &report) {
    if (IsStandardOutput(path)) {
        report.Print(svg);
        return;
    }
    const std::string problem = WriteWholeFile(path, svg);
    if (!problem.empty()) {
        report.AddError(path, "unwritable", problem);
    }
}

// ---- The command

// If a conflict was found, the answer is kNo, even if it is between declarations that are not
// shown; unknown holders do not change that and are not reported. Sources that failed were already
// reported and have raised the status to kFailed.
void AnswerWhetherThereAreConflicts(const PortClaims &all, Report &report) {
    if (std::ranges::any_of(all.collide, [](const auto &ports) { return !ports.second.empty(); })) {
        report.Raise(Status::kNo);
        return;
    }
    for (const auto &[protocol, ports] : all.unclear) {
        if (!ports.empty()) {
            report.AddError("", "unknown-holder",
                            "it is unknown who holds " + Shortened(PortsText(ports)) + '/' +
                                ProtocolsText(protocol) + ", which is declared",
                            geteuid() == 0 ? "" : "ask as root");
        }
    }
}

// The declarations are also needed to find the held ports in conflict.
void Ports(const Arguments &arguments, Report &report) {
    const int shown = ShownSources(arguments);
    const bool conflicts = arguments.Has("--conflicts");
    const bool legend = !arguments.Has("--no-legend");
    const int read = conflicts ? shown | kDeclaringSources : shown;
    PortClaims all = ReadPortClaims({{{0, kHighestPort}}, TAVO_PROTO_BOTH}, read, report);
    std::vector<PortClaim> claims = conflicts ? CollidingClaims(all) : std::move(all.claims);
    std::erase_if(claims, [shown](const PortClaim &claim) { return (claim.source & shown) == 0; });
    if (all.failed != 0) {
        report.Raise(Status::kFailed);
    }
    if (conflicts) {
        AnswerWhetherThereAreConflicts(all, report);
    }
    if (report.PrintsJson()) {
        const bool known = (read & kDeclaringSources) != 0;
        for (const PortClaim &claim : claims) {
            report.AddResult(ClaimJson(claim, known ? Json(Collides(claim, all)) : Json(nullptr)));
        }
    }
    const std::string svg = arguments.Text("--svg");
    if (arguments.Has("--map")) {
        report.Print(MapOfAll(claims, all, legend, report));
    } else if (!report.PrintsJson() && !IsStandardOutput(svg)) {
        report.Print(TableText(claims, all, arguments, report.Columns()));
    }
    if (!svg.empty()) {
        WriteSvg(svg, PortSvg(claims, all, legend), report);
    }
}

constexpr Option kOptions[] = {
    {.name = "--declared", .help = "Only what services, rules and settings declare"},
    {.name = "--held", .help = "Only what processes hold"},
    {.name = "--conflicts", .help = "Only ports in conflict"},
    {.name = "--map", .help = "Draw a map of the ports instead"},
    {.name = "--svg",
     .help = "Write the map to an SVG file; - is standard output",
     .value = {"FILE", Completion::kFiles}},
    {.name = "--no-legend", .help = "Print no header and no legend"},
};

// Only one output can go to standard output, whatever its name.
UsageProblem ProblemOf(const Arguments &arguments) {
    const std::string svg = arguments.Text("--svg");
    if (arguments.Has("--svg") && svg.empty()) {
        return {"--svg needs the name of a file"};
    }
    for (const char *other : {"--json", "--map"}) {
        if (arguments.Has(other) && IsStandardOutput(svg)) {
            return {"--svg " + Escaped(svg) + " and " + other + " exclude each other",
                    "name another file for the map"};
        }
    }
    return {};
}

}  // namespace

constinit const Command kPortsCommand = {
    .name = "ports",
    .summary = "List all ports that are declared or held",
    .options = kOptions,
    .examples = R"(Examples:
  servicetool ports                      every port that is declared or held
  servicetool ports --held               what processes hold right now
  servicetool ports --conflicts          ports in conflict
  servicetool ports --map                a map of all ports
  servicetool ports --svg ports.svg      the map for a browser)",
    .check = ProblemOf,
    .run = Ports,
};

}  // namespace tavo::tool
