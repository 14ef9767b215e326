// A growing array that stores its first elements in the object itself, so that a few elements need
// no allocation.
#ifndef TAVO_PLATFORM_CORE_SMALL_ARRAY_H
#define TAVO_PLATFORM_CORE_SMALL_ARRAY_H

#include <cstring>
#include <type_traits>

#include "core_support.h"

namespace tavo {

template <typename T, int kFew>
class SmallArray {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    SmallArray() = default;
    SmallArray(const SmallArray &) = delete;
    SmallArray &operator=(const SmallArray &) = delete;

    int Count() const { return count_; }
    T &operator[](int index) { return items_[index]; }
    const T &operator[](int index) const { return items_[index]; }

    // Returns false when out of memory; the array is then unchanged.
    bool Append(const T &item) {
        if (count_ == room_ && !Grow()) {
            return false;
        }
        items_[count_++] = item;
        return true;
    }

  private:
    bool Grow() {
        const int room = Doubled(room_);
        T *larger = many_.get();
        if (room == room_ || !Resize(larger, room)) {
            return false;
        }
        if (items_ == few_) {
            std::memcpy(larger, few_, sizeof(few_));
        }
        static_cast<void>(many_.release());
        many_.reset(larger);
        items_ = larger;
        room_ = room;
        return true;
    }

    int count_ = 0;
    int room_ = kFew;
    T *items_ = few_;
    MallocPtr<T> many_;
    T few_[kFew];
};

}  // namespace tavo

#endif
