// Holding one file of the calling thread while its sections are read one by one.
//
// The reading functions take a path and a section, so that reading a file of five sections opens it
// six times, and one of a thousand sections is walked a thousand times. A caller that knows that it
// is about to do so holds the file for that while: the reads in between share one snapshot with a
// map of its sections, and cannot mix two versions of a file that is replaced meanwhile. Nothing is
// kept beyond the hold.
#include "file_hold.h"

#include <cstring>
#include <new>

namespace tavo {
namespace {

struct HeldFile {
    MallocPtr<char> path;
    MappedFile file;
};

// A plain pointer: registering a destructor to run with the thread takes memory, and the process
// ends where there is none.
thread_local HeldFile *held_file = nullptr;

}  // namespace

bool MappedFile::Load(const char *path) {
    return text.Load(path) && sections.Build(text);
}

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
    using namespace tavo;
    // Holding only saves work, so that it failed is no news: whoever cannot hold a file reads it
    // all the same, and learns then what is wrong with it.
    const UnchangedErrorState unchanged;
    void *room = nullptr;
    if (szPath == nullptr || held_file != nullptr ||
        (room = std::malloc(sizeof(HeldFile))) == nullptr) {
        return -1;
    }
    held_file = new (room) HeldFile;  // not HeldFile{}, which would clear the room for the text
    held_file->path = CopyText(szPath);
    if (held_file->path == nullptr || !held_file->file.Load(szPath)) {
        TLIBCFileRelease();
        return -1;
    }
    return 0;
}

void TLIBCFileRelease(void) {
    using tavo::held_file;
    if (held_file != nullptr) {
        held_file->~HeldFile();
        std::free(held_file);
        held_file = nullptr;
    }
}
