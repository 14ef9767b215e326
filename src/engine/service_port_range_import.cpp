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
uint32_t ReadDigits(const char *&text) {
    uint32_t port = 0;
    for (int i = 0; i < kPlainDigits && *text >= '0' && *text <= '9'; ++i) {
        port = port * 10 + static_cast<uint32_t>(*text++ - '0');
    }
    return port;
}

// Reads the item at `text` and moves past it if it is DIGITS or DIGITS:DIGITS. Any other item is
// left to ReadItem.
bool ReadPlainItem(const char *&text, Range &range) {
    const char *rest = text;
    range.start = ReadDigits(rest);
    range.end = range.start;
    if (*rest == ':') {
        range.end = ReadDigits(++rest);
    }
    if (*rest != ',' && *rest != '\0') {
        return false;
    }
    text = rest;
    return true;
}

uint32_t ReadPort(const char *text) {
    return static_cast<uint32_t>(std::strtol(text, nullptr, 10));
}

// Reads any item at `text` and moves past it.
int ReadItem(const char *&text, Range &range) {
    const std::size_t length = std::strcspn(text, ",");
    const tavo::OwnedText item(static_cast<char *>(std::malloc(length + 1)));
    if (item == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Out of memory.");
    }
    std::memcpy(item.get(), text, length);
    item.get()[length] = '\0';
    text += length;
    if (TLIBCStrTrimSpace(item.get()) < 0) {
        return -1;
    }
    char *end = item.get();
    range.start = ReadPort(tavo::CutPiece(end, ':'));
    range.end = end == nullptr ? range.start : ReadPort(end);
    return 0;
}

}  // namespace

int TLIBPortRangeImport(TAVO_PORT_RANGE *pSet, const char *szRanges) {
    if (pSet == nullptr || szRanges == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    tavo::RangeAdder adder(pSet);
    for (const char *rest = szRanges;; ++rest) {
        Range range;
        if (!ReadPlainItem(rest, range) && ReadItem(rest, range) < 0) {
            return -1;
        }
        if (adder.Add(range.start, range.end) < 0) {
            return TAVO_LOG("Failed to TLIBPortRangeAdd().");
        }
        if (*rest == '\0') {
            return 0;
        }
    }
}
