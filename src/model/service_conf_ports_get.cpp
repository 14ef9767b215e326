// Parses port lists, the values of src.ports and dst.ports: PORTS or PORTS/PROTOCOLS, as in
// "80,6000:6010/tcp". An empty piece between commas is an error.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "model/port_text.h"
#include "support/failure.h"
#include "support/owners.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

// The size of an invalid protocol text in the log line, including the terminator.
constexpr std::size_t kProtocolTextSize = 64;

// Parses one port number.
bool ReadPort(const char *text, uint32_t &port) {
    if (text == nullptr || *text == '\0') {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
        return false;
    }
    uint32_t value = 0;
    if (!tavo::ReadPortNumber(text, value)) {
        TAVO_FAIL_STATE(TLIBC_ERR_BAD_PARAMETER, "illegal ports number, port=%s, tavoerr=", text);
        return false;
    }
    port = value;
    return true;
}

// The bit of a protocol name, 0 for any other word.
int ProtocolBit(const char *word) {
    for (const TAVO_PROTO_TYPE_MAPPING &row : gProtoTypeMapping) {
        if (std::strcmp(word, row.szName) == 0) {
            return row.nProto;
        }
    }
    return 0;
}

// Sets the type and ports of an entry from one item, PORT or START:END. START may be higher than
// END.
bool ParseItem(char *item, TAVO_SERVICE_CONF_PORT *port) {
    char *end = item;
    const char *start = tavo::CutPiece(end, ':');
    if (!ReadPort(start, port->nPortStart)) {
        return false;
    }
    if (end == nullptr) {
        return true;
    }
    port->nPortType = TAVO_PORT_TYPE_RANGE;
    return ReadPort(end, port->nPortEnd);
}

int ParseItems(char *items, unsigned int direction, uint32_t protocol, tavo::OwnedPorts &ports) {
    for (char *rest = items; rest != nullptr;) {
        char *item = tavo::CutPiece(rest, ',');
        auto port = tavo::NewRecord<tavo::OwnedPorts>();
        if (port == nullptr) {
            return TAVO_FAIL_NO_MEMORY();
        }
        port->nDirection = direction;
        port->nProtocol = protocol;
        if (TLIBCStrTrimSpace(item) < 0 || !ParseItem(item, port.get())) {
            return -1;
        }
        tavo::Prepend(std::move(port), ports);
    }
    return 0;
}

}  // namespace

int TAVOServiceConfPortsCheck(const char *szPort) {
    uint32_t port = 0;
    return ReadPort(szPort, port) ? 1 : 0;
}

int TLIBServiceConfProtocolParse(char *szProto) {
    if (szProto == nullptr || *szProto == '\0') {
        return TAVO_PROTO_BOTH;
    }
    char as_given[kProtocolTextSize];
    tavo::CopyText(as_given, szProto);
    if (TLIBCStrTrimSpace(szProto) < 0 ||
        TLIBCStrCaseLower(szProto, szProto, static_cast<int>(std::strlen(szProto)) + 1) < 0) {
        return -1;
    }
    int protocol = 0;
    for (char *rest = szProto; rest != nullptr;) {
        char *word = tavo::CutPiece(rest, ',');
        if (TLIBCStrTrimSpace(word) < 0) {
            return -1;
        }
        const int bit = ProtocolBit(word);
        if (bit == 0) {
            return TAVO_FAIL_STATE(
                TLIBC_ERR_BAD_PARAMETER,
                "protocol format error (%s)! It should be \"tcp\" or \"udp\" or \"tcp,udp\", "
                "tavoerr=",
                as_given);
        }
        protocol |= bit;
    }
    return protocol;
}

int TAVOServiceConfPortsGet(const char *szPorts, unsigned int nDirection,
                            TAVO_SERVICE_CONF_PORT **ppList) {
    if (szPorts == nullptr || ppList == nullptr || *ppList != nullptr ||
        nDirection > TAVO_PORT_DIRECTION_DST) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const tavo::OwnedText copy(strdup(szPorts));
    if (copy == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
    }
    char *protocol_text = copy.get();
    char *items = tavo::CutPiece(protocol_text, '/');
    const bool protocols = protocol_text != nullptr && *protocol_text != '\0';
    if ((protocols && TLIBCStrTrimSpace(protocol_text) < 0) || TLIBCStrTrimSpace(items) < 0) {
        return -1;
    }
    const int protocol = TLIBServiceConfProtocolParse(protocol_text);
    if (protocol < 0) {
        return -1;
    }
    tavo::OwnedPorts ports;
    if (ParseItems(items, nDirection, static_cast<uint32_t>(protocol), ports) < 0) {
        return -1;
    }
    *ppList = ports.release();
    return 0;
}
