// servicetool ports: all claims to ports, as a table, as JSON, or as a map.
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "commands/commands.h"
#include "output/output_file.h"
#include "output/table.h"
#include "output/text.h"
#include "picture/port_map.h"
#include "picture/port_svg.h"
#include "ports/port_claims.h"
#include "ports/port_query.h"

namespace tavo::tool {
namespace {

struct PortsOptions {
    bool declared = false;   // only declared ports; both kinds if neither or both are set
    bool held = false;       // only held ports
    bool conflicts = false;  // only ports in conflict
    bool map = false;        // a map for the terminal instead of a table
    std::string svg;         // file for an additional SVG map; no map if empty; only the map if
                             // kStandardOutput
    bool no_legend = false;
};

// The width of a window if it is unknown.
constexpr std::size_t kOrdinaryColumns = 80;

// In a narrower window the states are omitted, to leave more room for the places.
constexpr std::size_t kColumnsForStates = 100;

enum class Kinds { kDeclared, kHeld, kBoth };

Kinds ShownKinds(const PortsOptions &options) {
    return options.declared == options.held ? Kinds::kBoth
           : options.held                   ? Kinds::kHeld
                                            : Kinds::kDeclared;
}

bool IsShown(const PortClaim &claim, Kinds kinds) {
    return kinds == Kinds::kBoth || (kinds == Kinds::kHeld) == (claim.socket != nullptr);
}

// Declarations are also needed to find the held ports in conflict.
KindsOfClaim KindsToRead(const PortsOptions &options) {
    const Kinds kinds = ShownKinds(options);
    return {kinds != Kinds::kHeld || options.conflicts, kinds != Kinds::kDeclared};
}

constexpr char kUnknown[] = "unknown";

std::string ServiceText(const PortClaim &claim) {
    return claim.declarer == nullptr ? "" : claim.declarer->name;
}

const HoldingProcess *ProcessOf(const PortClaim &claim) {
    return claim.socket == nullptr ? nullptr : claim.socket->process;
}

std::string PidText(const PortClaim &claim) {
    const HoldingProcess *process = ProcessOf(claim);
    return process == nullptr ? "" : std::to_string(process->pid);
}

std::string UserText(const PortClaim &claim) {
    const HoldingProcess *process = ProcessOf(claim);
    return process == nullptr ? "" : process->user;
}

std::string StateText(const PortClaim &claim) {
    return claim.socket == nullptr ? "" : StateName(*claim.socket);
}

std::string ProcessText(const PortClaim &claim) {
    const HoldingProcess *process = ProcessOf(claim);
    return process != nullptr ? process->name : claim.socket != nullptr ? kUnknown : "";
}

std::string ProgramText(const PortClaim &claim) {
    const HoldingProcess *process = ProcessOf(claim);
    return process == nullptr || process->program.empty() ? ProcessText(claim) : process->program;
}

// The place of a declaration, or the program of a socket.
std::string WhereText(const PortClaim &claim) {
    const HoldingProcess *process = ProcessOf(claim);
    return process != nullptr        ? process->program
           : claim.socket != nullptr ? ""
                                     : claim.declarer->place;
}

// Ports in conflict are marked; a range is marked if one of its ports is in conflict.
std::string PortText(const PortClaim &claim, const PortClaims &all) {
    return PortsText(claim.range) + (Collides(claim, all) ? " !" : "");
}

// A column after those of the port; it can be hidden. The longest text is in the last column, which
// is cut to fit.
struct Column {
    const char *title;
    bool shown;
    std::string (*cell)(const PortClaim &);
};

std::vector<Column> ColumnsFor(Kinds kinds, std::size_t window) {
    const bool declared = kinds != Kinds::kHeld;
    const bool held = kinds != Kinds::kDeclared;
    const bool roomy = !declared || window == 0 || window >= kColumnsForStates;
    return {
        {"SOURCE", declared, [](const PortClaim &claim) { return std::string(claim.source); }},
        {"SERVICE", declared, ServiceText},
        {"PID", held, PidText},
        {"USER", !declared, UserText},
        {"PROGRAM", held && declared, ProcessText},
        {"STATE", held && roomy, StateText},
        {"PROGRAM", !declared, ProgramText},
        {"WHERE", declared, WhereText},
    };
}

std::string TableText(const std::vector<PortClaim> &claims, const PortClaims &all,
                      const PortsOptions &options, std::size_t window) {
    if (claims.empty()) {
        return {};
    }
    std::vector<Column> columns = ColumnsFor(ShownKinds(options), window);
    std::erase_if(columns, [](const Column &column) { return !column.shown; });
    std::vector<std::string> header = {"PROTO", "PORT"};
    for (const Column &column : columns) {
        header.emplace_back(column.title);
    }
    Table table(header);
    for (const PortClaim &claim : claims) {
        std::vector<std::string> cells = {ProtocolsText(claim.protocol), PortText(claim, all)};
        for (const Column &column : columns) {
            cells.push_back(column.cell(claim));
        }
        table.Row(cells);
    }
    return table.Text(!options.no_legend, window);
}

// All results have the same keys; missing values are null.
Json ClaimJson(const PortClaim &claim, Json conflict) {
    const HoldingProcess nobody;
    const Declarer none;
    const HoldingProcess *known = ProcessOf(claim);
    const Declarer &declarer = claim.declarer == nullptr ? none : *claim.declarer;
    const HoldingProcess &process = known == nullptr ? nobody : *known;
    return {{"protocol", ProtocolsText(claim.protocol)},
            {"start", claim.range.first},
            {"end", claim.range.last},
            {"source", claim.source},
            {"service", TextOrNull(declarer.name)},
            {"file", TextOrNull(declarer.file)},
            {"entry", TextOrNull(declarer.entry)},
            {"pid", known == nullptr ? Json(nullptr) : Json(process.pid)},
            {"program", TextOrNull(process.program)},
            {"process", TextOrNull(process.name)},
            {"user", TextOrNull(process.user)},
            {"state", TextOrNull(StateText(claim))},
            {"conflict", std::move(conflict)}};
}

std::string MapOfAll(const std::vector<PortClaim> &claims, const PortClaims &all,
                     const PortsOptions &options, const Report &report) {
    WindowSize window = report.Window();
    window.columns = window.columns == 0 ? kOrdinaryColumns : window.columns;
    const MapShape shape = ShapeForWindow(window);
    std::string text;
    for (const std::uint32_t protocol : kProtocols) {
        const PortMap map(claims, all.collide.at(protocol), protocol);
        text += ProtocolsText(protocol) + '\n' + MapText(map, shape, report.Colour());
    }
    return options.no_legend ? text : text + MapLegend(shape, window.columns, report.Colour());
}

void WriteSvg(const std::string &path, const std::string &svg, Report &report) {
    if (path == kStandardOutput) {
        report.Print(svg);
        return;
    }
    const std::string problem = WriteWholeFile(path, svg);
    if (!problem.empty()) {
        report.TellError(path, "unwritable", problem);
        report.Raise(Status::kFailed);
    }
}

bool AnyConflict(const PortClaims &all) {
    return std::any_of(all.collide.begin(), all.collide.end(),
                       [](const auto &protocol) { return !protocol.second.empty(); });
}

// If a conflict was found, the answer is kNo, even if it is between declarations that are not
// shown; unknown holders do not change that and are not reported. Sources that failed were already
// reported and have raised the status to kFailed.
void AnswerWhetherThereAreConflicts(const PortClaims &all, Report &report) {
    if (AnyConflict(all)) {
        report.Raise(Status::kNo);
        return;
    }
    for (const auto &[protocol, ports] : all.unclear) {
        if (!ports.empty()) {
            report.TellError("", "unknown-holder",
                             "it is unknown who holds " + Shortened(PortsText(ports)) + '/' +
                                 ProtocolsText(protocol) + ", which is declared",
                             geteuid() == 0 ? "" : "ask as root");
            report.Raise(Status::kFailed);
        }
    }
}

void Ports(const PortsOptions &options, Report &report) {
    const KindsOfClaim read = KindsToRead(options);
    const PortClaims all = ReadPortClaims(read, report);
    std::vector<PortClaim> claims = options.conflicts ? CollidingClaims(all) : all.claims;
    std::erase_if(claims, [shown = ShownKinds(options)](const PortClaim &claim) {
        return !IsShown(claim, shown);
    });
    if (!all.known) {
        report.Raise(Status::kFailed);
    }
    if (options.conflicts) {
        AnswerWhetherThereAreConflicts(all, report);
    }
    if (report.PrintsJson()) {
        for (const PortClaim &claim : claims) {
            report.AddResult(
                ClaimJson(claim, read.declared ? Json(Collides(claim, all)) : Json(nullptr)));
        }
    }
    const bool only_svg = options.svg == kStandardOutput;
    if (options.map) {
        report.Print(MapOfAll(claims, all, options, report));
    } else if (!only_svg) {
        report.Print(TableText(claims, all, options, report.Columns()));
    }
    if (!options.svg.empty()) {
        WriteSvg(options.svg, PortSvg(claims, all, !options.no_legend), report);
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

constexpr char kExamples[] = R"(Examples:
  servicetool ports                      every port that is declared or held
  servicetool ports --held               what processes hold right now
  servicetool ports --conflicts          ports in conflict
  servicetool ports --map                a map of all ports
  servicetool ports --svg ports.svg      the map for a browser)";

// Only one output can go to standard output, whatever its name.
UsageProblem ProblemOf(const Arguments &arguments) {
    const std::string svg = arguments.Text("--svg");
    if (arguments.Has("--svg") && svg.empty()) {
        return {"--svg needs the name of a file"};
    }
    for (const char *other : {"--json", "--map"}) {
        if (arguments.Has(other) && IsStandardOutput(svg)) {
            return {"--svg " + Escaped(svg) + " and " + other + " exclude each other",
                    "name another file for the picture"};
        }
    }
    return {};
}

PortsOptions OptionsOf(const Arguments &arguments) {
    std::string svg = arguments.Text("--svg");
    if (IsStandardOutput(svg)) {
        svg = kStandardOutput;
    }
    return {.declared = arguments.Has("--declared"),
            .held = arguments.Has("--held"),
            .conflicts = arguments.Has("--conflicts"),
            .map = arguments.Has("--map"),
            .svg = std::move(svg),
            .no_legend = arguments.Has("--no-legend")};
}

}  // namespace

constinit const Command kPortsCommand = {
    .name = "ports",
    .summary = "List all ports that are declared or held",
    .operands = {},
    .options = kOptions,
    .examples = kExamples,
    .check = ProblemOf,
    .run = [](const Arguments &arguments, Report &report) { Ports(OptionsOf(arguments), report); },
};

}  // namespace tavo::tool
