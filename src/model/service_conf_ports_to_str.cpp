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
    ~GrowingText() { std::free(text_); }
    GrowingText() = default;
    GrowingText(const GrowingText &) = delete;
    GrowingText &operator=(const GrowingText &) = delete;

    // The separator before the next piece.
    const char *Separator() const { return length_ == 0 ? "" : ","; }

    int Append(const char *piece) {
        const std::size_t length = std::strlen(piece);
        if (gathered_length_ + length >= sizeof(gathered_) && Finish() < 0) {
            return -1;
        }
        std::memcpy(gathered_ + gathered_length_, piece, length + 1);
        gathered_length_ += length;
        length_ += length;
        return 0;
    }

    // Must be called after the last piece.
    int Finish() {
        gathered_length_ = 0;
        if (TLIBCStrCat(&text_, &text_size_, gathered_) < 0) {
            return TAVO_LOG_STATE("TLIBCStrCat fail!");
        }
        return 0;
    }

    bool FitsInto(int buffer_size) const { return length_ < static_cast<std::size_t>(buffer_size); }

    void CopyTo(char *buffer) const { std::memcpy(buffer, text_, length_ + 1); }

  private:
    char *text_ = nullptr;
    int text_size_ = 0;
    std::size_t length_ = 0;
    char gathered_[4096] = "";
    std::size_t gathered_length_ = 0;
};

bool HasOneProtocol(const TAVO_SERVICE_CONF_PORT *list) {
    const uint32_t protocol = list->nProtocol;
    for (; list != nullptr; list = list->pNext) {
        if (list->nProtocol != protocol) {
            return false;
        }
    }
    return true;
}

void PrintPort(const TAVO_SERVICE_CONF_PORT &port, const char *separator,
               char (&piece)[kPieceSize]) {
    const int low = static_cast<int>(std::min(port.nPortStart, port.nPortEnd));
    const int high = static_cast<int>(std::max(port.nPortStart, port.nPortEnd));
    if (port.nPortType == TAVO_PORT_TYPE_SINGLE) {
        std::snprintf(piece, sizeof(piece), "%s%d", separator, static_cast<int>(port.nPortStart));
    } else {
        std::snprintf(piece, sizeof(piece), "%s%d:%d", separator, low, high);
    }
}

int PrintPorts(const TAVO_SERVICE_CONF_PORT *list, int size, GrowingText &text) {
    for (; list != nullptr && text.FitsInto(size); list = list->pNext) {
        char piece[kPieceSize];
        PrintPort(*list, text.Separator(), piece);
        if (text.Append(piece) < 0) {
            return -1;
        }
    }
    return text.Finish();
}

int PrintProtocols(uint32_t protocol, GrowingText &text) {
    for (int i = 0; i < TLIBServiceProtoMapSizeGet(); ++i) {
        int bit = 0;
        char name[kPieceSize];
        if (TLIBServiceProtoIndexGet(i, &bit) < 0 ||
            TLIBServiceProtoStrGet(i, name, sizeof(name)) < 0) {
            return -1;
        }
        if ((protocol & static_cast<uint32_t>(bit)) != 0 &&
            (text.Append(text.Separator()) < 0 || text.Append(name) < 0)) {
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
