// A file that is changed completely or not at all, by one writer at a time.
#ifndef TAVO_PLATFORM_CORE_FILE_REPLACE_H
#define TAVO_PLATFORM_CORE_FILE_REPLACE_H

#include <sys/stat.h>

#include <chrono>
#include <string_view>

#include "core_support.h"
#include "file_text.h"
#include "folder_lock.h"

namespace tavo {

// The regular file that a path leads to, locked for a change for the lifetime of the object.
class LockedFile {
  public:
    // Follows symbolic links, locks the folder of the target file and removes the leftovers of a
    // killed writer there. Returns false on failure with the error set: 0x700 for a missing file,
    // 0x900 also if the lock is not available in time. If the caller may not write to the folder,
    // nothing is locked; the file can then be read, but not replaced.
    bool Lock(const char *path, std::chrono::milliseconds wait = kLockWait);

    // Loads the file under the lock.
    bool Read(FileText &text);

    // Replaces the contents of the file, which must have been read before. Returns false on
    // failure, with the file unchanged: 0x2800 if it cannot be renamed, 0x900 for anything else.
    bool Replace(std::string_view text);

  private:
    MallocPtr<char> path_;
    const char *name_ = nullptr;  // in its folder
    FolderLock lock_;
    bool locked_ = false;
    struct stat status_ = {};
};

}  // namespace tavo

#endif
