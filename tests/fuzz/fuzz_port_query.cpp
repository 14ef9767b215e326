// PORTS[/PROTOCOLS] as typed by users: accepted text means the same to the library, and rejected
// text is reported with a position.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace {

// The ports of a list as parsed by the library, and the protocols of its head.
tavo::tool::PortQuery Parsed(const std::string &text) {
    TAVO_SERVICE_CONF_PORT *list = nullptr;
    Require(TAVOServiceConfPortsGet(text.c_str(), TAVO_PORT_DIRECTION_DST, &list) == 0);
    tavo::tool::PortQuery query;
    query.protocols = list->nProtocol;
    for (const TAVO_SERVICE_CONF_PORT *port = list; port != nullptr; port = port->pNext) {
        const bool range = port->nPortType == TAVO_PORT_TYPE_RANGE;
        query.items.push_back({port->nPortStart, range ? port->nPortEnd : port->nPortStart});
    }
    TAVOServiceConfPortsFree(list);
    return query;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    tavo::tool::PortQuery query;
    if (const auto problem = tavo::tool::ReadPortQuery(text, query)) {
        const std::size_t column = problem->ColumnIn(text);
        Require(query.items.empty() && query.protocols == 0);
        Require(!problem->message.empty() && column >= 1 && column <= size + 1);
        return 0;
    }
    const std::string printed = tavo::tool::QueryText(query);
    const tavo::tool::PortQuery parsed = Parsed(printed);
    Require(parsed.protocols == query.protocols);
    Require(tavo::tool::Merged(parsed.items) == tavo::tool::Merged(query.items));

    tavo::tool::PortQuery again;
    Require(!tavo::tool::ReadPortQuery(printed, again) && tavo::tool::QueryText(again) == printed);
    return 0;
}
