// Port numbers: sets of them, and parsing one without writing a log line.
#ifndef TAVO_SRC_MODEL_PORT_TEXT_H
#define TAVO_SRC_MODEL_PORT_TEXT_H

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/ports.h"

namespace tavo {

// A set of ports by number, so that a list need not be searched for each port.
using PortSet = std::bitset<kPortCount>;

// Reads a port number that is digits and nothing else; false for any other text. The number is the
// low 32 bits of what strtol returns, and kept so: "4294967376" has always been port 80.
inline bool ReadPortNumber(const char *text, uint32_t &port) {
    constexpr std::ptrdiff_t kFewDigits = 9;  // their value fits in 32 bits
    const char *end = text;
    uint32_t value = 0;
    for (; *end >= '0' && *end <= '9'; ++end) {
        value = value * 10 + static_cast<uint32_t>(*end - '0');
    }
    if (end - text > kFewDigits) {
        value = static_cast<uint32_t>(std::strtol(text, nullptr, 10));
    }
    port = value;
    return end != text && *end == '\0' && value <= kHighestPort;
}

// As lenient as "%hu", which is kept: text after the number is ignored, and a number that is too
// large wraps. Returns false if there is no number.
inline bool ScanPort(const char *text, uint16_t &port) {
    // The usual text is read without sscanf, which takes ten times as long.
    uint32_t digits = 0;
    if (ReadPortNumber(text, digits)) {
        port = static_cast<uint16_t>(digits);
        return true;
    }
    unsigned short number = 0;
    const bool scanned = std::sscanf(text, "%hu", &number) == 1;
    port = scanned ? number : uint16_t{0};
    return scanned;
}

}  // namespace tavo

#endif
