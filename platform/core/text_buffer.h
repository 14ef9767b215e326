// A text that grows by appending. Running out of memory is remembered, so that it is checked once
// at the end and not after each piece.
#ifndef TAVO_PLATFORM_CORE_TEXT_BUFFER_H
#define TAVO_PLATFORM_CORE_TEXT_BUFFER_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "core_support.h"

namespace tavo {

class TextBuffer {
  public:
    void Append(std::string_view text) {
        if (!text.empty() && MakeRoomFor(text.size())) {
            std::memcpy(data_.get() + size_, text.data(), text.size());
            size_ += text.size();
        }
    }

    // Empties the text; keeps the memory and the failure state.
    void Clear() { size_ = 0; }

    // Whether memory has run out; the text is then incomplete.
    bool Failed() const { return failed_; }

    std::string_view View() const { return {data_.get(), size_}; }

  private:
    bool MakeRoomFor(std::size_t more) {
        if (failed_ || capacity_ - size_ >= more) {
            return !failed_;
        }
        const std::size_t wanted = std::max(size_ + more, capacity_ * 2);
        char *larger = static_cast<char *>(std::realloc(data_.get(), wanted));
        if (larger == nullptr) {
            failed_ = true;
            return false;
        }
        static_cast<void>(data_.release());
        data_.reset(larger);
        capacity_ = wanted;
        return true;
    }

    MallocPtr<char> data_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    bool failed_ = false;
};

}  // namespace tavo

#endif
