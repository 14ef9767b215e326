// Any bytes as a table of sockets, read into a list that holds some already. A walk over its lines
// that compares each with every former one must find the same.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "tavoserviceconf.h"

namespace {

const RawSocketInfo kKnown = {.uPort = 80, .uState = 10, .ulInode = 1, .uProtocol = 1};

bool IsEqual(const RawSocketInfo &a, const RawSocketInfo &b) {
    return a.uPort == b.uPort && a.uState == b.uState && a.ulInode == b.ulInode &&
           a.uProtocol == b.uProtocol;
}

std::vector<RawSocketInfo> ReadPlainly(const std::string &table, std::uint16_t protocol) {
    std::vector<RawSocketInfo> sockets = {kKnown};
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        RawSocketInfo info = {};
        info.uProtocol = protocol;
        const bool is_socket =
            std::sscanf(line.c_str(),
                        "%*d: %*64[0-9A-Fa-f]:%hx %*64[0-9A-Fa-f]:%*X %X %*X:%*X %*X:%*X %*X %*d "
                        "%*d %lu ",
                        &info.uPort, &info.uState, &info.ulInode) > 2;
        if (is_socket && std::none_of(sockets.begin(), sockets.end(),
                                      [&](const auto &known) { return IsEqual(known, info); })) {
            sockets.push_back(info);
        }
    }
    return sockets;
}

// Reads the bytes from a file that has no name but this one.
void Read(const std::string &table, std::uint16_t protocol, TLIBCDList *pList) {
    const int fd = memfd_create("table", MFD_CLOEXEC);
    Require(fd >= 0 && write(fd, table.data(), table.size()) == static_cast<ssize_t>(table.size()));
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    Require(ParseToRawSocketInfo(path.c_str(), protocol, pList) == 0);
    close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string table(reinterpret_cast<const char *>(data), size);
    TLIBCDList *pList = TLIBCDListAlloc(
        [](const void *p) -> void * {
            return RawSocketInfoCopy(static_cast<const RawSocketInfo *>(p));
        },
        [](void *p) { RawSocketInfoFree(static_cast<RawSocketInfo *>(p)); });
    Require(pList != nullptr && TLIBCDListAppend(pList, &kKnown) == 0);
    const std::uint16_t protocol = size % 2 == 0 ? TAVO_PROTO_TCP : TAVO_PROTO_UDP;
    Read(table, protocol, pList);
    const TLIBCDListNode *pNode = TLIBCDListFirst(pList);
    for (const RawSocketInfo &expected : ReadPlainly(table, protocol)) {
        Require(pNode != nullptr &&
                IsEqual(*static_cast<const RawSocketInfo *>(TLIBCDListElement(pNode)), expected));
        pNode = TLIBCDListNext(pNode);
    }
    Require(pNode == nullptr);
    TLIBCDListFree(pList);
    return 0;
}
