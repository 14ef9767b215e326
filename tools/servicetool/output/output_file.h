// Writes an output file given on the command line.
#ifndef TAVO_SERVICETOOL_OUTPUT_OUTPUT_FILE_H
#define TAVO_SERVICETOOL_OUTPUT_OUTPUT_FILE_H

#include <string>
#include <string_view>

namespace tavo::tool {

// The FILE argument for standard output.
inline constexpr std::string_view kStandardOutput = "-";

// Whether the path refers to the same file as standard output, as /dev/stdout does.
bool IsStandardOutput(const std::string &path);

// Writes `text` to the file. A regular file is replaced atomically, so it is unchanged after a
// failure. A symbolic link is followed; a device or a pipe is written to. Returns the reason for a
// failure, such as "cannot be written: permission denied", else "".
std::string WriteWholeFile(const std::string &path, std::string_view text);

}  // namespace tavo::tool

#endif
