// The ports that an install of a service file requests.
#include <algorithm>
#include <map>

#include "input/library.h"
#include "input/service_file.h"
#include "model/service_file_keys.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

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

}  // namespace tavo::tool
