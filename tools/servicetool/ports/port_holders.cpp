#include "ports/port_holders.h"

#include "ports/declared_text.h"

namespace tavo::tool {
namespace {

PortHolder HolderOf(const FirewallService &service) {
    const std::string name = service.record->szName;
    return {name, service.file == nullptr ? "" : service.file->path,
            service.file == nullptr ? "" : name, OriginText(service)};
}

PortHolder HolderOf(const ForwardRule &rule) {
    const std::string entry(rule.line.name);
    const std::string title = rule.Value(kRuleTitle);
    return {rule.Value(kRuleService), kRuleFile, entry,
            "rule " + entry + (title.empty() ? "" : ", " + title)};
}

void Declare(std::string_view text, std::uint32_t protocols, const PortHolder &holder,
             Declarations &declarations) {
    PortRanges ranges;
    ReadDeclaredPorts(text, ranges);
    for (const PortRange &range : ranges) {
        declarations.push_back({range, protocols, holder});
    }
}

}  // namespace

std::string HolderText(const PortHolder &holder) {
    if (holder.name.empty() || holder.place.empty()) {
        return holder.name + holder.place;
    }
    return holder.name + " (" + holder.place + ')';
}

Declarations DeclaredBy(const FirewallServices &services) {
    Declarations declarations;
    for (const FirewallService &service : services.services) {
        const TAVO_FW_SERVICE &record = *service.record;
        const PortHolder holder = HolderOf(service);
        for (int i = 0; i < TLIBCSzListCount(record.pDstPortList); ++i) {
            Declare(TLIBCSzListGet(record.pDstPortList, i), record.nDstProtocol, holder,
                    declarations);
        }
    }
    return declarations;
}

// A rule takes its ports for both protocols, whichever it names.
Declarations DeclaredBy(const RuleFile &file) {
    Declarations declarations;
    for (const ForwardRule &rule : file.Rules()) {
        const PortHolder holder = HolderOf(rule);
        for (const char *key : {kRuleAppliancePorts, kRuleRouterPorts}) {
            Declare(rule.Value(key), TAVO_PROTO_BOTH, holder, declarations);
        }
    }
    return declarations;
}

void HeldPorts::Add(const PortRanges &taken, std::uint32_t protocols,
                    const Declarations &declarations, const SkippedNames &skipped) {
    PortRanges named;
    for (const Declaration &declaration : declarations) {
        if ((declaration.protocols & protocols) == 0 || Skips(skipped, declaration.holder.name)) {
            continue;
        }
        for (const PortRange &range : Overlap(taken, declaration.range)) {
            by_range_[range][declaration.holder] |= protocols;
            named.push_back(range);
        }
    }
    for (const PortRange &range : Without(taken, Merged(std::move(named)))) {
        by_range_[range][PortHolder{}] |= protocols;
    }
}

std::vector<HeldPorts::Row> HeldPorts::Rows() const {
    std::vector<Row> rows;
    for (const auto &[range, holders] : by_range_) {
        std::map<std::uint32_t, std::vector<PortHolder>> by_protocols;
        for (const auto &[holder, protocols] : holders) {
            std::vector<PortHolder> &named = by_protocols[protocols];
            if (holder != PortHolder{}) {
                named.push_back(holder);
            }
        }
        for (auto &[protocols, named] : by_protocols) {
            rows.push_back({range, protocols, std::move(named)});
        }
    }
    return rows;
}

}  // namespace tavo::tool
