// Lists the ports that processes currently hold.
//
// The kernel's tables list the sockets with their inodes; the descriptor links of each process give
// the inodes that it has open. The holders are collected before the sockets are listed, so that a
// process that ends in between is not reported as the holder of a free port.
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <utility>

#include "check/inode_holders.h"
#include "check/key_set.h"
#include "check/result_records.h"
#include "check/socket_tables.h"

namespace tavo {
namespace {

using Results = OwnedResults<RuntimeResults>;
using Template = TemplateRecord<RuntimeResults>;

// Initial capacity of the lists and the table.
constexpr int kCapacity = 512;

// The executables of processes. Each is read once, however many sockets the process holds. An empty
// text marks an executable that cannot be read. After a temporary error it is read again for the
// next socket.
class Programs {
  public:
    // False when out of memory; Find must not be called then.
    bool IsMade() const { return table_ != nullptr; }

    // Sets `executable` to a text that this object owns, or to null if the executable cannot be
    // read. Returns false when out of memory.
    bool Find(const char *pid_text, uint32_t pid, char *&executable) {
        executable = nullptr;
        const char *known = TLIBCSzHashGetValue(table_.get(), pid_text);
        if (known == nullptr) {
            const OwnedText program = ReadProgram(pid);
            if (!program && errno != 0 && !IsOutOfReach(errno)) {
                return errno != ENOMEM;
            }
            if (TLIBCSzHashSetValue(table_.get(), pid_text, program ? program.get() : "") != 0) {
                return false;
            }
            known = TLIBCSzHashGetValue(table_.get(), pid_text);
        }
        if (known != nullptr && *known != '\0') {
            executable = const_cast<char *>(known);
        }
        return true;
    }

  private:
    OwnedTable table_{TLIBCSzHashAlloc(kCapacity)};
};

// ---- Records, each listed once ----

using RecordKey = std::pair<uint64_t, uint64_t>;

// All fields are part of the key.
RecordKey KeyOf(const RawSocketInfo &info) {
    return {info.ulInode,
            uint64_t{info.uState} << 32 | uint64_t{info.uProtocol} << 16 | info.uPort};
}

// The program is not part of the key: a process has only one.
RecordKey KeyOf(const TAVO_RUNTIME_PORT_CONFLICT_RESULT &result) {
    return {uint64_t{result.uPid} << 32 | result.uState,
            uint64_t{result.blConflict} << 32 | uint64_t{result.uProtocol} << 16 | result.uPort};
}

template <typename Record>
KeySet::Result AddTo(KeySet &known, const Record &record) {
    const auto [first, second] = KeyOf(record);
    return known.Add(first, second);
}

// Appends the record unless it is known. Returns false when out of memory.
template <typename Record>
bool AppendNew(TLIBCDList *list, KeySet &known, const Record &record) {
    const KeySet::Result added = AddTo(known, record);
    return added == KeySet::Result::kKnown ||
           (added == KeySet::Result::kAdded && TLIBCDListAppend(list, &record) == 0);
}

// True if the list contains a record with the same key. If an argument is null, this is logged with
// its name and the result is false.
template <typename Record>
bool Contains(const Place &here, const TLIBCDList *list, const char *list_name,
              const Record *wanted, const char *wanted_name) {
    if (list == nullptr || wanted == nullptr) {
        TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "%s is undefined",
                     list == nullptr ? list_name : wanted_name);
        return false;
    }
    for (const Record &record : Records<Record>(list)) {
        if (KeyOf(record) == KeyOf(*wanted)) {
            return true;
        }
    }
    return false;
}

// ---- Tables of sockets ----

using OwnedSocket = std::unique_ptr<RawSocketInfo, FreeWith<RawSocketInfoFree>>;

// Appends the sockets of a table. `known` contains the keys of the records that are already listed.
int ParseSocketTable(const char *path, uint16_t protocol, TLIBCDList *list, KeySet &known) {
    if (!SocketTableExists(TAVO_HERE, path)) {
        return -1;
    }
    const OwnedSocket info(RawSocketInfoAlloc());
    if (!info) {
        return TAVO_FAIL_ALLOC("pInfo");
    }
    const OwnedNames lines = ReadSocketTable(TAVO_HERE, path);
    if (!lines) {
        return -1;
    }
    info->uProtocol = protocol;
    const int line_count = TLIBCSzListCount(lines.get());
    for (int i = 0; i < line_count; ++i) {
        if (ReadSocketLine(TLIBCSzListGet(lines.get(), i), *info) &&
            !AppendNew(list, known, *info)) {
            return TAVO_FAIL_ALLOC("pInfo");
        }
    }
    return 0;
}

// ---- Held ports ----

// The data that is needed to list the held ports.
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
    const int pid_count = TLIBCSzListCount(pids.get());
    for (int i = 0; i < pid_count; ++i) {
        const char *pid = TLIBCSzListGet(pids.get(), i);
        result->uPid = static_cast<uint32_t>(std::strtoul(pid, nullptr, 10));
        if (!look.programs.Find(pid, result->uPid, result->szProgram)) {
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
    RawSocketInfo *copy = RawSocketInfoAlloc();
    if (copy == nullptr) {
        TAVO_LOG("Failed to allocate RawSocketInfo");
        return nullptr;
    }
    *copy = *pInfo;
    return copy;
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
        [](const void *element) -> void * {
            return RawSocketInfoCopy(static_cast<const RawSocketInfo *>(element));
        },
        [](void *element) { RawSocketInfoFree(static_cast<RawSocketInfo *>(element)); }));
    if (!sockets) {
        TAVO_FAIL_ALLOC("pRawSocketInfoList");
        return nullptr;
    }
    tavo::KeySet known;
    for (const auto &table : tavo::kSocketTables) {
        if ((uProtocol & table.protocol) != 0 &&
            tavo::ParseSocketTable(table.path, table.protocol, sockets.get(), known) != 0) {
            TAVO_LOG("Failed to ParseToRawSocketInfo");
            return nullptr;
        }
    }
    return sockets.release();
}

TLIBCSzList *FetchPidList(void) {
    unsigned int error = 0;
    return tavo::ListPids(TAVO_HERE, error).release();
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
    holders.AddProcess(TAVO_HERE, szPid);
    holders.StoreIn(TAVO_HERE, pInodeToPidsTable);
}

// Fails rather than returning a table without some holders, because a held port would then appear
// free. Only processes that are gone, or that the caller has no permission to read, are omitted.
TLIBCSzHash *InodeToPidsTableFetch(void) {
    tavo::OwnedTable table(TLIBCSzHashAlloc(tavo::kCapacity));
    if (!table) {
        TAVO_FAIL_ALLOC("pInodeToPidsTable");
        return nullptr;
    }
    tavo::InodeHolders holders;
    if (!holders.Collect(TAVO_HERE)) {
        return nullptr;
    }
    if (!holders.StoreIn(TAVO_HERE, table.get())) {
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
    const char *value = TLIBCSzHashGetValue(pInodeToPidsTable, tavo::Decimal(ulInode).Get());
    if (value == nullptr) {
        return pids.release();
    }
    TLIBCSzList *list = pids.release();
    const int piece_count = TLIBCStrSep(value, ",", &list);
    pids.reset(list);
    if (piece_count < 1) {
        TAVO_LOG("Failed to separate string: [%s].", value);
        return nullptr;
    }
    // Every process id is followed by a comma, so the last piece is empty.
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
    const tavo::Template result(look.programs.IsMade() ? TAVORuntimePortConflictResultAlloc()
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
