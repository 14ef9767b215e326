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
bool ReadPort(const char *szPort, uint32_t &nPort) {
    if (szPort == nullptr || *szPort == '\0') {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
        return false;
    }
    uint32_t nValue = 0;
    if (!tavo::ReadPortNumber(szPort, nValue)) {
        TAVO_FAIL_STATE(TLIBC_ERR_BAD_PARAMETER, "illegal ports number, port=%s, tavoerr=", szPort);
        return false;
    }
    nPort = nValue;
    return true;
}

// The bit of a protocol name, 0 for any other word.
int ProtocolBit(const char *szWord) {
    for (const TAVO_PROTO_TYPE_MAPPING &row : gProtoTypeMapping) {
        if (std::strcmp(szWord, row.szName) == 0) {
            return row.nProto;
        }
    }
    return 0;
}

// Sets the type and ports of an entry from one item, PORT or START:END. START may be higher than
// END.
bool ParseItem(char *szItem, TAVO_SERVICE_CONF_PORT *pPort) {
    char *szEnd = szItem;
    const char *szStart = tavo::CutPiece(szEnd, ':');
    if (!ReadPort(szStart, pPort->nPortStart)) {
        return false;
    }
    if (szEnd == nullptr) {
        return true;
    }
    pPort->nPortType = TAVO_PORT_TYPE_RANGE;
    return ReadPort(szEnd, pPort->nPortEnd);
}

int ParseItems(char *szPorts, unsigned int nDirection, uint32_t nProtocol,
               tavo::OwnedPorts &ports) {
    for (char *szRest = szPorts; szRest != nullptr;) {
        char *szItem = tavo::CutPiece(szRest, ',');
        auto port = tavo::NewRecord<tavo::OwnedPorts>();
        if (port == nullptr) {
            return TAVO_FAIL_NO_MEMORY();
        }
        port->nDirection = nDirection;
        port->nProtocol = nProtocol;
        if (TLIBCStrTrimSpace(szItem) < 0 || !ParseItem(szItem, port.get())) {
            return -1;
        }
        tavo::Prepend(std::move(port), ports);
    }
    return 0;
}

}  // namespace

int TAVOServiceConfPortsCheck(const char *szPort) {
    uint32_t nPort = 0;
    return ReadPort(szPort, nPort) ? 1 : 0;
}

int TLIBServiceConfProtocolParse(char *szProto) {
    if (szProto == nullptr || *szProto == '\0') {
        return TAVO_PROTO_BOTH;
    }
    char szAsGiven[kProtocolTextSize];
    tavo::CopyText(szAsGiven, szProto);
    if (TLIBCStrTrimSpace(szProto) < 0 ||
        TLIBCStrCaseLower(szProto, szProto, static_cast<int>(std::strlen(szProto)) + 1) < 0) {
        return -1;
    }
    int nProtocol = 0;
    for (char *szRest = szProto; szRest != nullptr;) {
        char *szWord = tavo::CutPiece(szRest, ',');
        if (TLIBCStrTrimSpace(szWord) < 0) {
            return -1;
        }
        const int nBit = ProtocolBit(szWord);
        if (nBit == 0) {
            return TAVO_FAIL_STATE(
                TLIBC_ERR_BAD_PARAMETER,
                "protocol format error (%s)! It should be \"tcp\" or \"udp\" or \"tcp,udp\", "
                "tavoerr=",
                szAsGiven);
        }
        nProtocol |= nBit;
    }
    return nProtocol;
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
    char *szProtocols = copy.get();
    char *szItems = tavo::CutPiece(szProtocols, '/');
    const bool protocols = szProtocols != nullptr && *szProtocols != '\0';
    if ((protocols && TLIBCStrTrimSpace(szProtocols) < 0) || TLIBCStrTrimSpace(szItems) < 0) {
        return -1;
    }
    const int nProtocol = TLIBServiceConfProtocolParse(szProtocols);
    if (nProtocol < 0) {
        return -1;
    }
    tavo::OwnedPorts ports;
    if (ParseItems(szItems, nDirection, static_cast<uint32_t>(nProtocol), ports) < 0) {
        return -1;
    }
    *ppList = ports.release();
    return 0;
}
