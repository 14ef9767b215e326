// Writes a file that the command line names.
#ifndef TAVO_SERVICETOOL_OUTPUT_OUTPUT_FILE_H
#define TAVO_SERVICETOOL_OUTPUT_OUTPUT_FILE_H

#include <string>
#include <string_view>

namespace tavo::tool {

// The FILE argument for standard output.
inline constexpr std::string_view kStandardOutput = "-";

// Whether what is written to the file comes to where standard output goes, as with /dev/stdout.
bool IsStandardOutput(const std::string &path);

// Makes `text` the contents of the file: a new file takes the place of the old one at once, so that
// whatever fails the old one is whole. A symbolic link is followed; a device or a pipe is written
// to. What is wrong where it cannot be written, such as "cannot be written: permission denied",
// else empty.
std::string WriteWholeFile(const std::string &path, std::string_view text);

}  // namespace tavo::tool

#endif
