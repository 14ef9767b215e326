// Reading the kernel's tables of sockets: which ports there are, in which state, and the inodes by
// which the processes that hold them are found.
#include "check/record_key.h"
#include "check/socket_line.h"

namespace tavo {
namespace {

using OwnedSocket = std::unique_ptr<RawSocketInfo, FreeWith<RawSocketInfoFree>>;

// A hint for the list of lines.
constexpr int kLines = 512;

// In the order in which their sockets are listed.
constexpr struct {
    uint16_t uProtocol;
    const char *szPath;
} kSocketTables[] = {
    {TAVO_PROTO_TCP, "/proc/net/tcp"},
    {TAVO_PROTO_TCP, "/proc/net/tcp6"},
    {TAVO_PROTO_UDP, "/proc/net/udp"},
    {TAVO_PROTO_UDP, "/proc/net/udp6"},
};

// The lines of a table of sockets; null on failure.
OwnedNames ReadSocketTable(const char *szPath) {
    TLIBCSzList *pLines = TLIBCSzListAlloc(kLines);
    if (pLines == nullptr) {
        TAVO_FAIL_ALLOC("pNetRecords");
        return nullptr;
    }
    const int nRead = TLIBCFileReadLines(szPath, &pLines);
    OwnedNames lines(pLines);
    if (nRead >= 0) {
        return lines;
    }
    if (TLIBCErrGet() == TLIBC_ERR_FILE_UNUSABLE) {
        TAVO_LOG("Failed to open File: %s\n", szPath);
    } else {
        TAVO_LOG("Failed to parse File: %s.[0x%04X]", szPath, TLIBCErrGet());
    }
    return nullptr;
}

// What `known` holds is in the list already.
int ParseSocketTable(const char *szPath, uint16_t uProtocol, TLIBCDList *pList, KeySet &known) {
    if (szPath == nullptr || TLIBCFileExist(szPath) == 0) {
        return TAVO_FAIL(szPath == nullptr ? TLIBC_ERR_BAD_PARAMETER : TLIBC_ERR_NO_FILE,
                         "Failed to access File: %s (Not Exist)",
                         szPath == nullptr ? "(null)" : szPath);
    }
    const OwnedSocket info(RawSocketInfoAlloc());
    if (!info) {
        return TAVO_FAIL_ALLOC("pInfo");
    }
    const OwnedNames lines(ReadSocketTable(szPath));
    if (!lines) {
        return -1;
    }
    info->uProtocol = uProtocol;
    const int nLines = TLIBCSzListCount(lines.get());
    for (int i = 0; i < nLines; ++i) {
        if (ReadSocketLine(TLIBCSzListGet(lines.get(), i), *info) &&
            !AppendNew(pList, known, *info)) {
            return TAVO_FAIL_ALLOC("pInfo");
        }
    }
    return 0;
}

}  // namespace
}  // namespace tavo

RawSocketInfo *RawSocketInfoAlloc(void) {
    return static_cast<RawSocketInfo *>(std::calloc(1, sizeof(RawSocketInfo)));
}

void RawSocketInfoFree(RawSocketInfo *pInfo) {
    std::free(pInfo);
}

RawSocketInfo *RawSocketInfoCopy(const RawSocketInfo *pInfo) {
    RawSocketInfo *pCopy = RawSocketInfoAlloc();
    if (pCopy == nullptr) {
        TAVO_LOG("Failed to allocate RawSocketInfo");
        return nullptr;
    }
    *pCopy = *pInfo;
    return pCopy;
}

int ContainRawSocketInfo(const TLIBCDList *pRawSocketInfoList, const RawSocketInfo *pInfo) {
    return tavo::Contains(pRawSocketInfoList, "pRawSocketInfoList", pInfo, "pInfo") ? 1 : 0;
}

int ParseToRawSocketInfo(const char *szPath, uint16_t uProtocol, TLIBCDList *pRawSocketInfoList) {
    if (pRawSocketInfoList == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "pRawSocketInfoList is undefined");
    }
    tavo::KeySet known;
    for (const RawSocketInfo &info : tavo::Records<RawSocketInfo>(pRawSocketInfoList)) {
        if (tavo::AddTo(known, info) == tavo::KeySet::Result::kNoMemory) {
            return TAVO_FAIL_ALLOC("pInfo");
        }
    }
    return tavo::ParseSocketTable(szPath, uProtocol, pRawSocketInfoList, known);
}

TLIBCDList *RawSocketInfoListFetch(uint16_t uProtocol) {
    if (!IsLegalProtocol(uProtocol)) {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Illegal protocol: %u", unsigned{uProtocol});
        return nullptr;
    }
    tavo::OwnedList sockets(TLIBCDListAlloc(
        [](const void *pElement) -> void * {
            return RawSocketInfoCopy(static_cast<const RawSocketInfo *>(pElement));
        },
        [](void *pElement) { RawSocketInfoFree(static_cast<RawSocketInfo *>(pElement)); }));
    if (!sockets) {
        TAVO_FAIL_ALLOC("pRawSocketInfoList");
        return nullptr;
    }
    tavo::KeySet known;
    for (const auto &table : tavo::kSocketTables) {
        if ((uProtocol & table.uProtocol) != 0 &&
            tavo::ParseSocketTable(table.szPath, table.uProtocol, sockets.get(), known) != 0) {
            TAVO_LOG("Failed to ParseToRawSocketInfo");
            return nullptr;
        }
    }
    return sockets.release();
}
