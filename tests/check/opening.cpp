#include "opening.h"

#include <dlfcn.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

namespace {

std::string g_refused_path;
int g_refused_error = 0;
std::function<void()> g_look;

}  // namespace

// Not exported from here, the loader would not bind the shared objects to it.
extern "C" __attribute__((visibility("default"))) int open(const char *path, int flags, ...) {
    static const auto next =
        reinterpret_cast<int (*)(const char *, int, ...)>(dlsym(RTLD_NEXT, "open"));
    if (!g_refused_path.empty() && path == g_refused_path) {
        errno = g_refused_error;
        return -1;
    }
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    const int opened = next(path, flags, mode);
    if (opened >= 0 && g_look) {
        g_look();
    }
    return opened;
}

namespace tavo::test {

RefusedOpen::RefusedOpen(std::string path, int error) {
    g_refused_path = std::move(path);
    g_refused_error = error;
}

RefusedOpen::~RefusedOpen() {
    g_refused_path.clear();
}

BehindOpening::BehindOpening(std::function<void()> look) {
    g_look = std::move(look);
}

BehindOpening::~BehindOpening() {
    g_look = nullptr;
}

}  // namespace tavo::test
