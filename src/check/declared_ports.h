// The ports that are declared, by the system's own settings and by the firewall services, as they
// are declared: a range is one entry.
#ifndef TAVO_SRC_CHECK_DECLARED_PORTS_H
#define TAVO_SRC_CHECK_DECLARED_PORTS_H

#include <cstdint>

#include "model/reading.h"
#include "support/failure.h"
#include "tavoserviceconf.h"

namespace tavo {

// What the system itself declares: the value of a key of the settings, or a port that is fixed.
struct SystemPort {
    const char *key;
    const char *port;
    uint16_t protocol;
    const char *service;
    const char
        *setting_service;  // the same service as the engine's settings name it; null for none
};

inline constexpr SystemPort kSystemPorts[] = {
    {"syslogport", nullptr, TAVO_PROTO_TCP, "tavo-syslog", "syslog_server"},
    {"smsport", nullptr, TAVO_PROTO_TCP, "tavo-sms", nullptr},
    {nullptr, "5005", TAVO_PROTO_TCP, "tavo-webdav", "webdav_http"},
    {nullptr, "5006", TAVO_PROTO_TCP, "tavo-webdav-ssl", "webdavs_https"},
    {"syslogport", nullptr, TAVO_PROTO_UDP, "tavo-syslog", "syslog_server"},
};

// The port that a row declares now.
struct SystemDeclaration {
    uint16_t port;    // 0 when the key is absent or cannot be read
    Reading reading;  // invalid when the value is no port; `port` is the number that it begins with
};

// `here` is the place of the operation that reads, which the log lines name.

// A key that is absent or cannot be read is logged.
SystemDeclaration ReadSystemPort(const Place &here, const SystemPort &row);

// Only a service of exactly TCP counts for TCP; one that declares both is found under UDP alone,
// which is kept.
inline uint16_t DeclaredProtocol(const TAVO_FW_SERVICE &service) {
    return service.nDstProtocol == TAVO_PROTO_TCP ? TAVO_PROTO_TCP : TAVO_PROTO_UDP;
}

// Reads a port string of a service, such as "80" or "8000-8002". False, which is logged, when it
// declares no port.
bool ReadPortString(const Place &here, const char *text, const char *service, uint16_t &first,
                    uint16_t &last);

// Calls take(first, last) for each port string of the service that declares any, in their order,
// until it answers false, which then is the answer.
template <typename Take>
bool ForEachDeclaredRange(const Place &here, const TAVO_FW_SERVICE &service, Take take) {
    const int strings = TLIBCSzListCount(service.pDstPortList);
    for (int i = 0; i < strings; ++i) {
        uint16_t first = 0;
        uint16_t last = 0;
        if (ReadPortString(here, TLIBCSzListGet(service.pDstPortList, i), service.szName, first,
                           last) &&
            !take(first, last)) {
            return false;
        }
    }
    return true;
}

}  // namespace tavo

#endif
