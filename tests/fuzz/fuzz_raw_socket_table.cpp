// Any bytes as a socket table, read into a list that has entries already. A walk over its lines
// that compares each with all earlier ones must find the same.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "plain_sockets.h"
#include "tavoserviceconf.h"

namespace {

const RawSocketInfo kKnown = {.uPort = 80, .uState = 10, .ulInode = 1, .uProtocol = 1};

// Reads the bytes from a file that has only this path.
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
    std::vector<RawSocketInfo> expected = {kKnown};
    std::istringstream plain(table);
    tavo::test::AddSocketsPlainly(plain, protocol, expected);
    const TLIBCDListNode *pNode = TLIBCDListFirst(pList);
    for (const RawSocketInfo &one : expected) {
        Require(pNode != nullptr &&
                tavo::test::IsEqual(*static_cast<const RawSocketInfo *>(TLIBCDListElement(pNode)),
                                    one));
        pNode = TLIBCDListNext(pNode);
    }
    Require(pNode == nullptr);
    TLIBCDListFree(pList);
    return 0;
}
