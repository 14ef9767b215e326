// What every source file of the core library uses: reporting a failure in one line, owning memory
// from malloc, and the views' side of the list and the table.
//
// The library is built without exceptions, so memory comes from malloc and running out of it is a
// result like any other. What is made is held by a MallocPtr until it is handed over.
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

// The error code of a system call on a file that failed with errno `error`.
unsigned int FileError(int error);

// Keeps the calling thread's error state as it is, for a step whose failure is not reported.
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

// Gives the array from malloc in `array` room for `room` elements, those in it kept. False when
// memory runs out, which sets no error and leaves the array as it was.
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

// How what grows grows: the cost of many appends stays linear.
constexpr int Doubled(int room) {
    return room > INT_MAX / 2 ? INT_MAX : room * 2;
}

// A copy of `text` with a terminator behind it; null when memory runs out, which sets no error.
MallocPtr<char> CopyText(std::string_view text);

// TLIBCSzListPush and TLIBCSzHashSetValue for text that no NUL ends. It must not hold one either:
// what comes out of the containers is C strings.
int ListPush(TLIBCSzList *list, std::string_view item);
int HashSet(TLIBCSzHash *hash, std::string_view key, std::string_view value);

// Takes the strings from index `count` on out again: how a function that fails midway leaves the
// caller's list as it was.
void ListShorten(TLIBCSzList *list, int count);

}  // namespace tavo

#endif
