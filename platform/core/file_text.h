// The whole text of a file.
#ifndef TAVO_PLATFORM_CORE_FILE_TEXT_H
#define TAVO_PLATFORM_CORE_FILE_TEXT_H

#include <sys/stat.h>

#include <cstddef>
#include <string_view>

#include "base/descriptor.h"
#include "core_support.h"

namespace tavo {

// What regular files are opened with: neither a pipe nor a terminal behind the name does harm.
int OpenForReading(int folder, const char *path, int more_flags);

// Loads files. A small one needs no memory but the object's own, so that reading a service file
// costs little more than opening it.
class FileText {
  public:
    FileText() = default;
    FileText(const FileText &) = delete;
    FileText &operator=(const FileText &) = delete;

    // Loads the regular file `path`. False on failure with the error set: 0xD00 NULL or empty,
    // 0x700 missing, 0x200 out of memory, 0x900 anything else that keeps it from being read.
    bool Load(const char *path);

    // Loads the open file `fd` and tells what fstat says of it.
    bool LoadFrom(int fd, struct stat &status);

    std::string_view View() const { return {data_, size_}; }

    // Whether there is a NUL byte in it, which only files have that are none of text.
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
