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

#include "base/system_files.h"
#include "check/inode_holders.h"
#include "check/record_key.h"
#include "check/socket_line.h"
#include "support/listing.h"

namespace tavo {
namespace {

using Results = OwnedResults<RuntimeResults>;
using Template = TemplateRecord<RuntimeResults>;

// A hint for the lists and the table here.
constexpr int kCapacity = 512;

// Pushes the process's number in decimal. A failure is logged and leaves it out; false then.
bool PushPid(int nPid, OwnedNames &pids) {
    char szPid[sizeof("-2147483648")];
    std::snprintf(szPid, sizeof(szPid), "%d", nPid);
    if (!Push(pids, szPid)) {
        TAVO_LOG("Failed to TLIBCSzListPush %p %s", static_cast<void *>(pids.get()), szPid);
        return false;
    }
    return true;
}

// The names of /proc that are numbers sort in front of all others, so the first other one ends the
// walk. Without a process to be seen the list is empty. `nError` is set to 0, or to the error code
// of what kept processes out of the list.
OwnedNames ListPids(unsigned int &nError) {
    OwnedNames pids(TLIBCSzListAlloc(kCapacity));
    const Listing listing("/proc");
    nError = listing.Failed() ? ErrorOfCall(errno) : 0;
    if (!pids || nError == TLIBC_ERR_NO_MEMORY) {
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
        if (!PushPid(nPid, pids)) {
            nError = TLIBC_ERR_NO_MEMORY;
        }
    }
    return pids;
}

// Enters the sockets of a process; false, which has been logged, when that cannot be done in full.
bool AddProcess(InodeHolders &holders, const char *szPid) {
    const unsigned int nError = holders.AddProcess(szPid);
    if (nError == TLIBC_ERR_NO_MEMORY) {
        TAVO_FAIL_ALLOC("pInodeToPidsTable");
    } else if (nError != 0) {
        TAVO_FAIL(nError, "Failed to read the sockets of process %s.[0x%04X]", szPid, nError);
    }
    return nError == 0;
}

// The same for each process of the list.
bool AddProcesses(InodeHolders &holders, const TLIBCSzList *pPids) {
    const int nPids = TLIBCSzListCount(pPids);
    for (int i = 0; i < nPids; ++i) {
        const char *szPid = TLIBCSzListGet(pPids, i);
        if (szPid == nullptr) {
            TAVO_LOG("Failed to TLIBCSzListGet %p %d", static_cast<const void *>(pPids), i);
        } else if (!AddProcess(holders, szPid)) {
            return false;
        }
    }
    return true;
}

// The executable of a process; null when it cannot be read, for the reason in errno, which is 0 for
// an empty link.
OwnedText ReadProgram(uint32_t uPid) {
    char szPath[sizeof("/proc/4294967295/exe")];
    std::snprintf(szPath, sizeof(szPath), "/proc/%" PRIu32 "/exe", uPid);
    char szTarget[kLinkSize];
    errno = 0;
    const ssize_t nRead = readlink(szPath, szTarget, sizeof(szTarget) - 1);
    if (nRead < 1) {
        return nullptr;
    }
    szTarget[nRead] = '\0';
    return OwnedText(strdup(szTarget));
}

// The executables of processes, each looked up once however many sockets the process holds. An
// empty text stands for one that cannot be read. What failed for a passing reason is looked up
// again for the next socket.
class Programs {
  public:
    bool Init() {
        table_.reset(TLIBCSzHashAlloc(kCapacity));
        return table_ != nullptr;
    }

    // Sets `szProgram` to a text that this object owns, null where it cannot be read. False when
    // out of memory.
    bool Find(const char *szPid, uint32_t uPid, char *&szProgram) {
        szProgram = nullptr;
        const char *szKnown = TLIBCSzHashGetValue(table_.get(), szPid);
        if (szKnown == nullptr) {
            const OwnedText program = ReadProgram(uPid);
            if (!program && errno != 0 && !IsOutOfReach(errno)) {
                return errno != ENOMEM;
            }
            if (TLIBCSzHashSetValue(table_.get(), szPid, program ? program.get() : "") != 0) {
                return false;
            }
            szKnown = TLIBCSzHashGetValue(table_.get(), szPid);
        }
        if (szKnown != nullptr && *szKnown != '\0') {
            szProgram = const_cast<char *>(szKnown);
        }
        return true;
    }

  private:
    OwnedTable table_;
};

// ---- Tables of sockets ----

using OwnedSocket = std::unique_ptr<RawSocketInfo, FreeWith<RawSocketInfoFree>>;

// A hint for the list of lines.
constexpr int kLines = 512;

// In the order in which their sockets are listed.
constexpr struct {
    uint16_t uProtocol;
    const char *szPath;
} kSocketTables[] = {
    {TAVO_PROTO_TCP, kTcpTable},
    {TAVO_PROTO_TCP, kTcp6Table},
    {TAVO_PROTO_UDP, kUdpTable},
    {TAVO_PROTO_UDP, kUdp6Table},
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

// ---- Held ports ----

// Everything that one look at the system needs.
struct Look {
    OwnedTable holders;
    OwnedList sockets;
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
        if (!look.programs.Find(szPid, result->uPid, result->szProgram)) {
            TAVO_FAIL_ALLOC("szProgram");
            return false;
        }
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
    return tavo::Contains(TAVO_HERE, pRawSocketInfoList, "pRawSocketInfoList", pInfo, "pInfo") ? 1
                                                                                               : 0;
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

TLIBCSzList *FetchPidList(void) {
    unsigned int nError = 0;
    return tavo::ListPids(nError).release();
}

void FetchInodeFromPid(TLIBCSzHash *pInodeToPidsTable, const char *szPid) {
    if (pInodeToPidsTable == nullptr) {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "pInodeToPidsTable is undefined");
        return;
    }
    if (szPid == nullptr) {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
        return;
    }
    tavo::InodeHolders holders;
    tavo::AddProcess(holders, szPid);
    holders.StoreIn(TAVO_HERE, pInodeToPidsTable);
}

// There is no table that lacks a holder: a port that is held would read as free. Only a process
// that is gone, or that the caller has no permission to look at, is left out.
TLIBCSzHash *InodeToPidsTableFetch(void) {
    tavo::OwnedTable table(TLIBCSzHashAlloc(tavo::kCapacity));
    if (!table) {
        TAVO_FAIL_ALLOC("pInodeToPidsTable");
        return nullptr;
    }
    unsigned int nError = 0;
    const tavo::OwnedNames pids(tavo::ListPids(nError));
    if (!pids) {
        TAVO_FAIL_ALLOC("pslPidList");
        return nullptr;
    }
    if (nError != 0 && nError != TLIBC_ERR_NO_MEMORY) {
        TAVO_FAIL(nError, "Failed to list /proc.[0x%04X]", nError);
        return nullptr;
    }
    tavo::InodeHolders holders;
    if (nError == 0 && !tavo::AddProcesses(holders, pids.get())) {
        return nullptr;
    }
    if (nError != 0 || !holders.StoreIn(TAVO_HERE, table.get())) {
        TAVO_FAIL_ALLOC("pInodeToPidsTable");
        return nullptr;
    }
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
    return tavo::ReadProgram(uPid).release();
}

int ContainRuntimeResult(const TLIBCDList *pResultList,
                         const TAVO_RUNTIME_PORT_CONFLICT_RESULT *pResult) {
    return tavo::Contains(TAVO_HERE, pResultList, "pResultList", pResult, "pResult") ? 1 : 0;
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
