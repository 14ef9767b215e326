// servicetool ports: all claims to ports at once, as a table, as JSON, or as a picture.
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <utility>

#include "commands.h"
#include "output_file.h"
#include "port_claims.h"
#include "port_map.h"
#include "port_svg.h"
#include "protocols.h"
#include "table.h"
#include "text.h"

namespace tavo {
namespace {

using Json = nlohmann::ordered_json;

// What a window is taken for that has no columns, or none that are known.
constexpr std::size_t kOrdinaryColumns = 80;

enum class Kinds { kDeclared, kHeld, kBoth };

Kinds ShownKinds(const PortsOptions &options) {
    return options.declared == options.held ? Kinds::kBoth
           : options.held                   ? Kinds::kHeld
                                            : Kinds::kDeclared;
}

bool IsShown(const PortClaim &claim, Kinds kinds) {
    return kinds == Kinds::kBoth || (kinds == Kinds::kHeld) == claim.socket.has_value();
}

// Who declares ports decides whether one that is held is in conflict.
KindsOfClaim KindsToRead(const PortsOptions &options) {
    const Kinds kinds = ShownKinds(options);
    return {kinds != Kinds::kHeld || options.conflicts, kinds != Kinds::kDeclared};
}

std::string ServiceText(const PortClaim &claim) {
    return claim.socket ? claim.holder.name : HolderText(claim.holder);
}

const HoldingProcess *ProcessOf(const PortClaim &claim) {
    return claim.socket && claim.socket->process ? &*claim.socket->process : nullptr;
}

std::string ProgramText(const PortClaim &claim) {
    const HoldingProcess *process = ProcessOf(claim);
    if (process == nullptr) {
        return claim.socket ? "unknown" : "";
    }
    return process->program.empty() ? process->name : process->program;
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
    return claim.socket ? StateName(*claim.socket) : "";
}

// The columns of the table; what is not shown leaves its columns to the rest.
struct Column {
    const char *title;
    bool shown;
    std::string (*cell)(const PortClaim &);
};

std::vector<Column> ColumnsFor(Kinds kinds) {
    const bool declared = kinds != Kinds::kHeld;
    const bool held = kinds != Kinds::kDeclared;
    return {
        {"PROTO", true, [](const PortClaim &claim) { return ProtocolsText(claim.protocol); }},
        {"PORT", true, [](const PortClaim &claim) { return PortsText(claim.range); }},
        {"SOURCE", declared, [](const PortClaim &claim) { return std::string(claim.source); }},
        {"SERVICE", declared, ServiceText},
        {"PID", held, PidText},
        {"USER", !declared, UserText},
        {"STATE", held, StateText},
        {"PROGRAM", held, ProgramText},
    };
}

std::string TableText(const std::vector<PortClaim> &claims, const PortsOptions &options,
                      std::size_t window) {
    if (claims.empty()) {
        return {};
    }
    std::vector<Column> columns = ColumnsFor(ShownKinds(options));
    std::erase_if(columns, [](const Column &column) { return !column.shown; });
    std::vector<std::string> header;
    for (const Column &column : columns) {
        header.emplace_back(column.title);
    }
    Table table(std::move(header));
    for (const PortClaim &claim : claims) {
        std::vector<std::string> cells;
        for (const Column &column : columns) {
            cells.push_back(column.cell(claim));
        }
        table.Row(std::move(cells));
    }
    return table.Text(!options.no_legend, window);
}

// Keys of what the claim has not are there with null, so that every result has the same ones.
Json ClaimJson(const PortClaim &claim, const Json &conflict) {
    const HoldingProcess nobody;
    const HoldingProcess *known = ProcessOf(claim);
    const HoldingProcess &process = known == nullptr ? nobody : *known;
    return {{"protocol", ProtocolsText(claim.protocol)},
            {"start", claim.range.first},
            {"end", claim.range.last},
            {"source", claim.source},
            {"service", TextOrNull(claim.holder.name)},
            {"file", TextOrNull(claim.holder.file)},
            {"entry", TextOrNull(claim.holder.entry)},
            {"pid", known == nullptr ? Json(nullptr) : Json(process.pid)},
            {"program", TextOrNull(process.program)},
            {"process", TextOrNull(process.name)},
            {"user", TextOrNull(process.user)},
            {"state", TextOrNull(StateText(claim))},
            {"conflict", conflict}};
}

std::string MapOfAll(const std::vector<PortClaim> &claims, const PortClaims &all,
                     const PortsOptions &options, const Report &report) {
    const std::size_t columns = report.Columns() == 0 ? kOrdinaryColumns : report.Columns();
    const MapShape shape = ShapeForTerminal(columns);
    std::string text;
    for (const std::uint32_t protocol : kProtocols) {
        const PortMap map(claims, all.collide.at(protocol), protocol);
        text += ProtocolsText(protocol) + '\n' + MapText(map, shape, report.Colour());
    }
    return options.no_legend ? text : text + MapLegend(shape, columns, report.Colour());
}

void WriteSvg(const std::string &path, const std::string &svg, Report &report) {
    if (path == kStandardOutput) {
        report.Print(svg);
        return;
    }
    const std::string problem = WriteWholeFile(path, svg);
    if (!problem.empty()) {
        report.TellError(path, "unwritable", "cannot be written and is as it was: " + problem);
        report.Raise(Status::kFailed);
    }
}

// Where a conflict was found there is an answer, whatever may be besides; a port that nobody knows
// the holder of leaves none where that is the only doubt.
void AnswerWhetherThereAreConflicts(const PortClaims &all, bool any, Report &report) {
    if (any) {
        report.Raise(Status::kNo);
        return;
    }
    for (const auto &[protocol, ports] : all.unclear) {
        if (!ports.empty()) {
            report.TellError("", "unknown-holder",
                             "cannot tell who holds " + Shortened(PortsText(ports)) + '/' +
                                 ProtocolsText(protocol) + ", which is declared",
                             geteuid() == 0 ? "" : "ask as root");
            report.Raise(Status::kFailed);
        }
    }
}

}  // namespace

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
        AnswerWhetherThereAreConflicts(all, !claims.empty(), report);
    }
    for (const PortClaim &claim : claims) {
        report.AddResult(
            ClaimJson(claim, read.declared ? Json(Collides(claim, all)) : Json(nullptr)));
    }
    const bool only_svg = options.svg == kStandardOutput;
    if (options.map) {
        report.Print(MapOfAll(claims, all, options, report));
    } else if (!only_svg) {
        report.Print(TableText(claims, options, report.Columns()));
    }
    if (!options.svg.empty()) {
        WriteSvg(options.svg, PortSvg(claims, all, !options.no_legend), report);
    }
}

}  // namespace tavo
