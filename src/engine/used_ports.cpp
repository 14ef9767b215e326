#include "engine/used_ports.h"

#include <climits>

#include "tavonet.h"

namespace tavo {

bool UsedPorts::Ask(const Range &range, bool tcp) {
    const int nMost = static_cast<int>(std::min<std::size_t>(nSlots_, INT_MAX));
    for (int nTry = 0; nTry < 2; ++nTry) {
        int nFound = nMost;
        if (TAVONetGetPortUsedInRange(slots_.get(), &nFound, range.nLow, range.nHigh, tcp) == 0) {
            nUsed_ = std::clamp(nFound, 0, nMost);
            return true;
        }
    }
    return false;
}

}  // namespace tavo
