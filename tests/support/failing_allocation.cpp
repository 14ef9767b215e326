// The interposed allocator. Symbols of the program take precedence over those of the shared objects
// that it loads, so the library under test, libstdc++ and libc itself all allocate with these
// functions. The real allocator (libc's, or the sanitizer's if there is one) is the next
// definition.
#include "failing_allocation.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

using tavo::test::FailingAllocation;

thread_local bool g_armed = false;
thread_local bool g_hit = false;
thread_local int g_left = 0;
thread_local FailingAllocation::Mode g_mode = FailingAllocation::Mode::kOnlyNth;

bool ShouldFail() {
    if (!g_armed) {
        return false;
    }
    if (g_left > 0 && --g_left == 0) {
        g_hit = true;
        return true;
    }
    return g_hit && g_mode == FailingAllocation::Mode::kFromNthOn;
}

template <typename Function>
Function Next(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

// The loader binds shared objects only to exported symbols.
#define TAVO_INTERPOSE __attribute__((visibility("default")))

TAVO_INTERPOSE void *malloc(std::size_t size) {
    static auto next = Next<void *(*)(std::size_t)>("malloc");
    if (ShouldFail()) {
        errno = ENOMEM;
        return nullptr;
    }
    return next(size);
}

TAVO_INTERPOSE void *calloc(std::size_t count, std::size_t size) {
    static auto next = Next<void *(*)(std::size_t, std::size_t)>("calloc");
    if (ShouldFail()) {
        errno = ENOMEM;
        return nullptr;
    }
    return next(count, size);
}

TAVO_INTERPOSE void *realloc(void *block, std::size_t size) {
    static auto next = Next<void *(*)(void *, std::size_t)>("realloc");
    if (ShouldFail()) {
        errno = ENOMEM;
        return nullptr;
    }
    return next(block, size);
}

// The sanitizer has its own strdup, which would bypass the malloc above.
TAVO_INTERPOSE char *strdup(const char *text) {
    const std::size_t size = std::strlen(text) + 1;
    char *copy = static_cast<char *>(malloc(size));
    return copy == nullptr ? nullptr : static_cast<char *>(std::memcpy(copy, text, size));
}

}  // extern "C"

namespace tavo::test {

FailingAllocation::Armed::Armed(FailingAllocation &owner) : owner_(owner) {
    g_left = owner.nth_;
    g_mode = owner.mode_;
    g_hit = false;
    g_armed = true;
}

FailingAllocation::Armed::~Armed() {
    g_armed = false;
    owner_.hit_ = g_hit;
}

}  // namespace tavo::test
