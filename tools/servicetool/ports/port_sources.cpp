#include "ports/port_sources.h"

#include <algorithm>
#include <map>
#include <new>
#include <tuple>
#include <utility>

#include "input/library.h"
#include "input/service_file.h"
#include "model/service_file_keys.h"
#include "output/text.h"
#include "support/service_directory.h"

namespace tavo::tool {
namespace {

// The most declarers in a line of a table.
constexpr std::size_t kMostDeclarers = 5;

using TextOrder = decltype([](const PortDeclarer &a, const PortDeclarer &b) {
    return CompareTexts(a, b) < 0;
});

// Groups the records by range. A port that is declared as part of several ranges is in the row of
// each.
void AddConflicts(const std::shared_ptr<const PortConflicts> &found,
                  std::vector<PortAnswer> &answers) {
    using Row = std::tuple<std::size_t, int, PortRange>;  // question and source
    std::map<Row, std::map<PortDeclarer, std::uint32_t, TextOrder>> rows;
    for (const TakenPorts &taken : found->Taken()) {
        rows[{taken.question, taken.source, RangeOf(taken)}][taken.declarer] |= taken.protocols;
    }
    for (const auto &[row, declarers] : rows) {
        std::map<std::uint32_t, std::vector<PortDeclarer>> by_protocols;
        for (const auto &[declarer, protocols] : declarers) {
            std::vector<PortDeclarer> &named = by_protocols[protocols];
            if (declarer != PortDeclarer{}) {
                named.push_back(declarer);
            }
        }
        const auto &[question, source, range] = row;
        for (auto &[protocols, named] : by_protocols) {
            answers[question].conflicts.push_back(
                {range, protocols, source, std::move(named), found});
        }
    }
}

std::string DeclaredByText(const PortConflict &conflict) {
    if (conflict.source == TAVO_PORT_CHECK_RUNTIME) {
        return "in use now";
    }
    if (conflict.source == TAVO_PORT_CHECK_DEFAULT) {
        return "always taken";
    }
    std::string text;
    const std::size_t shown = std::min(conflict.declarers.size(), kMostDeclarers);
    for (std::size_t i = 0; i < shown; ++i) {
        text += (text.empty() ? "" : ", ") + DeclarerText(conflict.source, conflict.declarers[i]);
    }
    const std::size_t more = conflict.declarers.size() - shown;
    return more == 0 ? text : text + " and " + std::to_string(more) + " more";
}

// ---- Sections ----

// A section in the text of the file: its first header, and its dst.ports, if any.
struct WrittenSection {
    ConfigLine header;
    std::optional<std::string_view> ports;
};

// [global] first, the others in file order.
std::vector<WrittenSection> SectionsOf(std::string_view text) {
    std::vector<WrittenSection> sections;
    std::map<std::string_view, std::size_t> by_name;
    std::size_t current = 0;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind == ConfigLineKind::kSection) {
            current = by_name.emplace(line.name, sections.size()).first->second;
            if (current == sections.size()) {
                sections.push_back({line, {}});
            }
        } else if (!sections.empty() && line.kind == ConfigLineKind::kKeyValue &&
                   line.name == kKeyDstPorts) {
            sections[current].ports = line.value;
        }
    }
    std::stable_partition(sections.begin(), sections.end(), [](const WrittenSection &section) {
        return section.header.name == kGlobalSection;
    });
    return sections;
}

// Ignores ports that cannot be read, as an install does.
OwnedPorts ReadPorts(const std::string &text) {
    TAVO_SERVICE_CONF_PORT *ports = nullptr;
    ForgetFailure();
    if (!text.empty() &&
        TAVOServiceConfPortsGet(text.c_str(), TAVO_PORT_DIRECTION_DST, &ports) < 0) {
        ThrowIfSystemFailed("the services cannot be read");
    }
    return OwnedPorts(ports);
}

}  // namespace

std::string_view SourceName(int source) {
    for (const PortSource &one : kPortSources) {
        if (one.flag == source) {
            return one.name;
        }
    }
    return "reserved";
}

