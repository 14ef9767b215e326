// Holds one file in the calling thread while its sections are read one by one.
//
// The reading functions take a path and a section, so reading a file of five sections opens it six
// times, and a file of a thousand sections is parsed a thousand times. A caller can hold the file
// for that time: its reads then share one snapshot with a map of the sections, and cannot mix two
// versions of a file that is replaced meanwhile. Nothing is kept after the release.
#include "file_hold.h"

#include <fcntl.h>

#include <cstring>
#include <new>

namespace tavo {
namespace {

struct HeldFile {
    MallocPtr<char> path;
    MappedFile file;
};

// A plain pointer: registering a thread-local destructor needs memory, and the process is
// terminated if there is none.
thread_local HeldFile *held_file = nullptr;

// Holds the file `name` of `folder` as `path`, in the memory `room`, which is freed on failure.
// Holding is only an optimisation, so a failure sets no error: the caller then reads the file
// directly, and that read reports any error.
int HoldIn(void *room, const char *path, int folder, const char *name) {
    const UnchangedErrorState unchanged;
    held_file = new (room) HeldFile;  // not HeldFile{}, which would clear the text buffer
    held_file->path = CopyText(path);
    MappedFile &file = held_file->file;
    if (held_file->path == nullptr || !file.text.LoadAt(folder, name) ||
        !file.sections.Build(file.text)) {
        TLIBCFileRelease();
        return -1;
    }
    return 0;
}

}  // namespace

const MappedFile *FindHeldFile(const char *path) {
    const bool held =
        held_file != nullptr && path != nullptr && std::strcmp(held_file->path.get(), path) == 0;
    return held ? &held_file->file : nullptr;
}

void ReleaseChangedFile(const char *path) {
    if (held_file == nullptr) {
        return;
    }
    const MallocPtr<char> changed(realpath(path, nullptr));
    const MallocPtr<char> held(realpath(held_file->path.get(), nullptr));
    const bool differs =
        changed != nullptr && held != nullptr && std::strcmp(changed.get(), held.get()) != 0;
    if (!differs) {
        TLIBCFileRelease();
    }
}

}  // namespace tavo

int TLIBCFileHold(const char *szPath) {
    if (szPath == nullptr || tavo::held_file != nullptr) {
        return -1;
    }
    void *room = std::malloc(sizeof(tavo::HeldFile));
    return room == nullptr ? -1 : tavo::HoldIn(room, szPath, AT_FDCWD, szPath);
}

int TLIBCFileHoldNext(int nFolder, const char *szPath) {
    using tavo::held_file;
    if (szPath == nullptr || held_file == nullptr) {
        return -1;
    }
    held_file->~HeldFile();
    const char *slash = std::strrchr(szPath, '/');
    return tavo::HoldIn(held_file, szPath, nFolder, slash == nullptr ? szPath : slash + 1);
}

void TLIBCFileRelease(void) {
    using tavo::held_file;
    if (held_file != nullptr) {
        held_file->~HeldFile();
        std::free(held_file);
        held_file = nullptr;
    }
}
