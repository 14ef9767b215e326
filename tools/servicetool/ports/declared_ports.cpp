#include "ports/declared_ports.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <tuple>

#include "base/system_files.h"
#include "check/declared_ports.h"
#include "engine/conflicts.h"
#include "ports/port_sources.h"
#include "ports/source_failure.h"
#include "support/service_directory.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

constexpr int kDeclaringSources =
    TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY;

std::string TextOf(const char *text) {
    return text == nullptr ? "" : text;
}

// "system/FILE" or "package/FILE".
std::string FolderAndName(const std::string &path) {
    for (const ServiceFolder &folder : kServiceFolders) {
        if (path.starts_with(folder.path)) {
            return folder.name + path.substr(std::string_view(folder.path).size());
        }
    }
    return path;
}

std::string ServiceName(const std::string &name) {
    const auto row =
        std::find_if(std::begin(kSystemPorts), std::end(kSystemPorts),
                     [&name](const SystemPort &system) { return name == system.service; });
    return row == std::end(kSystemPorts) || row->setting_service == nullptr ? name
                                                                            : row->setting_service;
}

class DeclaredPortsReader {
  public:
    DeclaredPortsReader(const PortQuery &query, Report &report)
        : query_(query), sources_(kDeclaringSources, report) {}

    Declarations Read();

  private:
    void Add(const PortRange &range, std::uint32_t protocols, std::string_view source);
    void AddTaken(std::span<const TakenPorts> all);
    void AddSystemPort(const SystemPort &row);
    bool IsAskedFor(std::uint32_t port) const;

    const PortQuery &query_;
    PortSources sources_;
    Declarations declared_;
};

// Adds a declaration of the most recent declarer for each requested protocol.
void DeclaredPortsReader::Add(const PortRange &range, std::uint32_t protocols,
                              std::string_view source) {
    for (const std::uint32_t protocol : kProtocols) {
        if ((protocols & query_.protocols & protocol) != 0) {
            declared_.declarations.push_back(
                {range, protocol, source, &declared_.declarers.back()});
        }
    }
}

// The ports of one declarer are adjacent.
void DeclaredPortsReader::AddTaken(std::span<const TakenPorts> all) {
    const TakenPorts *former = nullptr;
    for (const TakenPorts &taken : all) {
        if (taken.source == TAVO_PORT_CHECK_DEFAULT) {
            continue;
        }
        if (former == nullptr || former->source != taken.source ||
            former->declarer != taken.declarer) {
            declared_.declarers.push_back(DeclarerOf(taken));
        }
        former = &taken;
        Add(RangeOf(taken), taken.protocols, SourceName(taken.source));
    }
}

bool DeclaredPortsReader::IsAskedFor(std::uint32_t port) const {
    return std::any_of(query_.items.begin(), query_.items.end(), [port](const PortRange &range) {
        return range.first <= port && port <= range.last;
    });
}

// Skips keys that are also settings of the engine, which has already reported them.
void DeclaredPortsReader::AddSystemPort(const SystemPort &row) {
    const bool setting = row.key != nullptr;
    if (setting && std::any_of(std::begin(kServiceSettings), std::end(kServiceSettings),
                               [&row](const ServiceSetting &known) {
                                   return std::string_view(known.key) == row.key;
                               })) {
        return;
    }
    const SystemDeclaration read = ReadSystemPort(TAVO_HERE, row);
    if (!read.reading.IsGood()) {
        sources_.Fail({.source = TAVO_PORT_CHECK_SYS_KEY,
                       .code = read.reading.Fault(),
                       .declarer = {.file = kSettingsFile, .entry = row.key}},
                      declared_.failed);
    } else if (read.port != 0 && IsAskedFor(read.port)) {
        declared_.declarers.push_back({row.service, setting ? kSettingsFile : "", TextOf(row.key),
                                       setting ? row.key : "built-in", "",
                                       ServiceName(row.service)});
        Add({read.port, read.port}, row.protocol, setting ? kSettingSource : kServiceSource);
    }
}

Declarations DeclaredPortsReader::Read() {
    PortConflicts found;
    declared_.failed = std::move(sources_.Find({{query_, {}}}, found).front());
    AddTaken(found.Taken());
    for (const SystemPort &row : kSystemPorts) {
        AddSystemPort(row);
    }
    SortDeclarations(declared_.declarations);
    return std::move(declared_);
}

}  // namespace

Declarer DeclarerOf(const TakenPorts &taken) {
    const PortDeclarer &by = taken.declarer;
    Declarer declarer = {TextOf(by.name), TextOf(by.file), TextOf(by.entry), TextOf(by.entry)};
    declarer.service = ServiceName(declarer.name);
    if (taken.source == TAVO_PORT_CHECK_PORT_FORWARD) {
        const std::string title = TextOf(by.title);
        declarer.place = "rule " + declarer.entry + (title.empty() ? "" : ", " + title);
        declarer.detail = std::string(by.protocol) + ", " + by.router_ports + " of the router to " +
                          by.appliance_ports;
    } else if (taken.source == TAVO_PORT_CHECK_FW_SERVICE) {
        declarer.place = declarer.file.empty() ? "built-in" : FolderAndName(declarer.file);
    }
    return declarer;
}

std::string DeclarerText(const Declarer &declarer) {
    if (declarer.name.empty() || declarer.place.empty()) {
        return declarer.name + declarer.place;
    }
    return declarer.name + " (" + declarer.place + ')';
}

void SortDeclarations(std::vector<Declaration> &declarations) {
    const auto key = [](const Declaration &declaration) {
        return std::tie(declaration.range, declaration.protocol, declaration.source,
                        *declaration.declarer);
    };
    std::sort(declarations.begin(), declarations.end(),
              [key](const Declaration &a, const Declaration &b) { return key(a) < key(b); });
    declarations.erase(
        std::unique(declarations.begin(), declarations.end(),
                    [key](const Declaration &a, const Declaration &b) { return key(a) == key(b); }),
        declarations.end());
}

Declarations ReadDeclaredPorts(const PortQuery &query, Report &report) {
    return DeclaredPortsReader(query, report).Read();
}

}  // namespace tavo::tool
