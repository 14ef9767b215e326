// The sockets of a process are links in its descriptor folder that read "socket:[INODE]" (proc(5)).
// The links are read and never followed, since a target may be on a mount that does not respond.
#include "check/inode_holders.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "base/owners.h"
#include "support/listing.h"
#include "support/text.h"

namespace tavo {
namespace {

constexpr std::size_t kFolderPathSize = 1024;

// Buffer size for a value in a log line. A longer value is truncated.
constexpr std::size_t kShownValueSize = 1024;

// Reads the number after `szPrefix` as "%lu" does. Returns false if the text has another form.
bool NumberAfter(const char *szPrefix, const char *szText, uint64_t &nNumber) {
    const std::size_t nLength = std::strlen(szPrefix);
    if (std::strncmp(szText, szPrefix, nLength) != 0) {
        return false;
    }
    char *szEnd = nullptr;
    nNumber = std::strtoul(szText + nLength, &szEnd, 10);
    return szEnd != szText + nLength;
}

// The form is "socket:[8123]", or "[0000]:8123" in kernels before 2.6.
bool InodeOfLink(const char *szTarget, uint64_t &ulInode) {
    return NumberAfter("socket:[", szTarget, ulInode) || NumberAfter("[0000]:", szTarget, ulInode);
}

// The error code for a failed system call on a process; 0 if the process is gone or not accessible.
unsigned int FaultOf(int nError) {
    return IsOutOfReach(nError) ? 0 : ErrorOfCall(nError);
}

}  // namespace

// Returns 0, or the error code if the sockets of the process could not be read.
unsigned int InodeHolders::AddDescriptors(const char *szPid) {
    char szPath[kFolderPathSize];
    const int nLength = std::snprintf(szPath, sizeof(szPath), "/proc/%s/fd", szPid);
    if (nLength < 0 || static_cast<std::size_t>(nLength) >= sizeof(szPath)) {
        return 0;
    }
    const int nFolder = open(szPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const OwnedFolder folder(nFolder < 0 ? nullptr : fdopendir(nFolder));
    if (!folder) {
        const unsigned int nError = FaultOf(errno);
        if (nFolder >= 0) {
            close(nFolder);
        }
        return nError;
    }
    unsigned int nFirstError = 0;
    for (;;) {
        errno = 0;  // readdir does not set it at the end of the folder
        const dirent *pEntry = readdir(folder.get());
        if (pEntry == nullptr) {
            const unsigned int nError = errno == 0 ? 0 : FaultOf(errno);
            return nFirstError != 0 ? nFirstError : nError;
        }
        if (pEntry->d_name[0] == '.') {
            continue;  // "." and ".." are not descriptors
        }
        // A link that cannot be read is skipped, and the remaining links are added.
        const unsigned int nError = AddLink(nFolder, pEntry->d_name, szPid);
        if (nError == TLIBC_ERR_NO_MEMORY) {
            return nError;
        }
        nFirstError = nFirstError != 0 ? nFirstError : nError;
    }
}

unsigned int InodeHolders::AddLink(int nFolder, const char *szName, const char *szPid) {
    char szTarget[kLinkSize];
    const ssize_t nRead = readlinkat(nFolder, szName, szTarget, kLinkSize - 1);
    if (nRead < 0) {
        return errno == EINVAL ? 0 : FaultOf(errno);  // EINVAL: not a link
    }
    szTarget[nRead] = '\0';
    uint64_t ulInode = 0;
    return InodeOfLink(szTarget, ulInode) && !Add(ulInode, szPid) ? TLIBC_ERR_NO_MEMORY : 0;
}

bool InodeHolders::Add(uint64_t ulInode, const char *szPid) {
    std::size_t nPlace = 0;
    const KeySet::Result added = numbers_.Add(ulInode, 0, &nPlace);
    if (added == KeySet::Result::kNoMemory) {
        return false;
    }
    const bool known = added == KeySet::Result::kKnown;
    // The holder is appended first, so that an inode without a holder is never added.
    if (!holders_.Append({szPid, known ? inodes_[nPlace].nLastHolder : kNone}) ||
        (!known && !inodes_.Append({ulInode, kNone, 0}))) {
        return false;
    }
    Inode &inode = inodes_[nPlace];
    inode.nLastHolder = holders_.Count() - 1;
    inode.nTextLength += std::strlen(szPid) + 1;
    return true;
}

bool InodeHolders::StoreIn(const Place &here, TLIBCSzHash *pInodeToPidsTable) const {
    bool stored = true;
    for (const Inode &inode : inodes_) {
        stored = Store(here, inode, pInodeToPidsTable) && stored;
    }
    return stored;
}

bool InodeHolders::Store(const Place &here, const Inode &inode,
                         TLIBCSzHash *pInodeToPidsTable) const {
    const Decimal key(inode.ulInode);
    const char *szStored = TLIBCSzHashGetValue(pInodeToPidsTable, key.Get());
    const char *szKnown = szStored == nullptr ? "" : szStored;
    const std::size_t nSize = inode.nTextLength + std::strlen(szKnown) + 1;
    const OwnedText value(static_cast<char *>(std::malloc(nSize)));
    if (value) {
        PrintValue(inode, szKnown, value.get(), nSize);
        if (TLIBCSzHashSetValue(pInodeToPidsTable, key.Get(), value.get()) == 0) {
            return true;
        }
    }
    char szShown[kShownValueSize];
    PrintValue(inode, szKnown, szShown, sizeof(szShown));
    TAVO_FAIL_AT(here, TLIBC_ERR_NO_MEMORY, "Failed to update (%s, %s) inode-to-pids table.",
                 key.Get(), szShown);
    return false;
}

// Prints the holders, each followed by a comma, and then the current value of the table, truncated
// to the buffer.
void InodeHolders::PrintValue(const Inode &inode, const char *szKnown, char *szBuf,
                              std::size_t nSize) const {
    const auto print = [&](const char *szText) {
        const std::size_t nLength = std::min(std::strlen(szText), nSize - 1);
        szBuf = static_cast<char *>(mempcpy(szBuf, szText, nLength));
        nSize -= nLength;
    };
    for (std::size_t i = inode.nLastHolder; i != kNone && nSize > 1; i = holders_[i].nBefore) {
        print(holders_[i].szPid);
        print(",");
    }
    print(szKnown);
    *szBuf = '\0';
}

// ---- All processes ----

// In /proc, names that are numbers sort before all others, so the loop ends at the first other
// name.
OwnedNames ListPids(const Place &here, unsigned int &error) {
    constexpr int kProcesses = 512;  // initial capacity
    OwnedNames pids(TLIBCSzListAlloc(kProcesses));
    const Listing listing("/proc");
    error = listing.Failed() ? ErrorOfCall(errno) : 0;
    if (!pids || error == TLIBC_ERR_NO_MEMORY) {
        TAVO_FAIL_ALLOC_AT(here, "pslPidList");
        return nullptr;
    }
    for (const dirent *entry : listing) {
        int pid = 0;
        if (entry->d_name[0] == '.') {
            continue;
        }
        if (std::sscanf(entry->d_name, "%d", &pid) != 1) {
            break;
        }
        char text[sizeof("-2147483648")];
        std::snprintf(text, sizeof(text), "%d", pid);
        if (!Push(pids, text)) {
            TAVO_LOG_AT(here, "Failed to TLIBCSzListPush %p %s", static_cast<void *>(pids.get()),
                        text);
            error = TLIBC_ERR_NO_MEMORY;
        }
    }
    return pids;
}

bool InodeHolders::AddProcess(const Place &here, const char *szPid) {
    const unsigned int error = AddDescriptors(szPid);
    if (error == TLIBC_ERR_NO_MEMORY) {
        TAVO_FAIL_ALLOC_AT(here, "pInodeToPidsTable");
    } else if (error != 0) {
        TAVO_FAIL_AT(here, error, "Failed to read the sockets of process %s.[0x%04X]", szPid,
                     error);
    }
    return error == 0;
}

bool InodeHolders::Collect(const Place &here) {
    unsigned int error = 0;
    pids_ = ListPids(here, error);
    if (!pids_) {
        TAVO_FAIL_ALLOC_AT(here, "pslPidList");
        return false;
    }
    if (error == TLIBC_ERR_NO_MEMORY) {
        TAVO_FAIL_ALLOC_AT(here, "pInodeToPidsTable");
        return false;
    }
    if (error != 0) {
        TAVO_FAIL_AT(here, error, "Failed to list /proc.[0x%04X]", error);
        return false;
    }
    const int count = TLIBCSzListCount(pids_.get());
    for (int i = 0; i < count; ++i) {
        const char *pid = TLIBCSzListGet(pids_.get(), i);
        if (pid == nullptr) {
            TAVO_LOG_AT(here, "Failed to TLIBCSzListGet %p %d",
                        static_cast<const void *>(pids_.get()), i);
        } else if (!AddProcess(here, pid)) {
            return false;
        }
    }
    return true;
}

OwnedText ReadProgram(uint32_t pid) {
    char path[sizeof("/proc/4294967295/exe")];
    std::snprintf(path, sizeof(path), "/proc/%" PRIu32 "/exe", pid);
    char target[kLinkSize];
    errno = 0;
    const ssize_t length = readlink(path, target, sizeof(target) - 1);
    if (length < 1) {
        return nullptr;
    }
    target[length] = '\0';
    return OwnedText(strdup(target));
}

}  // namespace tavo
