#include "ports/section_queries.h"

#include <algorithm>
#include <stdexcept>

#include "input/input_file.h"
#include "input/library_failure.h"
#include "input/library_owners.h"
#include "input/service_file.h"

namespace tavo::tool {
namespace {

constexpr char kUnread[] = "the services cannot be read";

constexpr std::string_view kPortsKey = "dst.ports";

OwnedConf ReadConf(const std::string &text) {
    const MemoryFile copy(text);
    TAVO_SERVICE_CONF *conf = nullptr;
    ForgetFailure();
    if (TAVOServiceConfGet(copy.Path().c_str(), &conf) != 0) {
        ThrowIfSystemFailed(kUnread);
    }
    return OwnedConf(conf);
}

// The dst.ports of [global]; empty where it has none.
std::string GlobalPorts(const std::string &text) {
    std::string ports;
    bool inside = false;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind == ConfigLineKind::kSection) {
            inside = line.name == kGlobalSection;
        } else if (inside && line.kind == ConfigLineKind::kKeyValue && line.name == kPortsKey) {
            ports = line.value;
        }
    }
    return ports;
}

// Ports that cannot be read are passed over by an install, too.
OwnedPortList ReadPorts(const std::string &text) {
    TAVO_SERVICE_CONF_PORT *ports = nullptr;
    ForgetFailure();
    if (!text.empty() &&
        TAVOServiceConfPortsGet(text.c_str(), TAVO_PORT_DIRECTION_DST, &ports) < 0) {
        ThrowIfSystemFailed(kUnread);
    }
    return OwnedPortList(ports);
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

std::optional<ConfigLine> GlobalLine(std::string_view text) {
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        if (line.kind == ConfigLineKind::kSection && line.name == kGlobalSection) {
            return line;
        }
    }
    return {};
}

std::optional<std::vector<SectionQuery>> QueriesOf(const std::string &text) {
    const OwnedConf conf = ReadConf(text);
    if (conf == nullptr) {
        return {};
    }
    if (!LibraryAndLintAgree(conf.get(), LintText(text, {}))) {
        throw std::runtime_error(kUnread);
    }
    std::vector<SectionQuery> queries;
    if (const OwnedPortList ports = ReadPorts(GlobalPorts(text))) {
        queries.push_back({std::string(kGlobalSection), QueryOf(ports.get())});
    }
    for (const TAVO_SERVICE_CONF_SECTION *section : InFileOrder(conf->pSections)) {
        queries.push_back({section->szName, QueryOf(section->pDstPorts)});
    }
    return queries;
}

}  // namespace tavo::tool
