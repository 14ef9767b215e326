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

#include "check/key_set.h"
#include "support/failure.h"

namespace tavo {
namespace {

constexpr std::size_t kPathSize = 1024;
constexpr std::size_t kLinkSize = 1024;

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
    char szPath[kPathSize];
    const int nLength = std::snprintf(szPath, sizeof(szPath), "/proc/%s/fd", szPid);
    if (nLength < 0 || static_cast<std::size_t>(nLength) >= sizeof(szPath)) {
        return true;
    }
    const int nFolder = open(szPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return nFolder < 0 || AddDescriptors(nFolder, szPid);
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

// The slot of the inode, or the free one where it belongs.
std::size_t *InodeHolders::SlotOf(uint64_t ulInode) const {
    for (std::size_t at = Spread(ulInode);; ++at) {
        std::size_t &nSlot = slots_.get()[at & (nSlots_ - 1)];
        if (nSlot == 0 || inodes_[nSlot - 1].ulInode == ulInode) {
            return &nSlot;
        }
    }
}

bool InodeHolders::GrowIndex() {
    const std::size_t nLarger = nSlots_ == 0 ? 64 : 2 * nSlots_;
    auto *pLarger = static_cast<std::size_t *>(std::calloc(nLarger, sizeof(std::size_t)));
    if (pLarger == nullptr) {
        return false;
    }
    slots_.reset(pLarger);
    nSlots_ = nLarger;
    for (std::size_t i = 0; i < inodes_.Count(); ++i) {
        *SlotOf(inodes_[i].ulInode) = i + 1;
    }
    return true;
}

bool InodeHolders::Add(uint64_t ulInode, const char *szPid) {
    if (2 * (inodes_.Count() + 1) > nSlots_ && !GrowIndex()) {
        return false;
    }
    std::size_t *pSlot = SlotOf(ulInode);
    const bool known = *pSlot != 0;
    // The holder first: an inode that nobody holds is never entered.
    if (!holders_.Append({szPid, known ? inodes_[*pSlot - 1].nLastHolder : kNone}) ||
        (!known && !inodes_.Append({ulInode, kNone, 0}))) {
        return false;
    }
    if (!known) {
        *pSlot = inodes_.Count();
    }
    Inode &inode = inodes_[*pSlot - 1];
    inode.nLastHolder = holders_.Count() - 1;
    inode.nTextLength += std::strlen(szPid) + 1;
    return true;
}

void InodeHolders::StoreIn(TLIBCSzHash *pInodeToPidsTable) const {
    for (const Inode &inode : inodes_) {
        Store(inode, pInodeToPidsTable);
    }
}

void InodeHolders::Store(const Inode &inode, TLIBCSzHash *pInodeToPidsTable) const {
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
    if (!value || TLIBCSzHashSetValue(pInodeToPidsTable, key.Get(), value.get()) != 0) {
        TAVO_FAIL(kErrorNoMemory, "Failed to update (%s, %s) inode-to-pids table.", key.Get(),
                  value ? value.get() : "");
    }
}

}  // namespace tavo
