// A folder for files on their way, which nobody else looks into.
#ifndef TAVO_SERVICETOOL_CHANGE_PRIVATE_FOLDER_H
#define TAVO_SERVICETOOL_CHANGE_PRIVATE_FOLDER_H

#include <string>
#include <string_view>

namespace tavo::tool {

// Its name in /tmp is this and random text.
inline constexpr char kPrivateFolderHead[] = "servicetool-";

// It goes with its object, and all files that were made by it go, too. While it is in use it is
// locked, so that one that a killed program left can be told from it.
class PrivateFolder {
  public:
    // Throws std::system_error where it cannot be made, as the function below does.
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder &) = delete;
    PrivateFolder &operator=(const PrivateFolder &) = delete;

    // Makes a file of that name, mode 0644, that belongs to us, and gives its path.
    std::string Make(const std::string &name, std::string_view text) const;

  private:
    std::string path_;
    int descriptor_ = -1;
};

// Whether nobody uses the private folder of that path. One that cannot be looked at is in use.
bool IsUnusedFolder(const std::string &path);

// Removes the private folder of that path unless somebody uses it. False when it is still there,
// with errno set; EWOULDBLOCK when it is in use.
bool RemoveUnusedFolder(const std::string &path);

}  // namespace tavo::tool

#endif
