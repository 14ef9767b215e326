// Functions of a test program that take the place of a library's: its callers in shared objects,
// the library that has the function included, call the program's.
#ifndef TAVO_TESTS_SUPPORT_INTERPOSE_H
#define TAVO_TESTS_SUPPORT_INTERPOSE_H

#include <dlfcn.h>

// Starts the definition. The loader binds shared objects only to functions that are exported.
#define TAVO_INTERPOSED extern "C" __attribute__((visibility("default")))

// The function whose place is taken.
#define TAVO_INTERPOSED_NEXT(function) \
    reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

#endif