std::vector<std::string_view> SourceNames(int sources) {
    std::vector<std::string_view> names;
    for (const PortSource &source : kPortSources) {
        if ((sources & source.flag) != 0) {
            names.push_back(source.name);
        }
    }
    return names;
}

// ---- Declarers ----

std::string FolderAndName(std::string_view path) {
    for (const ServiceFolder &folder : kServiceFolders) {
        const std::string_view directory = folder.path;
        if (path.starts_with(directory)) {
            return std::string(folder.name).append(path.substr(directory.size()));
        }
    }
    return std::string(path);
}

std::strong_ordering CompareTexts(const PortDeclarer &a, const PortDeclarer &b) {
    for (const auto text :
         {&PortDeclarer::name, &PortDeclarer::file, &PortDeclarer::entry, &PortDeclarer::title,
          &PortDeclarer::protocol, &PortDeclarer::router_ports, &PortDeclarer::appliance_ports}) {
        const auto order = OrEmpty(a.*text) <=> OrEmpty(b.*text);
        if (order != 0) {
            return order;
        }
    }
    return std::strong_ordering::equal;
}

std::string PlaceText(int source, const PortDeclarer &declarer) {
    if (source == TAVO_PORT_CHECK_FW_SERVICE) {
        return declarer.file == nullptr ? "built-in" : FolderAndName(declarer.file);
    }
    std::string place(OrEmpty(declarer.entry));
    if (source == TAVO_PORT_CHECK_PORT_FORWARD) {
        const std::string title(OrEmpty(declarer.title));
        place = "rule " + place + (title.empty() ? "" : ", " + title);
    }
    return place;
}

std::string FullPlaceText(int source, const PortDeclarer &declarer) {
    const std::string place = PlaceText(source, declarer);
    return source == TAVO_PORT_CHECK_SYS_KEY ? place + " in " + declarer.file : place;
}

std::string DeclarerText(int source, const PortDeclarer &declarer) {
    const std::string name(OrEmpty(declarer.name));
    const std::string place = PlaceText(source, declarer);
    return name.empty() ? place : name + " (" + place + ')';
}

Json DeclarerJson(const PortDeclarer &declarer) {
    return {{"name", TextOrNull(OrEmpty(declarer.name))},
            {"file", TextOrNull(OrEmpty(declarer.file))},
            {"entry", TextOrNull(OrEmpty(declarer.entry))}};
}

// ---- Answers ----

std::string_view VerdictName(PortVerdict verdict) {
    constexpr std::string_view kNames[] = {"free", "unknown", "taken"};
    return kNames[static_cast<std::size_t>(verdict)];
}

Status StatusOf(PortVerdict verdict) {
    constexpr Status kStatuses[] = {Status::kOk, Status::kFailed, Status::kNo};
    return kStatuses[static_cast<std::size_t>(verdict)];
}

PortVerdict PortAnswer::Verdict() const {
    if (!conflicts.empty()) {
        return PortVerdict::kTaken;
    }
    return failed == 0 ? PortVerdict::kFree : PortVerdict::kUnknown;
}

void PortAnswer::RaiseStatus(Report &report) const {
    report.Raise(failed != 0 ? Status::kFailed : StatusOf(Verdict()));
}

PortRange RangeOf(const TakenPorts &taken) {
    return {static_cast<std::uint32_t>(taken.range.low),
            static_cast<std::uint32_t>(taken.range.high)};
}

std::vector<PortAnswer> PortSources::Ask(const std::vector<PortRequest> &requests) {
    const auto found = std::make_shared<PortConflicts>();
    std::vector<PortAnswer> answers = Find(requests, *found);
    AddConflicts(found, answers);
    return answers;
}

