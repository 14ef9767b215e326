// A hash table with open addressing and linear probing. Nothing is ever taken out, so a free slot
// always ends a search.
#include "text_index.h"

#include "text_hash.h"

namespace tavo {

TextIndex::Slot &TextIndex::SlotOf(std::string_view text) const {
    std::size_t at = HashOf(text) & (slot_count_ - 1);
    while (slots_[at].data != nullptr &&
           std::string_view(slots_[at].data, slots_[at].size) != text) {
        at = (at + 1) & (slot_count_ - 1);
    }
    return slots_[at];
}

std::size_t TextIndex::Find(std::string_view text) const {
    const Slot &slot = SlotOf(text);
    return slot.data == nullptr ? kNone : slot.number;
}

std::size_t TextIndex::Add(std::string_view text) {
    const std::size_t known = Find(text);
    if (known != kNone) {
        return known;
    }
    if ((count_ + 1) * 2 > slot_count_ && !Grow()) {
        return kNone;
    }
    SlotOf(text) = {text.data(), text.size(), count_};
    return count_++;
}

bool TextIndex::Grow() {
    const std::size_t old_count = slot_count_;
    MallocPtr<Slot> larger(static_cast<Slot *>(std::calloc(old_count * 2, sizeof(Slot))));
    if (larger == nullptr) {
        return false;
    }
    const Slot *old = slots_;
    slots_ = larger.get();
    slot_count_ = old_count * 2;
    for (std::size_t i = 0; i < old_count; ++i) {
        if (old[i].data != nullptr) {
            SlotOf({old[i].data, old[i].size}) = old[i];
        }
    }
    many_ = std::move(larger);
    return true;
}

}  // namespace tavo
