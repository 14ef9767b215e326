// An array that grows geometrically, for elements that may be moved as bytes, and a store of texts.
#ifndef TAVO_SRC_SUPPORT_GROWING_ARRAY_H
#define TAVO_SRC_SUPPORT_GROWING_ARRAY_H

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

#include "base/owners.h"

namespace tavo {

template <typename T>
class GrowingArray {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    GrowingArray() = default;
    ~GrowingArray() { std::free(items_); }
    GrowingArray(GrowingArray &&other) noexcept { Swap(other); }
    GrowingArray &operator=(GrowingArray &&other) noexcept {
        Swap(other);
        return *this;
    }
    GrowingArray(const GrowingArray &) = delete;
    GrowingArray &operator=(const GrowingArray &) = delete;

    std::size_t Count() const { return count_; }
    T &operator[](std::size_t index) { return items_[index]; }
    const T &operator[](std::size_t index) const { return items_[index]; }
    T *begin() { return items_; }
    T *end() { return items_ + count_; }
    const T *begin() const { return items_; }
    const T *end() const { return items_ + count_; }

    // Returns false when out of memory; the array is then unchanged.
    bool Append(const T &item) {
        if (count_ == room_ && !Grow()) {
            return false;
        }
        items_[count_++] = item;
        return true;
    }

    // The same for all items of a container, in order. Those before a failure are appended.
    template <typename Items>
    bool AppendAll(const Items &items) {
        return std::all_of(items.begin(), items.end(),
                           [this](const T &item) { return Append(item); });
    }

    // Keeps the first `count` items, and the memory of the others.
    void Truncate(std::size_t count) { count_ = count; }

  private:
    void Swap(GrowingArray &other) {
        std::swap(items_, other.items_);
        std::swap(count_, other.count_);
        std::swap(room_, other.room_);
    }

    bool Grow() {
        const std::size_t room = room_ == 0 ? 16 : 2 * room_;
        // NOLINTNEXTLINE(bugprone-sizeof-expression): the items may be pointers
        void *grown = std::realloc(items_, room * sizeof(T));
        if (grown == nullptr) {
            return false;
        }
        items_ = static_cast<T *>(grown);
        room_ = room;
        return true;
    }

    T *items_ = nullptr;
    std::size_t count_ = 0;
    std::size_t room_ = 0;
};

// Copies of texts, which live as long as the records that point to them.
class KeptTexts {
  public:
    KeptTexts() = default;
    ~KeptTexts() {
        for (char *text : texts_) {
            std::free(text);
        }
    }
    KeptTexts(KeptTexts &&other) = default;
    KeptTexts &operator=(KeptTexts &&other) = default;
    KeptTexts(const KeptTexts &) = delete;
    KeptTexts &operator=(const KeptTexts &) = delete;

    // Returns null when out of memory.
    const char *Keep(const char *text) {
        MallocPtr<char> copy(strdup(text));
        return copy != nullptr && texts_.Append(copy.get()) ? copy.release() : nullptr;
    }

  private:
    GrowingArray<char *> texts_;
};

}  // namespace tavo

#endif
