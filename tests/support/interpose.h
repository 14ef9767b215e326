// Lets a test program define functions in place of a library's. All shared objects then call the
// program's function, including the library that defines the original.
#ifndef TAVO_TESTS_SUPPORT_INTERPOSE_H
#define TAVO_TESTS_SUPPORT_INTERPOSE_H

#include <dlfcn.h>

// Starts the definition. The loader binds shared objects only to exported functions.
#define TAVO_INTERPOSED extern "C" __attribute__((visibility("default")))

// The original function.
#define TAVO_INTERPOSED_NEXT(function) \
    reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

#endif
