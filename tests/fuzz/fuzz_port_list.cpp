// Port lists: a list that parses can be printed, and the printed text parses to the same entries in
// reverse order.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "fuzz_support.h"
#include "tavoserviceconf.h"

namespace {

using Entry = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;

// The entries from the head, ranges in ascending order as they are printed.
std::vector<Entry> Entries(const TAVO_SERVICE_CONF_PORT *list) {
    std::vector<Entry> entries;
    for (; list != nullptr; list = list->pNext) {
        Require(list->nPortStart <= 65535 && list->nPortEnd <= 65535 && list->nDirection == 1);
        const bool range = list->nPortType == 1;
        entries.emplace_back(list->nPortType, list->nProtocol,
                             range ? std::min(list->nPortStart, list->nPortEnd) : list->nPortStart,
                             range ? std::max(list->nPortStart, list->nPortEnd) : 0);
    }
    return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    const std::string text(reinterpret_cast<const char *>(data), size);
    TAVOServiceConfPortsCheck(text.c_str());
    ToUPort(text.c_str());

    TAVO_SERVICE_CONF_PORT *list = nullptr;
    if (TAVOServiceConfPortsGet(text.c_str(), 1, &list) < 0) {
        Require(list == nullptr);
        return 0;
    }
    // Numbers may have leading zeros, but no number is printed longer than it was written.
    std::string ports(std::max<std::size_t>(size + 8, 16) * 2, '\0');
    char proto[16];
    Require(TLIBServiceConfPortsToStr(list, ports.data(), static_cast<int>(ports.size()), proto,
                                      sizeof(proto)) == 0);
    const std::string joined = std::string(ports.c_str()) + "/" + proto;
    TAVO_SERVICE_CONF_PORT *again = nullptr;
    Require(TAVOServiceConfPortsGet(joined.c_str(), 1, &again) == 0);
    std::vector<Entry> reversed = Entries(again);
    std::reverse(reversed.begin(), reversed.end());
    Require(reversed == Entries(list));
    TAVOServiceConfPortsFree(again);
    TAVOServiceConfPortsFree(list);
    return 0;
}
