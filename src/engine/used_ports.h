// The ports that sockets hold now, and which of them belong to skipped services.
#ifndef TAVO_SRC_ENGINE_USED_PORTS_H
#define TAVO_SRC_ENGINE_USED_PORTS_H

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "engine/comparison.h"
#include "engine/text_ranges.h"
#include "support/owners.h"

namespace tavo {

constexpr int kPortCount = 65536;

using PortSet = std::bitset<kPortCount>;

// The ports nLow..nHigh, both from 0 to 65535.
inline PortSet PortsOf(long nLow, long nHigh) {
    const auto nBeyond = static_cast<std::size_t>(kPortCount - 1 - (nHigh - nLow));
    return (PortSet().set() >> nBeyond) << static_cast<std::size_t>(nLow);
}

// The ports of skipped services for one protocol.
class SkippedPorts {
  public:
    void Add(const char *szPorts) {
        char *szEnd = nullptr;
        const long nStart = std::strtol(szPorts, &szEnd, 10);
        const long nEnd =
            *szEnd == kDeclaredRangeSeparator ? std::strtol(szEnd + 1, nullptr, 10) : nStart;
        const long nLow = std::max(std::min(nStart, nEnd), 0L);
        const long nHigh = std::min(std::max(nStart, nEnd), kPortCount - 1L);
        if (nLow == nHigh) {
            ports_.set(static_cast<std::size_t>(nLow));
        } else if (nLow < nHigh) {
            ports_ |= PortsOf(nLow, nHigh);
        }
    }

    bool Has(int nPort) const {
        return nPort >= 0 && nPort < kPortCount && ports_.test(static_cast<std::size_t>(nPort));
    }

    const PortSet &Ports() const { return ports_; }

  private:
    PortSet ports_;
};

// The ports of the range that sockets hold now. There is one slot for each port: the networking
// library gets their number, but may not respect it.
class UsedPorts {
  public:
    explicit UsedPorts(const Range &range)
        : nSlots_(static_cast<std::size_t>(static_cast<int64_t>(range.nHigh) - range.nLow + 1)),
          slots_(static_cast<int *>(std::calloc(nSlots_, sizeof(int)))) {}

    bool OutOfMemory() const { return slots_ == nullptr; }

    // Returns false if the networking library failed; the set is then empty. A failed query is
    // repeated once, so that one failed system call does not make a held port appear free.
    bool Ask(const Range &range, bool tcp);

    bool AllSkipped(const SkippedPorts &skipped) const {
        return std::all_of(slots_.get(), slots_.get() + nUsed_,
                           [&](int nPort) { return nPort == 0 || skipped.Has(nPort); });
    }

    void AddTo(PortSet &ports) const {
        std::for_each(slots_.get(), slots_.get() + nUsed_, [&](int nPort) {
            if (nPort > 0 && nPort < kPortCount) {
                ports.set(static_cast<std::size_t>(nPort));
            }
        });
    }

  private:
    std::size_t nSlots_;
    std::unique_ptr<int, FreeWith<std::free>> slots_;
    int nUsed_ = 0;
};

}  // namespace tavo

#endif
