// A process's sockets are links in its descriptor folder that read "socket:[INODE]" (proc(5)). They
// are read from the folder's descriptor and never followed: the target of a descriptor may lie on a
// mount that does not answer.
#include "check/inode_holders.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/failure.h"

namespace tavo {
namespace {

constexpr std::size_t kFolderPathSize = 1024;

using Folder = std::unique_ptr<DIR, FreeWith<closedir>>;

// The number behind `szPrefix`, as "%lu" reads it; false where the text is another one.
bool NumberBehind(const char *szPrefix, const char *szText, uint64_t &nNumber) {
    const std::size_t nLength = std::strlen(szPrefix);
    if (std::strncmp(szText, szPrefix, nLength) != 0) {
        return false;
    }
    char *szEnd = nullptr;
    nNumber = std::strtoul(szText + nLength, &szEnd, 10);
    return szEnd != szText + nLength;
}

// "socket:[8123]", in kernels before 2.6 "[0000]:8123".
bool InodeOfLink(const char *szTarget, uint64_t &ulInode) {
    return NumberBehind("socket:[", szTarget, ulInode) ||
           NumberBehind("[0000]:", szTarget, ulInode);
}

bool ReadLink(int nFolder, const char *szName, char (&szTarget)[kLinkSize]) {
    const ssize_t nRead = readlinkat(nFolder, szName, szTarget, kLinkSize - 1);
    if (nRead < 0) {
        return false;
    }
    szTarget[nRead] = '\0';
    return true;
}

}  // namespace

bool InodeHolders::AddProcess(const char *szPid) {
    char szPath[kFolderPathSize];
    const int nLength = std::snprintf(szPath, sizeof(szPath), "/proc/%s/fd", szPid);
    if (nLength < 0 || static_cast<std::size_t>(nLength) >= sizeof(szPath)) {
        return true;
    }
    const int nFolder = open(szPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return nFolder < 0 ? errno != ENOMEM : AddDescriptors(nFolder, szPid);
}

bool InodeHolders::AddDescriptors(int nFolder, const char *szPid) {
    const Folder folder(fdopendir(nFolder));
    if (!folder) {
        const bool out_of_memory = errno == ENOMEM;
        close(nFolder);
        return !out_of_memory;
    }
    while (const dirent *pEntry = readdir(folder.get())) {
        char szTarget[kLinkSize];
        uint64_t ulInode = 0;
        // "." and ".." are no descriptors.
        if (pEntry->d_name[0] != '.' && ReadLink(nFolder, pEntry->d_name, szTarget) &&
            InodeOfLink(szTarget, ulInode) && !Add(ulInode, szPid)) {
            return false;
        }
    }
    return true;
}

bool InodeHolders::Add(uint64_t ulInode, const char *szPid) {
    std::size_t nPlace = 0;
    const KeySet::Result added = numbers_.Add(ulInode, 0, &nPlace);
    if (added == KeySet::Result::kNoMemory) {
        return false;
    }
    const bool known = added == KeySet::Result::kKnown;
    // The holder first: an inode that nobody holds is never entered.
    if (!holders_.Append({szPid, known ? inodes_[nPlace].nLastHolder : kNone}) ||
        (!known && !inodes_.Append({ulInode, kNone, 0}))) {
        return false;
    }
    Inode &inode = inodes_[nPlace];
    inode.nLastHolder = holders_.Count() - 1;
    inode.nTextLength += std::strlen(szPid) + 1;
    return true;
}

bool InodeHolders::StoreIn(TLIBCSzHash *pInodeToPidsTable) const {
    bool stored = true;
    for (const Inode &inode : inodes_) {
        stored = Store(inode, pInodeToPidsTable) && stored;
    }
    return stored;
}

bool InodeHolders::Store(const Inode &inode, TLIBCSzHash *pInodeToPidsTable) const {
    const InodeKey key(inode.ulInode);
    const char *szStored = TLIBCSzHashGetValue(pInodeToPidsTable, key.Get());
    const char *szKnown = szStored == nullptr ? "" : szStored;
    const std::size_t nKnownSize = std::strlen(szKnown) + 1;
    const OwnedText value(static_cast<char *>(std::malloc(inode.nTextLength + nKnownSize)));
    if (value) {
        char *szEnd = value.get();
        for (std::size_t i = inode.nLastHolder; i != kNone; i = holders_[i].nBefore) {
            szEnd = stpcpy(stpcpy(szEnd, holders_[i].szPid), ",");
        }
        std::memcpy(szEnd, szKnown, nKnownSize);
    }
    if (value && TLIBCSzHashSetValue(pInodeToPidsTable, key.Get(), value.get()) == 0) {
        return true;
    }
    TAVO_FAIL(kErrorNoMemory, "Failed to update (%s, %s) inode-to-pids table.", key.Get(),
              value ? value.get() : "");
    return false;
}

}  // namespace tavo
