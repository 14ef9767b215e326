// Any text as a line of a table of sockets. The reader must make of it what the C library's own
// formatted reading makes of it.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "check/socket_line.h"
#include "fuzz_support.h"

namespace {

constexpr RawSocketInfo kUntouched = {.uPort = 7, .uState = 8, .ulInode = 9, .uProtocol = 10};

bool IsEqual(const RawSocketInfo &a, const RawSocketInfo &b) {
    return a.uPort == b.uPort && a.uState == b.uState && a.ulInode == b.ulInode &&
           a.uProtocol == b.uProtocol;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string line(reinterpret_cast<const char *>(data), size);
    RawSocketInfo expected = kUntouched;
    const bool is_socket =
        std::sscanf(line.c_str(),
                    "%*d: %*64[0-9A-Fa-f]:%hx %*64[0-9A-Fa-f]:%*X %X %*X:%*X %*X:%*X %*X %*d %*d "
                    "%lu ",
                    &expected.uPort, &expected.uState, &expected.ulInode) > 2;
    RawSocketInfo info = kUntouched;
    Require(tavo::ReadSocketLine(line.c_str(), info) == is_socket);
    Require(IsEqual(info, is_socket ? expected : kUntouched));
    return 0;
}
