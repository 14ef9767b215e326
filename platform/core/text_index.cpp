// A few texts are compared one by one, without hashing. More texts use a hash table with open
// addressing and linear probing. Texts are never removed, so a free slot always ends a search.
#include "text_index.h"

#include <algorithm>

#include "text_hash.h"

namespace tavo {

std::size_t TextIndex::FindAmongFew(std::string_view text) const {
    const auto *end = few_ + count_;
    const auto *found = std::find(few_, end, text);
    return found == end ? kNone : static_cast<std::size_t>(found - few_);
}

TextIndex::Slot &TextIndex::SlotOf(std::string_view text) const {
    Slot *slots = slots_.get();
    std::size_t at = HashOf(text) & (slot_count_ - 1);
    while (slots[at].data != nullptr && std::string_view(slots[at].data, slots[at].size) != text) {
        at = (at + 1) & (slot_count_ - 1);
    }
    return slots[at];
}

std::size_t TextIndex::Find(std::string_view text) const {
    if (slots_ == nullptr) {
        return FindAmongFew(text);
    }
    const Slot &slot = SlotOf(text);
    return slot.data == nullptr ? kNone : slot.number;
}

std::size_t TextIndex::Add(std::string_view text) {
    const std::size_t known = Find(text);
    if (known != kNone) {
        return known;
    }
    if (count_ < kFew) {
        few_[count_] = text;
        return count_++;
    }
    if ((count_ + 1) * 2 > slot_count_ && !Grow()) {
        return kNone;
    }
    SlotOf(text) = {text.data(), text.size(), count_};
    return count_++;
}

bool TextIndex::Grow() {
    const std::size_t old_count = slot_count_;
    const std::size_t new_count = std::max(old_count * 2, kFirstSlots);
    MallocPtr<Slot> old(static_cast<Slot *>(std::calloc(new_count, sizeof(Slot))));
    if (old == nullptr) {
        return false;
    }
    std::swap(old, slots_);
    slot_count_ = new_count;
    if (old == nullptr) {
        for (std::size_t i = 0; i < count_; ++i) {
            SlotOf(few_[i]) = {few_[i].data(), few_[i].size(), i};
        }
    }
    for (std::size_t i = 0; i < old_count; ++i) {
        const Slot &slot = old.get()[i];
        if (slot.data != nullptr) {
            SlotOf({slot.data, slot.size}) = slot;
        }
    }
    return true;
}

}  // namespace tavo
