// Prints a port list in the two parts of its text form, ports and protocols.
//
// The whole list is validated before anything is printed. Printing stops once the text cannot fit
// any more, so that a list of a million ports costs only the walk over it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/failure.h"
#include "tavoserviceconf.h"

namespace {

// The size of one printed port, range or protocol name with the comma before it.
constexpr std::size_t kPieceSize = 64;

// A text that grows piece by piece. Pieces are collected before they are passed to TLIBCStrCat,
// which searches for the end of the text in every call.
class GrowingText {
  public:
    ~GrowingText() { std::free(szText_); }
    GrowingText() = default;
    GrowingText(const GrowingText &) = delete;
    GrowingText &operator=(const GrowingText &) = delete;

    // The separator before the next piece.
    const char *Separator() const { return nLength_ == 0 ? "" : ","; }

    int Append(const char *szPiece) {
        const std::size_t nPiece = std::strlen(szPiece);
        if (nGathered_ + nPiece >= sizeof(szGathered_) && Finish() < 0) {
            return -1;
        }
        std::memcpy(szGathered_ + nGathered_, szPiece, nPiece + 1);
        nGathered_ += nPiece;
        nLength_ += nPiece;
        return 0;
    }

    // Must be called after the last piece.
    int Finish() {
        nGathered_ = 0;
        if (TLIBCStrCat(&szText_, &cbText_, szGathered_) < 0) {
            return TAVO_LOG_STATE("TLIBCStrCat fail!");
        }
        return 0;
    }

    bool FitsInto(int cbBuffer) const { return nLength_ < static_cast<std::size_t>(cbBuffer); }

    void CopyTo(char *szBuffer) const { std::memcpy(szBuffer, szText_, nLength_ + 1); }

  private:
    char *szText_ = nullptr;
    int cbText_ = 0;
    std::size_t nLength_ = 0;
    char szGathered_[4096] = "";
    std::size_t nGathered_ = 0;
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

void PrintPort(const TAVO_SERVICE_CONF_PORT &port, const char *szSeparator,
               char (&szPiece)[kPieceSize]) {
    const int nLow = static_cast<int>(std::min(port.nPortStart, port.nPortEnd));
    const int nHigh = static_cast<int>(std::max(port.nPortStart, port.nPortEnd));
    if (port.nPortType == TAVO_PORT_TYPE_SINGLE) {
        std::snprintf(szPiece, sizeof(szPiece), "%s%d", szSeparator,
                      static_cast<int>(port.nPortStart));
    } else {
        std::snprintf(szPiece, sizeof(szPiece), "%s%d:%d", szSeparator, nLow, nHigh);
    }
}

int PrintPorts(const TAVO_SERVICE_CONF_PORT *pList, int cbPorts, GrowingText &text) {
    for (; pList != nullptr && text.FitsInto(cbPorts); pList = pList->pNext) {
        char szPiece[kPieceSize];
        PrintPort(*pList, text.Separator(), szPiece);
        if (text.Append(szPiece) < 0) {
            return -1;
        }
    }
    return text.Finish();
}

int PrintProtocols(uint32_t nProtocol, GrowingText &text) {
    for (int i = 0; i < TLIBServiceProtoMapSizeGet(); ++i) {
        int nBit = 0;
        char szName[kPieceSize];
        if (TLIBServiceProtoIndexGet(i, &nBit) < 0 ||
            TLIBServiceProtoStrGet(i, szName, sizeof(szName)) < 0) {
            return -1;
        }
        if ((nProtocol & static_cast<uint32_t>(nBit)) != 0 &&
            (text.Append(text.Separator()) < 0 || text.Append(szName) < 0)) {
            return -1;
        }
    }
    return text.Finish();
}

}  // namespace

int TLIBServiceConfPortsToStr(const TAVO_SERVICE_CONF_PORT *pList, char *szPorts, int cbPorts,
                              char *szProto, int cbProto) {
    if (pList == nullptr || szPorts == nullptr || cbPorts < 1 || szProto == nullptr ||
        cbProto < 1 || (pList->nProtocol & TAVO_PROTO_BOTH) == 0) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    if (!HasOneProtocol(pList)) {
        return TAVO_FAIL_STATE(TLIBC_ERR_BAD_PARAMETER, "Different protocol in port linked list");
    }
    GrowingText ports;
    GrowingText protocols;
    if (PrintPorts(pList, cbPorts, ports) < 0 || PrintProtocols(pList->nProtocol, protocols) < 0) {
        return -1;
    }
    if (!ports.FitsInto(cbPorts) || !protocols.FitsInto(cbProto)) {
        return TAVO_FAIL_STATE(TLIBC_ERR_BUFFER_TOO_SMALL, "input array too small");
    }
    ports.CopyTo(szPorts);
    protocols.CopyTo(szProto);
    return 0;
}
