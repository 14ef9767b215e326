// The ports that processes hold right now.
//
// The kernel's tables tell which sockets there are, with their inodes; the descriptor links of each
// process tell which inodes it has open. Who holds the sockets is found out before the sockets are
// listed, so that a process that ends meanwhile is not blamed for a port that is free.
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "check/inode_holders.h"
#include "check/key_set.h"
#include "check/result_records.h"
#include "check/socket_line.h"
#include "support/listing.h"

namespace tavo {
namespace {

using OwnedSocket = std::unique_ptr<RawSocketInfo, FreeWith<RawSocketInfoFree>>;
using OwnedSockets = std::unique_ptr<TLIBCDList, FreeWith<TLIBCDListFree>>;
using Results = OwnedResults<RuntimeResults>;
using Template = TemplateRecord<RuntimeResults>;
using Result = RuntimeResults::Record;

// A hint for the lists and the table here.
constexpr int kCapacity = 512;

constexpr std::size_t kLinkSize = 1024;

constexpr unsigned int kErrorCannotOpen = 0x900;

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

bool IsEqual(const RawSocketInfo &a, const RawSocketInfo &b) {
    return a.uPort == b.uPort && a.uState == b.uState && a.uProtocol == b.uProtocol &&
           a.ulInode == b.ulInode;
}

bool IsEqual(const Result &a, const Result &b) {
    return a.blConflict == b.blConflict && a.uPort == b.uPort && a.uProtocol == b.uProtocol &&
           a.uPid == b.uPid && a.uState == b.uState;
}

// The sets below hold exactly what IsEqual compares.

constexpr uint64_t PortAndProtocol(uint16_t uPort, uint16_t uProtocol) {
    return uint64_t{uProtocol} << 16 | uPort;
}

KeySet::Result AddTo(KeySet &known, const RawSocketInfo &info) {
    return known.Add(info.ulInode,
                     uint64_t{info.uState} << 32 | PortAndProtocol(info.uPort, info.uProtocol));
}

// Of records with blConflict 1.
KeySet::Result AddTo(KeySet &known, const Result &result) {
    return known.Add(uint64_t{result.uPid} << 32 | result.uState,
                     PortAndProtocol(result.uPort, result.uProtocol));
}

// Appends the record unless one like it is known; false when out of memory.
template <typename Record>
bool AppendNew(TLIBCDList *pList, KeySet &known, const Record &record) {
    const KeySet::Result added = AddTo(known, record);
    return added == KeySet::Result::kKnown ||
           (added == KeySet::Result::kAdded && TLIBCDListAppend(pList, &record) == 0);
}

// The lines of a table of sockets; null on failure.
OwnedNames ReadSocketTable(const char *szPath) {
    TLIBCSzList *pLines = TLIBCSzListAlloc(kCapacity);
    if (pLines == nullptr) {
        TAVO_FAIL_ALLOC("pNetRecords");
        return nullptr;
    }
    const int nRead = TLIBCFileReadLines(szPath, &pLines);
    OwnedNames lines(pLines);
    if (nRead >= 0) {
        return lines;
    }
    if (TLIBCErrGet() == kErrorCannotOpen) {
        TAVO_LOG("Failed to open File: %s\n", szPath);
    } else {
        TAVO_LOG("Failed to parse File: %s.[0x%04X]", szPath, TLIBCErrGet());
    }
    return nullptr;
}

// What `known` holds is in the list already.
int ParseSocketTable(const char *szPath, uint16_t uProtocol, TLIBCDList *pList, KeySet &known) {
    if (szPath == nullptr || TLIBCFileExist(szPath) == 0) {
        return TAVO_FAIL(szPath == nullptr ? kErrorBadParameter : kErrorNoFile,
                         "Failed to access File: %s (Not Exist)",
                         szPath == nullptr ? "(null)" : szPath);
    }
    const OwnedSocket info(RawSocketInfoAlloc());
    if (!info) {
        return TAVO_FAIL_ALLOC("pInfo");
    }
    const OwnedNames lines(ReadSocketTable(szPath));
    if (!lines) {
        return Failed();
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

// Pushes the process's number in decimal; a failure is logged and leaves it out.
void PushPid(int nPid, OwnedNames &pids) {
    char szPid[sizeof("-2147483648")];
    std::snprintf(szPid, sizeof(szPid), "%d", nPid);
    TLIBCSzList *pPids = pids.release();
    const int nPushed = TLIBCSzListPush(&pPids, szPid);
    pids.reset(pPids);
    if (nPushed < 0) {
        TAVO_LOG("Failed to TLIBCSzListPush %p %s", static_cast<void *>(pPids), szPid);
    }
}

// The executables of processes, each looked up once however many sockets the process holds. An
// empty text stands for one that cannot be read.
class Programs {
  public:
    bool Init() {
        table_.reset(TLIBCSzHashAlloc(kCapacity));
        return table_ != nullptr;
    }

    // Owned by this object; null where it cannot be read.
    char *Of(const char *szPid, uint32_t uPid) {
        const char *szKnown = TLIBCSzHashGetValue(table_.get(), szPid);
        if (szKnown == nullptr) {
            const OwnedText program(ProgramCommandFetch(uPid));
            TLIBCSzHashSetValue(table_.get(), szPid, program ? program.get() : "");
            szKnown = TLIBCSzHashGetValue(table_.get(), szPid);
        }
        return szKnown == nullptr || *szKnown == '\0' ? nullptr : const_cast<char *>(szKnown);
    }

  private:
    OwnedTable table_;
};

// Everything that one look at the system needs.
struct Look {
    OwnedTable holders;
    OwnedSockets sockets;
    Programs programs;
    KeySet known;
};

bool AppendHolders(const RawSocketInfo &socket, const Results &results, const Template &result,
                   Look &look) {
    const OwnedNames pids(InodeToPidsGet(look.holders.get(), socket.ulInode));
    if (!pids) {
        TAVO_LOG("Failed to map inode[%" PRIu64 "] to pid", socket.ulInode);
        return false;
    }
    result->uPort = socket.uPort;
    result->uProtocol = socket.uProtocol;
    result->uState = socket.uState;
    const int nPids = TLIBCSzListCount(pids.get());
    for (int i = 0; i < nPids; ++i) {
        const char *szPid = TLIBCSzListGet(pids.get(), i);
        result->uPid = static_cast<uint32_t>(std::strtoul(szPid, nullptr, 10));
        result->szProgram = look.programs.Of(szPid, result->uPid);
        if (!AppendNew(results.get(), look.known, *result)) {
            TAVO_FAIL_ALLOC("pResult");
            return false;
        }
    }
    return true;
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
    if (pRawSocketInfoList == nullptr) {
        TAVO_FAIL(tavo::kErrorBadParameter, "pRawSocketInfoList is undefined");
        return 0;
    }
    if (pInfo == nullptr) {
        TAVO_FAIL(tavo::kErrorBadParameter, "pInfo is undefined");
        return 0;
    }
    for (const RawSocketInfo &info : tavo::Records<RawSocketInfo>(pRawSocketInfoList)) {
        if (tavo::IsEqual(info, *pInfo)) {
            return 1;
        }
    }
    return 0;
}

int ParseToRawSocketInfo(const char *szPath, uint16_t uProtocol, TLIBCDList *pRawSocketInfoList) {
    if (pRawSocketInfoList == nullptr) {
        return TAVO_FAIL(tavo::kErrorBadParameter, "pRawSocketInfoList is undefined");
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
        TAVO_FAIL(tavo::kErrorBadParameter, "Illegal protocol: %u", unsigned{uProtocol});
        return nullptr;
    }
    tavo::OwnedSockets sockets(TLIBCDListAlloc(
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

// The names that are numbers sort in front of all others, so the first other one ends the walk.
// Without a process to be seen the list is empty.
TLIBCSzList *FetchPidList(void) {
    tavo::OwnedNames pids(TLIBCSzListAlloc(tavo::kCapacity));
    if (!pids) {
        TAVO_FAIL_ALLOC("pslPidList");
        return nullptr;
    }
    const tavo::Listing listing("/proc");
    if (listing.Failed() && errno == ENOMEM) {
        TAVO_FAIL_ALLOC("pslPidList");
        return nullptr;
    }
    for (const dirent *pEntry : listing) {
        int nPid = 0;
        if (pEntry->d_name[0] == '.') {
            continue;
        }
        if (std::sscanf(pEntry->d_name, "%d", &nPid) != 1) {
            break;
        }
        tavo::PushPid(nPid, pids);
    }
    return pids.release();
}

void FetchInodeFromPid(TLIBCSzHash *pInodeToPidsTable, const char *szPid) {
    if (pInodeToPidsTable == nullptr) {
        TAVO_FAIL(tavo::kErrorBadParameter, "pInodeToPidsTable is undefined");
        return;
    }
    if (szPid == nullptr) {
        TAVO_SET_ERROR(tavo::kErrorBadParameter);
        return;
    }
    tavo::InodeHolders holders;
    if (!holders.AddProcess(szPid)) {
        TAVO_FAIL_ALLOC("pInodeToPidsTable");
    }
    holders.StoreIn(pInodeToPidsTable);
}

TLIBCSzHash *InodeToPidsTableFetch(void) {
    tavo::OwnedTable table(TLIBCSzHashAlloc(tavo::kCapacity));
    if (!table) {
        TAVO_FAIL_ALLOC("pInodeToPidsTable");
        return nullptr;
    }
    const tavo::OwnedNames pids(FetchPidList());
    if (!pids) {
        TAVO_FAIL_ALLOC("pslPidList");
        return nullptr;
    }
    tavo::InodeHolders holders;
    const int nPids = TLIBCSzListCount(pids.get());
    for (int i = 0; i < nPids; ++i) {
        const char *szPid = TLIBCSzListGet(pids.get(), i);
        if (szPid == nullptr) {
            TAVO_LOG("Failed to TLIBCSzListGet %p %d", static_cast<void *>(pids.get()), i);
        } else if (!holders.AddProcess(szPid)) {
            TAVO_FAIL_ALLOC("pInodeToPidsTable");
            return nullptr;
        }
    }
    holders.StoreIn(table.get());
    return table.release();
}

TLIBCSzList *InodeToPidsGet(const TLIBCSzHash *pInodeToPidsTable, uint64_t ulInode) {
    tavo::OwnedNames pids(TLIBCSzListAlloc(tavo::kCapacity));
    if (!pids) {
        TAVO_FAIL_ALLOC("pPidList");
        return nullptr;
    }
    const char *szValue = TLIBCSzHashGetValue(pInodeToPidsTable, tavo::InodeKey(ulInode).Get());
    if (szValue == nullptr) {
        return pids.release();
    }
    TLIBCSzList *pPids = pids.release();
    const int nPieces = TLIBCStrSep(szValue, ",", &pPids);
    pids.reset(pPids);
    if (nPieces < 1) {
        TAVO_LOG("Failed to separate string: [%s].", szValue);
        return nullptr;
    }
    // Every number has a comma behind it, so the last piece is empty.
    TLIBCSzListRemove(pids.get(), TLIBCSzListCount(pids.get()) - 1);
    return pids.release();
}

char *ProgramCommandFetch(uint32_t uPid) {
    char szPath[sizeof("/proc/4294967295/exe")];
    std::snprintf(szPath, sizeof(szPath), "/proc/%" PRIu32 "/exe", uPid);
    char szTarget[tavo::kLinkSize];
    const ssize_t nRead = readlink(szPath, szTarget, sizeof(szTarget) - 1);
    if (nRead < 1) {
        return nullptr;
    }
    szTarget[nRead] = '\0';
    return strdup(szTarget);
}

int ContainRuntimeResult(const TLIBCDList *pResultList,
                         const TAVO_RUNTIME_PORT_CONFLICT_RESULT *pResult) {
    if (pResultList == nullptr) {
        TAVO_FAIL(tavo::kErrorBadParameter, "pResultList is undefined");
        return 0;
    }
    if (pResult == nullptr) {
        TAVO_FAIL(tavo::kErrorBadParameter, "pResult is undefined");
        return 0;
    }
    for (const tavo::Result &result : tavo::Records<tavo::Result>(pResultList)) {
        if (tavo::IsEqual(result, *pResult)) {
            return 1;
        }
    }
    return 0;
}

TLIBCDList *RuntimeServiceListFetch(void) {
    tavo::Results results(TAVORuntimePortConflictResultListAlloc());
    if (!results) {
        TAVO_FAIL_ALLOC("pResultList");
        return nullptr;
    }
    tavo::Look look;
    const tavo::Template result(look.programs.Init() ? TAVORuntimePortConflictResultAlloc()
                                                     : nullptr);
    if (!result) {
        TAVO_FAIL_ALLOC("pResult");
        return nullptr;
    }
    result->blConflict = 1;
    look.holders.reset(InodeToPidsTableFetch());
    if (!look.holders) {
        TAVO_LOG("Failed to InodeToPidsTableFetch");
        return nullptr;
    }
    look.sockets.reset(RawSocketInfoListFetch(TAVO_PROTO_BOTH));
    if (!look.sockets) {
        TAVO_LOG("Failed to RawSocketInfoListFetch");
        return nullptr;
    }
    for (const RawSocketInfo &socket : tavo::Records<RawSocketInfo>(look.sockets.get())) {
        if (!tavo::AppendHolders(socket, results, result, look)) {
            return nullptr;
        }
    }
    return results.release();
}
