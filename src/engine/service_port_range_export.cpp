// Prints a port range set as text such as "21,1024:1100".
//
// The text is built in one block that is large enough for the longest possible result, and returned
// as a text of the core library, which the caller frees with TLIBCStrPut.
#include <charconv>
#include <cstdlib>
#include <string_view>

#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

// The longest range, followed by a comma or the terminator.
constexpr std::size_t kRangeSize = std::string_view("-2147483648:-2147483648").size() + 1;

std::size_t Count(const TAVO_SERVICE_CONF_PORT *node) {
    std::size_t count = 0;
    for (; node != nullptr; node = node->pNext) {
        ++count;
    }
    return count;
}

// Ports are printed as signed numbers, which is kept. Returns the position after the number.
char *PrintPort(uint32_t port, char *text) {
    return std::to_chars(text, text + kRangeSize, static_cast<int32_t>(port)).ptr;
}

void PrintRanges(const TAVO_SERVICE_CONF_PORT *node, char *text) {
    for (; node != nullptr; node = node->pNext) {
        text = PrintPort(node->nPortStart, text);
        if (node->nPortStart != node->nPortEnd) {
            *text++ = ':';
            text = PrintPort(node->nPortEnd, text);
        }
        *text++ = node->pNext == nullptr ? '\0' : ',';
    }
}

}  // namespace

char *TLIBPortRangeExport(const TAVO_PORT_RANGE *pSet) {
    if (pSet == nullptr) {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
        return nullptr;
    }
    if (pSet->pRanges == nullptr) {
        return nullptr;
    }
    const tavo::OwnedText text(static_cast<char *>(std::malloc(Count(pSet->pRanges) * kRangeSize)));
    if (text == nullptr) {
        TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to TLIBCStrGet().");
        return nullptr;
    }
    PrintRanges(pSet->pRanges, text.get());
    char *copy = TLIBCStrGet("%s", text.get());
    if (copy == nullptr) {
        TAVO_LOG("Failed to TLIBCStrGet().");
    }
    return copy;
}
