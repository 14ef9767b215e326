// Which processes hold which socket, collected process by process.
#ifndef TAVO_SRC_CHECK_INODE_HOLDERS_H
#define TAVO_SRC_CHECK_INODE_HOLDERS_H

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>

#include "check/key_set.h"
#include "support/failure.h"
#include "support/growing_array.h"
#include "support/owners.h"

namespace tavo {

// Room for the target of a link; what is longer is cut.
constexpr std::size_t kLinkSize = 1024;

// The error code for a system call that failed with this errno.
constexpr unsigned int ErrorOfCall(int nError) {
    return nError == ENOMEM ? TLIBC_ERR_NO_MEMORY : TLIBC_ERR_FILE_UNUSABLE;
}

// Whether that errno says that a process is gone, even while its folder is being read, or that the
// caller has no permission to look at it. ENAMETOOLONG is what the kernel gives for the link of a
// file whose path is longer than a page: no socket has one.
constexpr bool IsOutOfReach(int nError) {
    return nError == ENOENT || nError == ESRCH || nError == ENOTDIR || nError == ENAMETOOLONG ||
           nError == EACCES || nError == EPERM;
}

// An inode as the key of the table of holders, in decimal.
class InodeKey {
  public:
    explicit InodeKey(uint64_t ulInode) {
        *std::to_chars(szText_, szText_ + sizeof(szText_) - 1, ulInode).ptr = '\0';
    }
    const char *Get() const { return szText_; }

  private:
    char szText_[sizeof("18446744073709551615")];
};

// A socket that a thousand processes share is written once, when all of them are known.
class InodeHolders {
  public:
    // Enters the sockets that the process holds; its number, a text of the caller's, must outlive
    // this object. A process that is gone, or that the caller has no permission to look at, has
    // none. 0, else the error code of what kept its sockets from being read: the holders are
    // incomplete then, and only StoreIn may still be called.
    unsigned int AddProcess(const char *szPid);

    // Puts the collected processes in front of what the table names already. An inode whose value
    // cannot be stored is logged and left as it was, and false is the answer.
    bool StoreIn(const Place &here, TLIBCSzHash *pInodeToPidsTable) const;

  private:
    static constexpr std::size_t kNone = SIZE_MAX;

    struct Inode {
        uint64_t ulInode;
        std::size_t nLastHolder;
        std::size_t nTextLength;  // of the text that names all holders
    };
    struct Holder {
        const char *szPid;
        std::size_t nBefore;  // the one that was entered before it, or kNone
    };

    unsigned int AddDescriptors(int nFolder, const char *szPid);
    unsigned int AddLink(int nFolder, const char *szName, const char *szPid);
    bool Add(uint64_t ulInode, const char *szPid);
    bool Store(const Place &here, const Inode &inode, TLIBCSzHash *pInodeToPidsTable) const;
    void PrintValue(const Inode &inode, const char *szKnown, char *szBuf, std::size_t nSize) const;

    KeySet numbers_;              // gives each inode its place in inodes_
    GrowingArray<Inode> inodes_;  // in the order in which they were met
    GrowingArray<Holder> holders_;
};

}  // namespace tavo

#endif
