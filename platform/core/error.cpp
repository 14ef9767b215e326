// The error state: the last failure of the calling thread and its position in the source.
//
// The file name is copied because it may belong to a library that is unloaded or to a buffer that
// is reused. Recording does not allocate, so that it can record out of memory.
#include <cerrno>
#include <cstring>

#include "core_support.h"

namespace {

struct ErrorState {
    unsigned int code;
    int line;
    char file[256];
};

// Exists from the start of each thread (initial-exec model), so that recording needs no memory even
// if the library was loaded with dlopen.
thread_local ErrorState t_state;

}  // namespace

void TLIBCErrSetEx(unsigned int nError, const char *szFile, int nLine) {
    if (nError == 0) {
        t_state = {};
        return;
    }
    const std::size_t length = szFile == nullptr ? 0 : strnlen(szFile, sizeof(t_state.file) - 1);
    // The name may be the one returned by TLIBCErrorGetFile.
    std::memmove(t_state.file, szFile == nullptr ? "" : szFile, length);
    t_state.file[length] = '\0';
    t_state.code = nError;
    t_state.line = nLine;
}

unsigned int TLIBCErrGet(void) {
    return t_state.code;
}

const char *TLIBCErrorGetFile(void) {
    return t_state.file;
}

int TLIBCErrorGetLine(void) {
    return t_state.line;
}

namespace tavo {

unsigned int FileError(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return TLIBC_ERR_NO_FILE;
        case ENOMEM:
            return TLIBC_ERR_NO_MEMORY;
        default:
            return TLIBC_ERR_FILE_UNUSABLE;
    }
}

}  // namespace tavo
