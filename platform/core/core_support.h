// Common parts of the core library: reporting a failure in one line, owners of memory from malloc,
// and list and table functions for string views.
//
// The library is built without exceptions, so memory comes from malloc, and out of memory is an
// ordinary result. Objects are owned by a MallocPtr until they are passed on.
#ifndef TAVO_PLATFORM_CORE_CORE_SUPPORT_H
#define TAVO_PLATFORM_CORE_CORE_SUPPORT_H

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "base/owners.h"
#include "platform/platform_failure.h"
#include "tavocore.h"

namespace tavo {

// The error code for a system call on a file that failed with errno `error`.
unsigned int FileError(int error);

// Restores the calling thread's error state, for a step whose failure is not reported.
class UnchangedErrorState {
  public:
    UnchangedErrorState() : code_(TLIBCErrGet()), line_(TLIBCErrorGetLine()) {
        const char *file = TLIBCErrorGetFile();
        const std::size_t length = strnlen(file, sizeof(file_) - 1);
        std::memcpy(file_, file, length);
        file_[length] = '\0';
    }
    ~UnchangedErrorState() { TLIBCErrSetEx(code_, file_, line_); }
    UnchangedErrorState(const UnchangedErrorState &) = delete;
    UnchangedErrorState &operator=(const UnchangedErrorState &) = delete;

  private:
    unsigned int code_;
    int line_;
    char file_[256];
};

// Resizes the malloc array `array` to `room` elements and keeps its contents. Returns false when
// out of memory; sets no error and leaves the array unchanged.
template <typename T>
bool Resize(T *&array, int room) {
    const auto count = static_cast<std::size_t>(room);
    void *block = count > SIZE_MAX / sizeof(T) ? nullptr : std::realloc(array, count * sizeof(T));
    if (block == nullptr) {
        return false;
    }
    array = static_cast<T *>(block);
    return true;
}

// The next size of a growing buffer. Doubling keeps the total cost of appends linear.
constexpr int Doubled(int room) {
    return room > INT_MAX / 2 ? INT_MAX : room * 2;
}

// A NUL-terminated copy of `text`; null when out of memory, which sets no error.
MallocPtr<char> CopyText(std::string_view text);

// TLIBCSzListPush for text without a terminator. The text must not contain a NUL byte, because the
// list returns C strings.
int ListPush(TLIBCSzList *list, std::string_view item);

// Filling an empty table with keys and values that are not copied one by one: HashTexts returns a
// block of `size` bytes, which the table owns, or null with the error set. HashAdopt stores a key
// and value in the text that the caller copied to it. It overwrites the byte after each, which must
// be in the block, with a terminator. 0; -1 with the error set when out of memory.
char *HashTexts(TLIBCSzHash *hash, std::size_t size);
int HashAdopt(TLIBCSzHash *hash, std::string_view key, std::string_view value);

// Removes the strings from index `count` on, to restore the caller's list when a function fails
// midway.
void ListShorten(TLIBCSzList *list, int count);

}  // namespace tavo

#endif
