// Copies one validated port entry into a caller's list, and frees such lists.
#include <cstdlib>
#include <utility>

#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

// nPortEnd is ignored for single ports: it is copied unchanged.
bool IsValid(const TAVO_SERVICE_CONF_PORT &port) {
    return port.nPortType <= TAVO_PORT_TYPE_RANGE && port.nDirection <= TAVO_PORT_DIRECTION_DST &&
           (port.nProtocol & TAVO_PROTO_BOTH) != 0 &&
           (port.nPortType == TAVO_PORT_TYPE_SINGLE || port.nPortStart <= port.nPortEnd);
}

}  // namespace

int TAVOServiceComposePortInfo(const TAVO_SERVICE_CONF_PORT *pPort,
                               TAVO_SERVICE_CONF_PORT **ppList) {
    if (pPort == nullptr || ppList == nullptr || !IsValid(*pPort)) {
        return TAVO_FAIL_STATE(TLIBC_ERR_BAD_PARAMETER, "Bad Parameters!");
    }
    auto copy = tavo::NewRecord<tavo::OwnedPorts>();
    if (copy == nullptr) {
        return TAVO_FAIL_STATE(TLIBC_ERR_NO_MEMORY, "Failed to allocate TAVO_SERVICE_CONF_PORT! ");
    }
    *copy = *pPort;
    tavo::Prepend(std::move(copy), ppList);
    return 0;
}

void TAVOServiceConfPortsFree(TAVO_SERVICE_CONF_PORT *pList) {
    while (pList != nullptr) {
        std::free(std::exchange(pList, pList->pNext));
    }
}
