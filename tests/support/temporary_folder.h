// A temporary folder for a test that needs real files; removed with its contents.
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

    // The path of the entry `name`.
    std::string operator/(std::string_view name) const;

    // Writes (or replaces) the file `name` and returns its path.
    std::string Write(std::string_view name, std::string_view contents) const;

    // The names of all entries, including hidden ones, sorted.
    std::vector<std::string> Entries() const;

  private:
    std::string path_;
};

// The contents of a file; throws if it cannot be read.
std::string ReadFile(const std::string &path);

// Creates or replaces a file; throws if it cannot be written.
void WriteFile(const std::string &path, std::string_view contents);

// The names of all entries of a folder, including hidden ones, sorted; empty if the folder does not
// exist.
std::vector<std::string> Entries(const std::string &folder);

}  // namespace tavo::test

#endif
