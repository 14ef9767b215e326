// The protocol map and its accessors, tests of protocol values, parsing of a port number, and the
// names of TCP states.
#include <cstring>
#include <iterator>

#include "model/port_text.h"
#include "support/failure.h"
#include "tavoserviceconf.h"

const TAVO_PROTO_TYPE_MAPPING gProtoTypeMapping[2] = {
    {TAVO_PROTO_TCP, "tcp"},
    {TAVO_PROTO_UDP, "udp"},
};

namespace {

constexpr int kMapSize = static_cast<int>(std::size(gProtoTypeMapping));

// In the order of the state numbers in /proc/net/tcp, from 1 (include/net/tcp_states.h of the
// kernel).
constexpr const char *kTcpStates[] = {
    "TCP_ESTABLISHED", "TCP_SYN_SENT",  "TCP_SYN_RECV", "TCP_FIN_WAIT1",
    "TCP_FIN_WAIT2",   "TCP_TIME_WAIT", "TCP_CLOSE",    "TCP_CLOSE_WAIT",
    "TCP_LAST_ACK",    "TCP_LISTEN",    "TCP_CLOSING",
};

// The upper half of a protocol value is ignored, which is kept.
constexpr int Low16(int protocol) {
    return protocol & 0xFFFF;
}

bool IsRow(int row) {
    return row >= 0 && row < kMapSize;
}

}  // namespace

int IsTCP(int nProtocol) {
    return Low16(nProtocol) == TAVO_PROTO_TCP;
}

int IsUDP(int nProtocol) {
    return Low16(nProtocol) == TAVO_PROTO_UDP;
}

int IsBothTCPAndUDP(int nProtocol) {
    return Low16(nProtocol) == TAVO_PROTO_BOTH;
}

int HasTCP(int nProtocol) {
    return nProtocol & TAVO_PROTO_TCP;
}

// Returns the bit itself (2, not 1), which is kept.
int HasUDP(int nProtocol) {
    return nProtocol & TAVO_PROTO_UDP;
}

int IsLegalProtocol(int nProtocol) {
    return IsTCP(nProtocol) || IsUDP(nProtocol) || IsBothTCPAndUDP(nProtocol);
}

uint16_t ToUPort(const char *szPort) {
    uint16_t port = 0;
    if (szPort == nullptr || !tavo::ScanPort(szPort, port)) {
        TAVO_LOG("Failed on parse port: %s", szPort != nullptr ? szPort : "(null)");
        return 0;
    }
    return port;
}

const char *TAVOTCPStateToString(unsigned int nState) {
    return nState >= 1 && nState <= std::size(kTcpStates) ? kTcpStates[nState - 1]
                                                          : "Illegal_TCP_STATE";
}

int TLIBServiceProtoMapSizeGet(void) {
    return kMapSize;
}

int TLIBServiceProtoIndexGet(int nIndex, int *pnProto) {
    if (pnProto == nullptr || !IsRow(nIndex)) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    *pnProto = gProtoTypeMapping[nIndex].nProto;
    return 0;
}

int TLIBServiceProtoStrGet(int nIndex, char *szBuf, int cbBuf) {
    if (!IsRow(nIndex) || szBuf == nullptr || cbBuf < 1) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const char *name = gProtoTypeMapping[nIndex].szName;
    const std::size_t length = std::strlen(name);
    if (length >= static_cast<std::size_t>(cbBuf)) {
        return TAVO_FAIL_STATE(TLIBC_ERR_BUFFER_TOO_SMALL, "input array too small");
    }
    std::memcpy(szBuf, name, length + 1);
    return 0;
}
