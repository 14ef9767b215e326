// Parses a port number without writing a log line.
#ifndef TAVO_SRC_MODEL_PORT_TEXT_H
#define TAVO_SRC_MODEL_PORT_TEXT_H

#include <cstdint>
#include <cstdio>

namespace tavo {

// As lenient as "%hu", which is kept: text after the number is ignored, and a number that is too
// large wraps. Returns false if there is no number.
inline bool ScanPort(const char *text, uint16_t &port) {
    unsigned short number = 0;
    const bool scanned = std::sscanf(text, "%hu", &number) == 1;
    port = scanned ? number : uint16_t{0};
    return scanned;
}

}  // namespace tavo

#endif
