// A system that does not reveal the program of a process. The libc header that declares these
// functions is not included because it may define them inline.
#include <dlfcn.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace {

bool NamesProgram(std::string_view path) {
    return path.starts_with("/proc/") && path.ends_with("/exe");
}

}  // namespace

extern "C" {
#pragma GCC visibility push(default)

ssize_t readlink(const char *path, char *target, std::size_t size);
ssize_t __readlink_chk(const char *path, char *target, std::size_t size, std::size_t room);

ssize_t readlink(const char *path, char *target, std::size_t size) {
    if (NamesProgram(path)) {
        errno = EACCES;
        return -1;
    }
    const auto real = reinterpret_cast<decltype(&readlink)>(dlsym(RTLD_NEXT, "readlink"));
    return real(path, target, size);
}

// The variant for programs compiled with _FORTIFY_SOURCE.
ssize_t __readlink_chk(const char *path, char *target, std::size_t size, std::size_t /*room*/) {
    return readlink(path, target, size);
}

#pragma GCC visibility pop
}  // extern "C"
