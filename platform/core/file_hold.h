// The file that a thread holds (TLIBCFileHold).
#ifndef TAVO_PLATFORM_CORE_FILE_HOLD_H
#define TAVO_PLATFORM_CORE_FILE_HOLD_H

#include "core_support.h"
#include "file_text.h"
#include "section_map.h"

namespace tavo {

// A file in memory with a map of its sections.
struct MappedFile {
    FileText text;
    SectionMap sections;
};

// The file that the calling thread holds, if it is held with exactly this path; else null.
const MappedFile *FindHeldFile(const char *path);

// Releases the file `path` if the calling thread holds it, even if it is held with a different
// path.
void ReleaseChangedFile(const char *path);

}  // namespace tavo

#endif
