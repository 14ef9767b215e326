// A folder of its own for a test that needs real files, removed with all it holds.
#ifndef TAVO_TESTS_SUPPORT_TEMPORARY_FOLDER_H
#define TAVO_TESTS_SUPPORT_TEMPORARY_FOLDER_H

#include <string>
#include <string_view>
#include <vector>

namespace tavo::test {

class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::string &Path() const { return path_; }

    // The path of `name` in the folder.
    std::string operator/(std::string_view name) const;

    // Writes (or replaces) the file `name` and returns its path.
    std::string Write(std::string_view name, std::string_view contents) const;

    // The names of all entries, sorted, hidden ones too.
    std::vector<std::string> Entries() const;

  private:
    std::string path_;
};

// The whole contents of a file; throws where it cannot be read.
std::string ReadFile(const std::string &path);

// Creates or replaces a file; throws where it cannot be written.
void WriteFile(const std::string &path, std::string_view contents);

// The names of all entries of a folder, sorted, hidden ones too; none where there is no such
// folder.
std::vector<std::string> Entries(const std::string &folder);

}  // namespace tavo::test

#endif
