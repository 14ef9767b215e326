// A private folder for temporary files.
#ifndef TAVO_SERVICETOOL_CHANGE_PRIVATE_FOLDER_H
#define TAVO_SERVICETOOL_CHANGE_PRIVATE_FOLDER_H

#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace tavo::tool {

// Its name in /tmp is this and random characters.
inline constexpr char kPrivateFolderHead[] = "servicetool-";

// The destructor removes the folder and the files in it. The folder is locked while it is in use,
// to distinguish it from the leftover of a killed program.
class PrivateFolder {
  public:
    // Throws std::system_error if the folder cannot be created.
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder &) = delete;
    PrivateFolder &operator=(const PrivateFolder &) = delete;

    // Creates a file with mode 0644 and returns its path. Throws std::system_error on failure.
    std::string Make(const std::string &name, std::string_view text) const;

  private:
    std::string path_;
    Descriptor lock_;
};

// Locks a private folder with flock(2) if no process uses it. Else the result is not open, with
// errno set; EWOULDBLOCK if it is in use.
Descriptor LockUnusedFolder(const std::string &path, int operation);

}  // namespace tavo::tool

#endif
