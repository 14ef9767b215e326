#include "opening.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

namespace {

std::string g_refused_path;
int g_refused_error = 0;
std::string g_refused_link;
int g_refused_link_error = 0;
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

extern "C" __attribute__((visibility("default"))) ssize_t readlinkat(int folder, const char *name,
                                                                     char *target, size_t size) {
    static const auto next = reinterpret_cast<ssize_t (*)(int, const char *, char *, size_t)>(
        dlsym(RTLD_NEXT, "readlinkat"));
    if (!g_refused_link.empty() && name == g_refused_link) {
        errno = g_refused_link_error;
        return -1;
    }
    return next(folder, name, target, size);
}

namespace tavo::test {

RefusedOpen::RefusedOpen(std::string path, int error) {
    g_refused_path = std::move(path);
    g_refused_error = error;
}

RefusedOpen::~RefusedOpen() {
    g_refused_path.clear();
}

RefusedLink::RefusedLink(std::string name, int error) {
    g_refused_link = std::move(name);
    g_refused_link_error = error;
}

RefusedLink::~RefusedLink() {
    g_refused_link.clear();
}

BehindOpening::BehindOpening(std::function<void()> look) {
    g_look = std::move(look);
}

BehindOpening::~BehindOpening() {
    g_look = nullptr;
}

}  // namespace tavo::test