std::vector<PortAnswer> PortSources::Find(const std::vector<PortRequest> &requests,
                                          PortConflicts &found) {
    if (requests.empty()) {
        return {};
    }
    std::vector<std::vector<Range>> ports(requests.size());
    std::vector<std::vector<const char *>> skipped(requests.size());
    std::vector<PortQuestion> questions;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        for (const PortRange &range : requests[i].query.items) {
            ports[i].push_back({static_cast<int>(range.first), static_cast<int>(range.last)});
        }
        for (const std::string &name : requests[i].skipped) {
            skipped[i].push_back(name.c_str());
        }
        questions.push_back({ports[i], requests[i].query.protocols, skipped[i], sources_});
    }
    if (!found.Find(questions)) {
        throw std::bad_alloc();
    }
    std::vector<PortAnswer> answers(requests.size());
    for (const PortSource &source : kPortSources) {
        if ((sources_ & source.flag) != 0) {
            AddFailures(source.flag, found, answers);
        }
    }
    return answers;
}

// ---- The ports of files ----

PortQuery QueryOf(const TAVO_SERVICE_CONF_PORT *ports) {
    PortQuery query;
    for (const TAVO_SERVICE_CONF_PORT *port : InFileOrder(ports)) {
        const auto [first, last] = std::minmax(
            port->nPortStart,
            port->nPortType == TAVO_PORT_TYPE_RANGE ? port->nPortEnd : port->nPortStart);
        query.items.push_back({first, last});
        query.protocols = port->nProtocol;
    }
    return query;
}

// Every section but [global] has ports, or else lint had found an error.
FileQueries QueriesOf(std::string_view text) {
    FileQueries queries;
    for (const auto &[header, written] : SectionsOf(text)) {
        if (!written) {
            queries.portless_global = header;
        } else if (const OwnedPorts ports = ReadPorts(std::string(*written))) {
            // The library cuts long names.
            queries.sections.push_back(
                {.section = std::string(header.name.substr(0, TAVO_SERVICE_CONF_NAME_SIZE - 1)),
                 .query = QueryOf(ports.get()),
                 .names_protocols = written->find('/') != std::string_view::npos,
                 .line = header.number});
        }
    }
    return queries;
}

// ---- Output ----

std::string VerdictText(const PortQuery &query, const PortAnswer &answer) {
    const std::string what =
        Shortened(PortsText(query.items)) + '/' + ProtocolsText(query.protocols);
    const PortVerdict verdict = answer.Verdict();
    if (verdict != PortVerdict::kUnknown) {
        return what + " is " + std::string(VerdictName(verdict));
    }
    std::string failed;
    for (const std::string_view source : SourceNames(answer.failed)) {
        failed += (failed.empty() ? "" : ", ") + std::string(source);
    }
    return what + ": cannot tell (" + failed + ')';
}

Json ConflictJson(const PortConflict &conflict) {
    return {{"start", conflict.range.first},
            {"end", conflict.range.last},
            {"protocols", ProtocolNames(conflict.protocols)},
            {"source", SourceName(conflict.source)},
            {"declared_by", Json::ArrayOf(conflict.declarers, DeclarerJson)},
            {"exact", true}};
}

ConflictTable::ConflictTable(Sections sections)
    : sections_(sections),
      table_(sections == Sections::kYes
                 ? std::vector<std::string>{"SECTION", "PORT", "PROTO", "SOURCE", "DECLARED BY"}
                 : std::vector<std::string>{"PORT", "PROTO", "SOURCE", "DECLARED BY"}) {}

void ConflictTable::Add(const std::vector<PortConflict> &conflicts, const std::string &section) {
    for (const PortConflict &conflict : conflicts) {
        std::vector<std::string> cells = {
            PortsText(conflict.range), ProtocolsText(conflict.protocols),
            std::string(SourceName(conflict.source)), DeclaredByText(conflict)};
        if (sections_ == Sections::kYes) {
            cells.insert(cells.begin(), section);
        }
        if (known_.insert(cells).second) {
            table_.Row(cells);
        }
    }
}

std::string ConflictTable::Text(bool header, std::size_t columns) const {
    return table_.HasRows() ? table_.Text(header, columns) : "";
}

}  // namespace tavo::tool
