#include "ports/port_question.h"

#include <new>
#include <utility>

#include "input/library_failure.h"
#include "input/service_file.h"
#include "output/text.h"
#include "ports/protocols.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

constexpr unsigned int kOutOfMemory = 0x200;

// Single ports are asked for as ranges, too: the reserved port, named by itself, counts as taken
// whatever the source says.
std::string AsRanges(const PortRanges &set) {
    std::string text;
    for (const PortRange &range : set) {
        text += (text.empty() ? "" : ",") + std::to_string(range.first) + ':' +
                std::to_string(range.last);
    }
    return text;
}

std::string Joined(const SkippedNames &skipped) {
    std::string text;
    for (const std::string &name : skipped) {
        text += (text.empty() ? "" : ",") + name;
    }
    return text;
}

// Entries may overlap, and those of the settings carry no protocol.
PortRanges RangesOf(const TAVO_SERVICE_CONF_PORT *list) {
    PortRanges ranges;
    for (; list != nullptr; list = list->pNext) {
        ranges.push_back({list->nPortStart, list->nPortType == TAVO_PORT_TYPE_RANGE
                                                ? list->nPortEnd
                                                : list->nPortStart});
    }
    return Merged(std::move(ranges));
}

LibraryAnswer AskInWords(const std::string &ports, std::uint32_t protocols,
                         const SkippedNames &skipped, int flag) {
    TAVO_SERVICE_CONF_PORT *list = nullptr;
    ForgetFailure();
    const int result = TLIBIsPortConflict(Joined(skipped).c_str(), ports.c_str(),
                                          ProtocolsText(protocols).c_str(), flag, &list);
    const OwnedPortList owner(list);
    if (result < 0) {
        const unsigned int code = TLIBCErrGet();
        if (code == kOutOfMemory) {
            throw std::bad_alloc();
        }
        return {PortVerdict::kUnknown, {}, SystemReason(code)};
    }
    return {result == 0 ? PortVerdict::kFree : PortVerdict::kTaken, RangesOf(list)};
}

}  // namespace

bool Skips(const SkippedNames &skipped, const std::string &name) {
    return Holds(skipped, name);
}

LibraryAnswer AskLibrary(const PortRanges &set, std::uint32_t protocols,
                         const SkippedNames &skipped, int flag) {
    return AskInWords(AsRanges(set), protocols, skipped, flag);
}

bool NamesReservedPort(const PortRanges &items) {
    return AskInWords(PortsText(items), TAVO_PROTO_BOTH, {}, TAVO_PORT_CHECK_DEFAULT).verdict !=
           PortVerdict::kFree;
}

}  // namespace tavo::tool
