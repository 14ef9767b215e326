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
inline std::size_t Spread(uint64_t key) {
    const uint64_t mixed = key * 0x9E3779B97F4A7C15u;
    return static_cast<std::size_t>(mixed ^ (mixed >> 32));
}

class KeySet {
  public:
    enum class Result { kAdded, kKnown, kNoMemory };

    // Adds a key. `number`, unless null, is set to the number of keys that were added before it.
    Result Add(uint64_t first, uint64_t second, std::size_t *number = nullptr) {
        if (2 * (count_ + 1) > slot_count_ && !Grow()) {
            return Result::kNoMemory;
        }
        Slot &slot = Find(slots_.get(), slot_count_, first, second);
        const bool known = slot.place != 0;
        if (!known) {
            slot = {first, second, ++count_};
        }
        if (number != nullptr) {
            *number = slot.place - 1;
        }
        return known ? Result::kKnown : Result::kAdded;
    }

    // The number of keys that were added before this one; kNone if it is not in the set.
    std::size_t NumberOf(uint64_t first, uint64_t second) const {
        return slot_count_ == 0 ? kNone : Find(slots_.get(), slot_count_, first, second).place - 1;
    }

    static constexpr std::size_t kNone = SIZE_MAX;

  private:
    struct Slot {
        uint64_t first;
        uint64_t second;
        std::size_t place;  // 1 for the first key added; 0 in a free slot
    };

    static Slot &Find(Slot *slots, std::size_t slot_count, uint64_t first, uint64_t second) {
        std::size_t at = Spread(first ^ Spread(second));
        for (;; ++at) {
            Slot &slot = slots[at & (slot_count - 1)];
            if (slot.place == 0 || (slot.first == first && slot.second == second)) {
                return slot;
            }
        }
    }

    bool Grow() {
        const std::size_t larger_count = slot_count_ == 0 ? 64 : 2 * slot_count_;
        MallocPtr<Slot> larger(static_cast<Slot *>(std::calloc(larger_count, sizeof(Slot))));
        if (!larger) {
            return false;
        }
        for (std::size_t i = 0; i < slot_count_; ++i) {
            const Slot &slot = slots_.get()[i];
            if (slot.place != 0) {
                Find(larger.get(), larger_count, slot.first, slot.second) = slot;
            }
        }
        slots_ = std::move(larger);
        slot_count_ = larger_count;
        return true;
    }

    MallocPtr<Slot> slots_;
    std::size_t slot_count_ = 0;  // a power of two
    std::size_t count_ = 0;
};

}  // namespace tavo

#endif
