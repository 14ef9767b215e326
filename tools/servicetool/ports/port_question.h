// One question to the library: which of these ports does one source hold?
#ifndef TAVO_SERVICETOOL_PORTS_PORT_QUESTION_H
#define TAVO_SERVICETOOL_PORTS_PORT_QUESTION_H

#include <cstdint>
#include <string>
#include <vector>

#include "ports/port_ranges.h"

namespace tavo::tool {

// What the library leaves out of its comparison, by name.
using SkippedNames = std::vector<std::string>;

bool Skips(const SkippedNames &skipped, const std::string &name);

enum class PortVerdict { kFree, kTaken, kUnknown };

struct LibraryAnswer {
    PortVerdict verdict;
    PortRanges taken;         // a set; the sockets do not name theirs
    std::string reason = {};  // the system's part in an unknown verdict; empty where it has none
};

// Asks the source that `flag`, one of TAVO_PORT_CHECK_*, stands for about the ports of a set.
// Throws std::bad_alloc where the library is out of memory.
LibraryAnswer AskLibrary(const PortRanges &set, std::uint32_t protocols,
                         const SkippedNames &skipped, int flag);

// Whether one of `items` is a port that counts as taken whoever is asked. A range that holds such a
// port does not.
bool NamesReservedPort(const PortRanges &items);

// The one port of that kind.
inline constexpr std::uint32_t kReservedPort = 412;

}  // namespace tavo::tool

#endif
