// Copies one checked port entry into a caller's list, and frees such lists.
#include <cstdlib>

#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

// The end of a single port is nobody's business: it is copied as it stands.
bool IsValid(const TAVO_SERVICE_CONF_PORT &port) {
    constexpr uint32_t nBothProtocols = TAVO_PROTO_TCP | TAVO_PROTO_UDP;
    return port.nPortType < 2 && port.nDirection < 2 && (port.nProtocol & nBothProtocols) != 0 &&
           (port.nPortType == 0 || port.nPortStart <= port.nPortEnd);
}

}  // namespace

int TAVOServiceComposePortInfo(const TAVO_SERVICE_CONF_PORT *pPort,
                               TAVO_SERVICE_CONF_PORT **ppList) {
    if (pPort == nullptr || ppList == nullptr || !IsValid(*pPort)) {
        TAVO_SET_ERROR(tavo::kErrorBadParameter);
        return TAVO_LOG_STATE("Bad Parameters!");
    }
    auto copy = tavo::NewRecord<tavo::OwnedPorts>();
    if (copy == nullptr) {
        TAVO_SET_ERROR(tavo::kErrorNoMemory);
        return TAVO_LOG_STATE("Failed to allocate TAVO_SERVICE_CONF_PORT! ");
    }
    *copy = *pPort;
    tavo::Prepend(std::move(copy), ppList);
    return 0;
}

void TAVOServiceConfPortsFree(TAVO_SERVICE_CONF_PORT *pList) {
    while (pList != nullptr) {
        TAVO_SERVICE_CONF_PORT *pNext = pList->pNext;
        std::free(pList);
        pList = pNext;
    }
}
