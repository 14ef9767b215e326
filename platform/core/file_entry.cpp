// Checks whether entries of folders exist, and creates them.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "core_support.h"
#include "file_text.h"

namespace {

int SetTimesToNow(const char *path) {
    return utimensat(AT_FDCWD, path, nullptr, 0);
}

// Fails if the entry exists, so that it neither blocks on a pipe nor opens a device.
int CreateEmpty(const char *path) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    tavo::Descriptor file(tavo::Uninterrupted([&] { return open(path, kFlags, 0644); }));
    return file.IsOpen() && file.Close() ? 0 : -1;
}

}  // namespace

int TLIBCFileExist(const char *szPath) {
    struct stat status;
    return szPath != nullptr && stat(szPath, &status) == 0 ? 1 : 0;
}

int TLIBCFileTouch(const char *szPath) {
    if (szPath == nullptr || *szPath == '\0') {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    int result = SetTimesToNow(szPath);
    if (result != 0 && errno == ENOENT) {
        result = CreateEmpty(szPath);
        // Another program created it first, or it is a dangling symbolic link, which is kept.
        if (result != 0 && errno == EEXIST) {
            result = SetTimesToNow(szPath);
        }
    }
    if (result != 0) {
        return TAVO_PLATFORM_FAIL(tavo::FileError(errno));
    }
    return 0;
}
