// Reads a port range set from text such as "21,1024:1100".
//
// The text is not validated: an item is whatever strtol returns for it, and an item without a
// number is port 0. TAVOServiceConfPortsGet validates. Items that consist of digits, as Export
// prints them, are parsed in place; other items are copied first.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "engine/port_range.h"
#include "support/failure.h"
#include "support/owners.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

using Range = tavo::RawRange;

// Any number of this many digits fits into 32 bits; longer ones are left to strtol.
constexpr int kPlainDigits = 9;

// Reads up to kPlainDigits digits and moves past them; 0 if there are none.
uint32_t ReadDigits(const char *&szText) {
    uint32_t nPort = 0;
    for (int i = 0; i < kPlainDigits && *szText >= '0' && *szText <= '9'; ++i) {
        nPort = nPort * 10 + static_cast<uint32_t>(*szText++ - '0');
    }
    return nPort;
}

// Reads the item at `szText` and moves past it if it is DIGITS or DIGITS:DIGITS. Any other item is
// left to ReadItem.
bool ReadPlainItem(const char *&szText, Range &range) {
    const char *szRest = szText;
    range.start = ReadDigits(szRest);
    range.end = range.start;
    if (*szRest == ':') {
        range.end = ReadDigits(++szRest);
    }
    if (*szRest != ',' && *szRest != '\0') {
        return false;
    }
    szText = szRest;
    return true;
}

uint32_t ReadPort(const char *szPort) {
    return static_cast<uint32_t>(std::strtol(szPort, nullptr, 10));
}

// Reads any item at `szText` and moves past it.
int ReadItem(const char *&szText, Range &range) {
    const std::size_t nLength = std::strcspn(szText, ",");
    const tavo::OwnedText item(static_cast<char *>(std::malloc(nLength + 1)));
    if (item == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Out of memory.");
    }
    std::memcpy(item.get(), szText, nLength);
    item.get()[nLength] = '\0';
    szText += nLength;
    if (TLIBCStrTrimSpace(item.get()) < 0) {
        return -1;
    }
    char *szEnd = item.get();
    range.start = ReadPort(tavo::CutPiece(szEnd, ':'));
    range.end = szEnd == nullptr ? range.start : ReadPort(szEnd);
    return 0;
}

}  // namespace

int TLIBPortRangeImport(TAVO_PORT_RANGE *pSet, const char *szRanges) {
    if (pSet == nullptr || szRanges == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    tavo::RangeAdder adder(pSet);
    for (const char *szRest = szRanges;; ++szRest) {
        Range range;
        if (!ReadPlainItem(szRest, range) && ReadItem(szRest, range) < 0) {
            return -1;
        }
        if (adder.Add(range.start, range.end) < 0) {
            return TAVO_LOG("Failed to TLIBPortRangeAdd().");
        }
        if (*szRest == '\0') {
            return 0;
        }
    }
}
