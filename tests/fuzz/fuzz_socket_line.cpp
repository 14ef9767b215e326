// Any text as a line of a socket table. The parser must give the same result as the C library's
// formatted input.
#include <cstddef>
#include <cstdint>
#include <string>

#include "check/socket_tables.h"
#include "fuzz_support.h"
#include "plain_sockets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string line(reinterpret_cast<const char *>(data), size);
    RawSocketInfo expected = {.uPort = 7, .uState = 8, .ulInode = 9, .uProtocol = 10};
    RawSocketInfo info = expected;
    const bool is_socket = tavo::test::ReadSocketPlainly(line, expected);
    Require(tavo::ReadSocketLine(line.c_str(), info) == is_socket);
    Require(tavo::test::IsEqual(info, expected));
    return 0;
}
