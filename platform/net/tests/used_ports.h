// Calls of TAVONetGetPortUsedInRange, and common helpers of the tests.
#ifndef TAVO_PLATFORM_NET_TESTS_USED_PORTS_H
#define TAVO_PLATFORM_NET_TESTS_USED_PORTS_H

#include <gmock/gmock.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "tavocore.h"
#include "tavonet.h"

namespace tavo::test {

enum Transport { kUdp = 0, kTcp = 1 };

// The ports in use of a range within 0..65535; one extra slot detects a write past the end.
inline std::vector<int> UsedPorts(Transport transport, int low = 1, int high = 65535) {
    constexpr int kUntouched = -7;
    std::vector<int> slots(static_cast<std::size_t>(high - low) + 2, kUntouched);
    int count = 0;
    EXPECT_EQ(TAVONetGetPortUsedInRange(slots.data(), &count, low, high, transport), 0);
    EXPECT_LE(count, high - low + 1);
    EXPECT_EQ(slots.at(static_cast<std::size_t>(count)), kUntouched);
    slots.resize(static_cast<std::size_t>(count));
    return slots;
}

// The recorded error as "0xD00 used_ports.cpp"; "0x0 " for none.
inline std::string RecordedError() {
    char code[16];
    std::snprintf(code, sizeof(code), "0x%X ", TLIBCErrGet());
    return code + std::string(TLIBCErrorGetFile());
}

inline std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace tavo::test

#endif
