// A file that is changed as a whole or not at all, by one writer at a time.
#ifndef TAVO_PLATFORM_CORE_FILE_REPLACE_H
#define TAVO_PLATFORM_CORE_FILE_REPLACE_H

#include <sys/stat.h>

#include <chrono>
#include <string_view>

#include "core_support.h"
#include "file_text.h"
#include "folder_lock.h"

namespace tavo {

// The regular file behind a path, locked for a change until the object goes.
class LockedFile {
  public:
    // Follows symbolic links, locks the folder of the file that they lead to and clears what a
    // writer that was killed left in it. False on failure with the error set: 0x700 for a missing
    // file, 0x900 also when the lock is not to be had in time. Where the caller may not write to
    // the folder nothing is locked; the file can be read, but not replaced.
    bool Lock(const char *path, std::chrono::milliseconds wait = kLockWait);

    // Loads the file as it is under the lock.
    bool Read(FileText &text);

    // Gives the file, which was read before, the new text. False on failure, the file then being as
    // it was: 0x2800 when it cannot be renamed, 0x900 anything else.
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
