// A system that does not say which program a process runs.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace {

bool NamesProgram(std::string_view path) {
    return path.starts_with("/proc/") && path.ends_with("/exe");
}

}  // namespace

extern "C" {
#pragma GCC visibility push(default)

ssize_t readlink(const char *path, char *target, size_t size) {
    if (NamesProgram(path)) {
        errno = EACCES;
        return -1;
    }
    const auto real = reinterpret_cast<decltype(&readlink)>(dlsym(RTLD_NEXT, "readlink"));
    return real(path, target, size);
}

// The same in a program that is compiled with _FORTIFY_SOURCE.
ssize_t __readlink_chk(const char *path, char *target, size_t size, size_t) {
    return readlink(path, target, size);
}

#pragma GCC visibility pop
}  // extern "C"
