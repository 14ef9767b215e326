#include "engine/used_ports.h"

#include <climits>

#include "support/failure.h"
#include "tavonet.h"

namespace tavo {

void AddPorts(long start, long end, PortSet &ports) {
    const long low = std::max(std::min(start, end), 0L);
    const long high = std::min(std::max(start, end), kPortCount - 1L);
    if (low == high) {
        ports.set(static_cast<std::size_t>(low));
    } else if (low < high) {
        ports |= PortsOf(low, high);
    }
}

void AddServicePorts(TAVO_FW_SERVICE *services, const char *name, uint32_t protocol,
                     PortSet &ports) {
    const TAVO_FW_SERVICE *service = TAVOFWServiceFind(services, name);
    if (service == nullptr || (service->nDstProtocol & protocol) == 0) {
        return;
    }
    for (int i = 0; i < TLIBCSzListCount(service->pDstPortList); ++i) {
        char *rest = nullptr;
        const long start = std::strtol(TLIBCSzListGet(service->pDstPortList, i), &rest, 10);
        const bool range = *rest == kDeclaredRangeSeparator;
        AddPorts(start, range ? std::strtol(rest + 1, nullptr, 10) : start, ports);
    }
}

bool UsedPorts::Ask(const Range &range, bool tcp) {
    const int most = static_cast<int>(std::min<std::size_t>(slot_count_, INT_MAX));
    for (int attempt = 0; attempt < 2; ++attempt) {
        int found = most;
        if (TAVONetGetPortUsedInRange(slots_.get(), &found, range.low, range.high, tcp) == 0) {
            used_ = std::clamp(found, 0, most);
            return true;
        }
    }
    return false;
}

bool AddHeldPorts(bool tcp, PortSet &ports) {
    static constexpr Range kAllPorts = {1, kPortCount - 1};
    UsedPorts used(kAllPorts);
    if (used.OutOfMemory()) {
        TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
        return false;
    }
    const bool known = used.Ask(kAllPorts, tcp);
    for (const int port : used) {
        if (port > 0 && port < kPortCount) {
            ports.set(static_cast<std::size_t>(port));
        }
    }
    return known;
}

}  // namespace tavo
