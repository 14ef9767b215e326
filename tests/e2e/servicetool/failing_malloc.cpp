// Replaces the allocator of a program; must be loaded before libc. One allocation fails, counted
// from the start of main; FAILING_MALLOC is its number. The number of allocations so far is written
// to the file FAILING_MALLOC_COUNT when that allocation fails and when the program exits.
#include <dlfcn.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>

extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *old, std::size_t size);
}

namespace {

using GetUser = int (*)(uid_t, passwd *, char *, std::size_t, passwd **);
using Main = int (*)(int, char **, char **);
using Start = int (*)(Main, int, char **, void (*)(), void (*)(), void (*)(), void *);

Main g_main = nullptr;
bool g_counts = false;
long g_count = 0;
long g_failing = 0;

void WriteCount() {
    g_counts = false;
    const char *path = std::getenv("FAILING_MALLOC_COUNT");
    const int file = path == nullptr ? -1 : open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (file >= 0) {
        dprintf(file, "%ld", g_count);
        close(file);
    }
}

bool Fails() {
    if (!g_counts || ++g_count != g_failing) {
        return false;
    }
    WriteCount();
    g_counts = true;
    errno = ENOMEM;
    return true;
}

int CountingMain(int argc, char **argv, char **environment) {
    const char *failing = std::getenv("FAILING_MALLOC");
    g_failing = failing == nullptr ? 0 : std::atol(failing);
    std::atexit(WriteCount);
    g_counts = true;
    return g_main(argc, argv, environment);
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

void *malloc(std::size_t size) {
    return Fails() ? nullptr : __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) {
    return Fails() ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *old, std::size_t size) {
    return Fails() ? nullptr : __libc_realloc(old, size);
}

// glibc 2.36 ends the program if memory runs out while it reads the list of user databases, so no
// allocation fails during this call.
int getpwuid_r(uid_t user, passwd *entry, char *buffer, std::size_t size, passwd **result) {
    const auto get = reinterpret_cast<GetUser>(dlsym(RTLD_NEXT, "getpwuid_r"));
    const bool counts = std::exchange(g_counts, false);
    const int error = get(user, entry, buffer, size, result);
    g_counts = counts;
    return error;
}

int __libc_start_main(Main main, int argc, char **argv, void (*init)(), void (*fini)(),
                      void (*rtld_fini)(), void *stack_end) {
    g_main = main;
    const auto start = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return start(CountingMain, argc, argv, init, fini, rtld_fini, stack_end);
}
}
#pragma GCC visibility pop
