// Ports that are asked for, up to the first newline, against declared ones behind it: whatever both
// say, the answer and the conflicts that come with it agree.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/service_is_port_conflict.h"
#include "fuzz_support.h"
#include "tavoserviceconf.h"

namespace {

constexpr std::uint32_t kHighestPort = 65535;

void RequireGoodConflict(const TAVO_SERVICE_CONF_PORT &port) {
    Require(port.nDirection == TAVO_PORT_DIRECTION_SRC && port.nProtocol == TAVO_PROTO_BOTH);
    Require(port.nPortStart <= kHighestPort && port.nPortEnd <= kHighestPort);
    const bool range = port.nPortType == TAVO_PORT_TYPE_RANGE;
    Require(range ? port.nPortStart < port.nPortEnd : port.nPortEnd == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::size_t newline = std::min(text.find('\n'), text.size());
    const std::string query(text.c_str(), newline);
    const std::string declared(text.c_str() + std::min(newline + 1, text.size()));
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int answer = tavo::CompareQueryPorts(query.c_str(), declared.c_str(), &conflicts);
    Require(answer >= -1 && answer <= 1);
    Require(answer != 1 || conflicts != nullptr);
    Require(answer != 0 || conflicts == nullptr);
    for (const auto *port = conflicts; port != nullptr; port = port->pNext) {
        RequireGoodConflict(*port);
    }
    TAVOServiceConfPortsFree(conflicts);
    return 0;
}
