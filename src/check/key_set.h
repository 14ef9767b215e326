// A set of record keys of two numbers each. With it, a new record among thousands need not be
// compared with every earlier one.
//
// A hash table with open addressing and linear probing, at most half full. Keys are never removed,
// so a free slot ends a search.
#ifndef TAVO_SRC_CHECK_KEY_SET_H
#define TAVO_SRC_CHECK_KEY_SET_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/owners.h"

namespace tavo {

// Distributes consecutive numbers over a table (the multiplier is 2^64 divided by the golden
// ratio).
inline std::size_t Spread(uint64_t nKey) {
    const uint64_t nMixed = nKey * 0x9E3779B97F4A7C15u;
    return static_cast<std::size_t>(nMixed ^ (nMixed >> 32));
}

class KeySet {
  public:
    enum class Result { kAdded, kKnown, kNoMemory };

    // Adds a key. `pnNumber`, unless null, is set to the number of keys that were added before it.
    Result Add(uint64_t nFirst, uint64_t nSecond, std::size_t *pnNumber = nullptr) {
        if (2 * (nCount_ + 1) > nSlots_ && !Grow()) {
            return Result::kNoMemory;
        }
        Slot &slot = Find(slots_.get(), nSlots_, nFirst, nSecond);
        const bool known = slot.nPlace != 0;
        if (!known) {
            slot = {nFirst, nSecond, ++nCount_};
        }
        if (pnNumber != nullptr) {
            *pnNumber = slot.nPlace - 1;
        }
        return known ? Result::kKnown : Result::kAdded;
    }

    // The number of keys that were added before this one; kNone if it is not in the set.
    std::size_t NumberOf(uint64_t first, uint64_t second) const {
        return nSlots_ == 0 ? kNone : Find(slots_.get(), nSlots_, first, second).nPlace - 1;
    }

    static constexpr std::size_t kNone = SIZE_MAX;

  private:
    struct Slot {
        uint64_t nFirst;
        uint64_t nSecond;
        std::size_t nPlace;  // 1 for the first key added; 0 in a free slot
    };

    static Slot &Find(Slot *pSlots, std::size_t nSlots, uint64_t nFirst, uint64_t nSecond) {
        std::size_t at = Spread(nFirst ^ Spread(nSecond));
        for (;; ++at) {
            Slot &slot = pSlots[at & (nSlots - 1)];
            if (slot.nPlace == 0 || (slot.nFirst == nFirst && slot.nSecond == nSecond)) {
                return slot;
            }
        }
    }

    bool Grow() {
        const std::size_t nLarger = nSlots_ == 0 ? 64 : 2 * nSlots_;
        MallocPtr<Slot> larger(static_cast<Slot *>(std::calloc(nLarger, sizeof(Slot))));
        if (!larger) {
            return false;
        }
        for (std::size_t i = 0; i < nSlots_; ++i) {
            const Slot &slot = slots_.get()[i];
            if (slot.nPlace != 0) {
                Find(larger.get(), nLarger, slot.nFirst, slot.nSecond) = slot;
            }
        }
        slots_ = std::move(larger);
        nSlots_ = nLarger;
        return true;
    }

    MallocPtr<Slot> slots_;
    std::size_t nSlots_ = 0;  // a power of two
    std::size_t nCount_ = 0;
};

}  // namespace tavo

#endif
