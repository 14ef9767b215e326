// A private folder for temporary files.
#ifndef TAVO_SERVICETOOL_CHANGE_PRIVATE_FOLDER_H
#define TAVO_SERVICETOOL_CHANGE_PRIVATE_FOLDER_H

#include <string>
#include <string_view>

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
    int descriptor_ = -1;
};

// Whether no process uses the private folder. If that is unknown, it counts as in use.
bool IsUnusedFolder(const std::string &path);

// Removes the private folder unless it is in use. Returns false with errno set if it was not
// removed; EWOULDBLOCK if it is in use.
bool RemoveUnusedFolder(const std::string &path);

}  // namespace tavo::tool

#endif
