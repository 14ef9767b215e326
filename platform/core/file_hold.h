// The file that a thread holds (TLIBCFileHold).
#ifndef TAVO_PLATFORM_CORE_FILE_HOLD_H
#define TAVO_PLATFORM_CORE_FILE_HOLD_H

#include "core_support.h"
#include "file_text.h"
#include "section_map.h"

namespace tavo {

// A file in memory, and where its sections are.
struct MappedFile {
    FileText text;
    SectionMap sections;

    bool Load(const char *path);
};

// What the calling thread holds, if it is held by that very path; else null.
const MappedFile *FindHeldFile(const char *path);

// Ends the calling thread's hold of the file `path`, by whatever path it is held.
void ReleaseChangedFile(const char *path);

}  // namespace tavo

#endif
