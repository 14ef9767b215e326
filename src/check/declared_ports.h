// The ports that the system's own settings and the firewall services declare. A range is one entry.
#ifndef TAVO_SRC_CHECK_DECLARED_PORTS_H
#define TAVO_SRC_CHECK_DECLARED_PORTS_H

#include <cstdint>

#include "model/reading.h"
#include "support/failure.h"
#include "tavoserviceconf.h"

namespace tavo {

// A port that the system itself declares: the value of a settings key, or a fixed port.
struct SystemPort {
    const char *key;
    const char *port;
    uint16_t protocol;
    const char *service;
    const char
        *setting_service;  // name of the service in the engine's settings; null if it is not there
};

inline constexpr SystemPort kSystemPorts[] = {
    {"syslogport", nullptr, TAVO_PROTO_TCP, "tavo-syslog", "syslog_server"},
    {"smsport", nullptr, TAVO_PROTO_TCP, "tavo-sms", nullptr},
    {nullptr, "5005", TAVO_PROTO_TCP, "tavo-webdav", "webdav_http"},
    {nullptr, "5006", TAVO_PROTO_TCP, "tavo-webdav-ssl", "webdavs_https"},
    {"syslogport", nullptr, TAVO_PROTO_UDP, "tavo-syslog", "syslog_server"},
};

// The current port of a row.
struct SystemDeclaration {
    uint16_t port;    // 0 if the key is absent or cannot be read
    Reading reading;  // invalid if the value is not a port; `port` is then its leading number
};

// `here` is the source location of the calling operation, which the log lines show.

// Reads the port of a row. A missing or unreadable key is logged.
SystemDeclaration ReadSystemPort(const Place &here, const SystemPort &row);

// A service counts for TCP only if TCP is its only protocol. A service with both protocols is
// listed under UDP alone; callers depend on this.
inline uint16_t DeclaredProtocol(const TAVO_FW_SERVICE &service) {
    return service.nDstProtocol == TAVO_PROTO_TCP ? TAVO_PROTO_TCP : TAVO_PROTO_UDP;
}

// Reads a port string of a service, such as "80" or "8000-8002". Returns false, after logging, if
// it does not contain a port.
bool ReadPortString(const Place &here, const char *text, const char *service, uint16_t &first,
                    uint16_t &last);

// Calls take(first, last) for each valid port string of the service, in list order. Stops and
// returns false if take returns false.
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
