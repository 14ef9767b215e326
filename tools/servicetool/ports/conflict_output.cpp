#include "ports/conflict_output.h"

#include <algorithm>
#include <utility>

#include "output/table.h"
#include "output/text.h"
#include "ports/protocols.h"

namespace tavo::tool {
namespace {

// In a line of a table.
constexpr std::size_t kMostHolders = 5;

Json HolderJson(const PortHolder &holder) {
    return {{"name", TextOrNull(holder.name)},
            {"file", TextOrNull(holder.file)},
            {"entry", TextOrNull(holder.entry)}};
}

std::string HeldByText(const PortConflict &conflict) {
    if (conflict.source == kSocketSource) {
        return "in use now";
    }
    if (conflict.source == kReservedSource) {
        return "always taken";
    }
    std::string text;
    const std::size_t shown = std::min(conflict.holders.size(), kMostHolders);
    for (std::size_t i = 0; i < shown; ++i) {
        text += (text.empty() ? "" : ", ") + HolderText(conflict.holders[i]);
    }
    const std::size_t more = conflict.holders.size() - shown;
    return more == 0 ? text : text + " and " + std::to_string(more) + " more";
}

}  // namespace

std::string_view VerdictName(PortVerdict verdict) {
    switch (verdict) {
        case PortVerdict::kFree:
            return "free";
        case PortVerdict::kTaken:
            return "taken";
        default:
            return "unknown";
    }
}

std::string VerdictText(const PortQuery &query, const PortAnswer &answer) {
    const std::string what =
        Shortened(PortsText(query.items)) + '/' + ProtocolsText(query.protocols);
    const PortVerdict verdict = answer.Verdict();
    if (verdict != PortVerdict::kUnknown) {
        return what + " is " + std::string(VerdictName(verdict));
    }
    std::string failed;
    for (const std::string_view source : answer.failed) {
        failed += (failed.empty() ? "" : ", ") + std::string(source);
    }
    return what + ": cannot tell (" + failed + ')';
}

Json ConflictJson(const PortConflict &conflict) {
    return {{"start", conflict.range.first},
            {"end", conflict.range.last},
            {"protocols", ProtocolNames(conflict.protocols)},
            {"source", conflict.source},
            {"held_by", Json::ArrayOf(conflict.holders, HolderJson)},
            {"exact", true}};
}

void ConflictTable::Add(const std::vector<PortConflict> &conflicts, const std::string &section) {
    for (const PortConflict &conflict : conflicts) {
        Cells cells = {PortsText(conflict.range), ProtocolsText(conflict.protocols),
                       std::string(conflict.source), HeldByText(conflict)};
        if (sections_ == Sections::kYes) {
            cells.insert(cells.begin(), section);
        }
        if (known_.insert(cells).second) {
            rows_.push_back(std::move(cells));
        }
    }
}

std::string ConflictTable::Text(bool header, std::size_t columns) const {
    if (rows_.empty()) {
        return {};
    }
    Cells titles = {"PORT", "PROTO", "SOURCE", "HELD BY"};
    if (sections_ == Sections::kYes) {
        titles.insert(titles.begin(), "SECTION");
    }
    Table table(std::move(titles));
    for (const Cells &cells : rows_) {
        table.Row(cells);
    }
    return table.Text(header, columns);
}

}  // namespace tavo::tool
