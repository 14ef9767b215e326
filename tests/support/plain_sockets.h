// A simple reader of the kernel's socket tables, as a reference for the library's: it uses the
// formatted input of the C library and searches a list for each socket.
#ifndef TAVO_TESTS_SUPPORT_PLAIN_SOCKETS_H
#define TAVO_TESTS_SUPPORT_PLAIN_SOCKETS_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <istream>
#include <string>
#include <vector>

#include "tavoserviceconf.h"

namespace tavo::test {

inline bool IsEqual(const RawSocketInfo &a, const RawSocketInfo &b) {
    return a.uPort == b.uPort && a.uState == b.uState && a.ulInode == b.ulInode &&
           a.uProtocol == b.uProtocol;
}

// Reads local port, state and inode. A line that is not a socket leaves the record unchanged.
inline bool ReadSocketPlainly(const std::string &line, RawSocketInfo &info) {
    RawSocketInfo read = info;
    const int fields = std::sscanf(line.c_str(),
                                   "%*d: %*64[0-9A-Fa-f]:%hx %*64[0-9A-Fa-f]:%*X %X %*X:%*X "
                                   "%*X:%*X %*X %*d %*d %lu ",
                                   &read.uPort, &read.uState, &read.ulInode);
    if (fields == 3) {
        info = read;
    }
    return fields == 3;
}

// Appends the sockets of a table that are not in the list yet.
inline void AddSocketsPlainly(std::istream &table, std::uint16_t protocol,
                              std::vector<RawSocketInfo> &sockets) {
    for (std::string line; std::getline(table, line);) {
        RawSocketInfo info = {};
        info.uProtocol = protocol;
        if (ReadSocketPlainly(line, info) &&
            std::none_of(sockets.begin(), sockets.end(),
                         [&](const RawSocketInfo &known) { return IsEqual(known, info); })) {
            sockets.push_back(info);
        }
    }
}

}  // namespace tavo::test

#endif
