// Owners of objects allocated by C functions.
#ifndef TAVO_BASE_OWNERS_H
#define TAVO_BASE_OWNERS_H

#include <dirent.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace tavo {

// A deleter that calls a C function. It leaves errno unchanged, so that a function can return on
// failure with errno set.
template <auto Free>
struct FreeWith {
    template <typename T>
    void operator()(T *p) const {
        const int error = errno;
        Free(p);
        errno = error;
    }
};

// Owns one block from malloc, calloc, realloc, strdup, ...
template <typename T>
using MallocPtr = std::unique_ptr<T, FreeWith<std::free>>;

// Owns the result of opendir(3).
using OwnedFolder = std::unique_ptr<DIR, FreeWith<closedir>>;

}  // namespace tavo

#endif
