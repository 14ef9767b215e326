// Numbers texts in the order of first appearance, in constant time: for section names that were
// seen before, and for the wanted key of a line.
#ifndef TAVO_PLATFORM_CORE_TEXT_INDEX_H
#define TAVO_PLATFORM_CORE_TEXT_INDEX_H

#include <cstddef>
#include <string_view>

#include "core_support.h"

namespace tavo {

// Does not copy the texts, which must outlive it. A few texts need no memory besides the object.
class TextIndex {
  public:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    TextIndex() = default;
    TextIndex(const TextIndex &) = delete;
    TextIndex &operator=(const TextIndex &) = delete;

    // The number of `text`; a new text gets the previous Count as its number. kNone when out of
    // memory.
    std::size_t Add(std::string_view text);

    // The number of `text`, from 0; kNone if it was never added.
    std::size_t Find(std::string_view text) const;

    std::size_t Count() const { return count_; }

  private:
    // data is null in a free slot.
    struct Slot {
        const char *data;
        std::size_t size;
        std::size_t number;
    };

    std::size_t FindAmongFew(std::string_view text) const;
    Slot &SlotOf(std::string_view text) const;
    bool Grow();

    static constexpr std::size_t kFew = 8;
    static constexpr std::size_t kFirstSlots = 32;

    std::size_t count_ = 0;
    std::string_view few_[kFew];  // in the order of their numbers; unused if there are slots
    MallocPtr<Slot> slots_;
    std::size_t slot_count_ = 0;  // 0 or a power of two, at least half of them free
};

}  // namespace tavo

#endif
