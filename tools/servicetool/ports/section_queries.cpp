// The ports that an install of a service file requests.
#include <algorithm>
#include <map>

#include "input/library.h"
#include "input/service_file.h"
#include "model/service_file_keys.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

// A section in the text of the file: its header line, and its dst.ports, if any.
struct WrittenSection {
    ConfigLine line;
    std::optional<std::string_view> ports;
};

using WrittenSections = std::map<std::string_view, WrittenSection>;

WrittenSections SectionsOf(std::string_view text) {
    WrittenSections sections;
    WrittenSection *section = nullptr;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind == ConfigLineKind::kSection) {
            section = &sections.emplace(line.name, WrittenSection{line, {}}).first->second;
        } else if (section != nullptr && line.kind == ConfigLineKind::kKeyValue &&
                   line.name == kKeyDstPorts) {
            section->ports = line.value;
        }
    }
    return sections;
}

SectionQuery SectionQueryOf(std::string_view name, const TAVO_SERVICE_CONF_PORT *ports,
                            const WrittenSections &sections) {
    SectionQuery query = {std::string(name), QueryOf(ports)};
    const auto found = sections.find(name);
    if (found != sections.end()) {
        const std::string_view written = found->second.ports.value_or("");
        query.names_protocols = written.find('/') != std::string_view::npos;
        query.line = found->second.line.number;
    }
    return query;
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

std::optional<ConfigLine> PortlessGlobalLine(std::string_view text) {
    const WrittenSections sections = SectionsOf(text);
    const auto global = sections.find(kGlobalSection);
    return global != sections.end() && !global->second.ports
               ? std::optional<ConfigLine>(global->second.line)
               : std::nullopt;
}

std::optional<std::vector<SectionQuery>> QueriesOf(const std::string &text) {
    const OwnedConf conf = ReadServices(text);
    if (conf == nullptr) {
        return {};
    }
    const WrittenSections sections = SectionsOf(text);
    std::vector<SectionQuery> queries;
    const auto global = sections.find(kGlobalSection);
    if (global != sections.end() && global->second.ports) {
        if (const OwnedPorts ports = ReadPorts(std::string(*global->second.ports))) {
            queries.push_back(SectionQueryOf(kGlobalSection, ports.get(), sections));
        }
    }
    for (const TAVO_SERVICE_CONF_SECTION *section : InFileOrder(conf->pSections)) {
        queries.push_back(SectionQueryOf(section->szName, section->pDstPorts, sections));
    }
    return queries;
}

}  // namespace tavo::tool
