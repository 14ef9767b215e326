// Reads what a FILE argument names, whatever that turns out to be, and the names in a folder.
#ifndef TAVO_SERVICETOOL_INPUT_INPUT_FILE_H
#define TAVO_SERVICETOOL_INPUT_INPUT_FILE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::tool {

// The FILE argument for standard input, and the name that it is shown by.
inline constexpr std::string_view kStandardInput = "-";
inline constexpr std::string_view kStandardInputName = "<stdin>";

// The system's words for an error number, in lower case like all messages.
std::string ErrorText(int error);

// Whether a failed look at a path says that nothing is there. Any other error leaves that unknown.
bool IsAbsence(int error);

struct FileContents {
    std::string text;
    std::string problem;  // why the file cannot be read, such as "permission denied"; else empty
    bool absent = false;  // the problem is that there is nothing of that name
};

// The contents of a regular file. Anything else is a problem and never waited for.
FileContents ReadRegularFile(const std::string &path);

// All that standard input gives until its end.
FileContents ReadStandardInput();

// The names of all entries of a folder, sorted. None, with errno set, when it cannot be listed.
std::optional<std::vector<std::string>> NamesIn(const std::string &folder);

// A file without a name that holds `text`, for functions that take a path.
class MemoryFile {
  public:
    // Throws std::system_error where it cannot be made.
    explicit MemoryFile(std::string_view text);
    ~MemoryFile();
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    std::string Path() const;

  private:
    MemoryFile();

    int descriptor_;
};

}  // namespace tavo::tool

#endif
