// Prints a port list in the two parts of its text form, ports and protocols.
//
// The list is checked whole before anything is printed, and printing stops once the text cannot fit
// any more, so that a list of a million ports costs no more than its walk.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

constexpr uint32_t kBothProtocols = TAVO_PROTO_TCP | TAVO_PROTO_UDP;

// Room for one printed port, range or protocol name with the comma in front.
constexpr std::size_t kPieceSize = 64;

// A text that grows piece by piece, with a comma before every piece but the first.
class CommaText {
  public:
    ~CommaText() { std::free(szText_); }
    CommaText() = default;
    CommaText(const CommaText &) = delete;
    CommaText &operator=(const CommaText &) = delete;

    int Append(const char *szPiece) {
        if (nLength_ > 0 && Cat(",") < 0) {
            return -1;
        }
        return Cat(szPiece);
    }

    bool FitsInto(int cbBuffer) const { return nLength_ < static_cast<std::size_t>(cbBuffer); }

    void CopyTo(char *szBuffer) const { std::memcpy(szBuffer, szText_, nLength_ + 1); }

  private:
    int Cat(const char *szPiece) {
        if (TLIBCStrCat(&szText_, &cbText_, szPiece) < 0) {
            return TAVO_LOG_STATE("TLIBCStrCat fail!");
        }
        nLength_ += std::strlen(szPiece);
        return 0;
    }

    char *szText_ = nullptr;
    int cbText_ = 0;
    std::size_t nLength_ = 0;
};

bool HasOneProtocol(const TAVO_SERVICE_CONF_PORT *pList) {
    const uint32_t nProtocol = pList->nProtocol;
    for (; pList != nullptr; pList = pList->pNext) {
        if (pList->nProtocol != nProtocol) {
            return false;
        }
    }
    return true;
}

void PrintPort(const TAVO_SERVICE_CONF_PORT &port, char (&szPiece)[kPieceSize]) {
    const int nLow = static_cast<int>(std::min(port.nPortStart, port.nPortEnd));
    const int nHigh = static_cast<int>(std::max(port.nPortStart, port.nPortEnd));
    if (port.nPortType == 0) {
        std::snprintf(szPiece, sizeof(szPiece), "%d", static_cast<int>(port.nPortStart));
    } else {
        std::snprintf(szPiece, sizeof(szPiece), "%d:%d", nLow, nHigh);
    }
}

int PrintPorts(const TAVO_SERVICE_CONF_PORT *pList, int cbPorts, CommaText &text) {
    for (; pList != nullptr && text.FitsInto(cbPorts); pList = pList->pNext) {
        char szPiece[kPieceSize];
        PrintPort(*pList, szPiece);
        if (text.Append(szPiece) < 0) {
            return -1;
        }
    }
    return 0;
}

int PrintProtocols(uint32_t nProtocol, CommaText &text) {
    for (int i = 0; i < TLIBServiceProtoMapSizeGet(); ++i) {
        int nBit = 0;
        char szName[kPieceSize];
        if (TLIBServiceProtoIndexGet(i, &nBit) < 0 ||
            TLIBServiceProtoStrGet(i, szName, sizeof(szName)) < 0) {
            return -1;
        }
        if ((nProtocol & static_cast<uint32_t>(nBit)) != 0 && text.Append(szName) < 0) {
            return -1;
        }
    }
    return 0;
}

}  // namespace

int TLIBServiceConfPortsToStr(const TAVO_SERVICE_CONF_PORT *pList, char *szPorts, int cbPorts,
                              char *szProto, int cbProto) {
    if (pList == nullptr || szPorts == nullptr || cbPorts < 1 || szProto == nullptr ||
        cbProto < 1 || (pList->nProtocol & kBothProtocols) == 0) {
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    if (!HasOneProtocol(pList)) {
        TAVO_SET_ERROR(tavo::kErrorBadParameter);
        return TAVO_LOG_STATE("Different protocol in port linked list");
    }
    CommaText ports;
    CommaText protocols;
    if (PrintPorts(pList, cbPorts, ports) < 0 || PrintProtocols(pList->nProtocol, protocols) < 0) {
        return -1;
    }
    if (!ports.FitsInto(cbPorts) || !protocols.FitsInto(cbProto)) {
        TAVO_SET_ERROR(tavo::kErrorBufferTooSmall);
        return TAVO_LOG_STATE("input array too small");
    }
    ports.CopyTo(szPorts);
    protocols.CopyTo(szProto);
    return 0;
}
