// Any bytes as a table of /proc/net. A walk over lines and words of the whole table must find the
// same ports as the reader, which reads it in pieces.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "socket_tables.h"

namespace {

// The reader ignores lines that fill its buffer.
constexpr std::size_t kLongestLine = 8191;

std::vector<std::string> Split(const std::string &text, const std::string &separators) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (separators.find(c) != std::string::npos) {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    return pieces;
}

bool IsHex(const std::string &text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

bool IsEndpoint(const std::string &word) {
    const std::vector<std::string> parts = Split(word, ":");
    return parts.size() == 2 && (parts[0].size() == 8 || parts[0].size() == 32) &&
           parts[1].size() == 4 && IsHex(parts[0]) && IsHex(parts[1]);
}

void MarkLine(const std::string &line, tavo::PortSet &ports) {
    std::vector<std::string> words = Split(line, " \t");
    words.erase(std::remove(words.begin(), words.end(), ""), words.end());
    if (line.size() <= kLongestLine && words.size() >= 4 && words[0].back() == ':' &&
        IsEndpoint(words[1]) && IsEndpoint(words[2]) && words[3].size() == 2 && IsHex(words[3]) &&
        words[3] != "06") {
        ports[std::strtoul(Split(words[1], ":")[1].c_str(), nullptr, 16)] = true;
    }
}

// The result of the reader for the bytes, in a file that has only this path.
tavo::PortSet Read(const std::uint8_t *data, std::size_t size) {
    const int fd = memfd_create("table", MFD_CLOEXEC);
    Require(fd >= 0 && write(fd, data, size) == static_cast<ssize_t>(size));
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    tavo::PortSet ports;
    Require(tavo::ReadSocketTables({path.c_str(), "/absent"}, ports));
    close(fd);
    return ports;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    tavo::PortSet expected;
    for (const std::string &line :
         Split(std::string(reinterpret_cast<const char *>(data), size), "\n")) {
        MarkLine(line, expected);
    }
    Require(Read(data, size) == expected);
    return 0;
}
