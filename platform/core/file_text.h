// The whole text of a file.
#ifndef TAVO_PLATFORM_CORE_FILE_TEXT_H
#define TAVO_PLATFORM_CORE_FILE_TEXT_H

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <string_view>

#include "base/descriptor.h"
#include "core_support.h"

namespace tavo {

// Opens regular files. The flags prevent blocking on a pipe and acquiring a controlling terminal.
int OpenForReading(int folder, const char *path, int more_flags);

// Loads files. A small file needs no memory besides the object, so that reading a service file
// costs little more than opening it.
class FileText {
  public:
    FileText() = default;
    FileText(const FileText &) = delete;
    FileText &operator=(const FileText &) = delete;

    // Loads the regular file `path`. Returns false on failure with the error set: 0xD00 NULL or
    // empty, 0x700 missing, 0x200 out of memory, 0x900 any other reason why it cannot be read.
    bool Load(const char *path) { return LoadAt(AT_FDCWD, path); }

    // The same for a path that is relative to the open folder `folder`.
    bool LoadAt(int folder, const char *path);

    // Loads the open file `fd` and returns its status from fstat.
    bool LoadFrom(int fd, struct stat &status);

    std::string_view View() const { return {data_, size_}; }

    // Whether the text contains a NUL byte, that is, whether the file is not a text file.
    bool HoldsNul() const { return holds_nul_; }

  private:
    bool ReadAll(int fd, std::size_t reported_size);
    bool Grow(std::size_t reported_size);

    static constexpr std::size_t kSmall = 8192;

    char *data_ = small_;
    std::size_t size_ = 0;
    std::size_t capacity_ = kSmall;
    bool holds_nul_ = false;
    MallocPtr<char> large_;
    char small_[kSmall];
};

}  // namespace tavo

#endif
