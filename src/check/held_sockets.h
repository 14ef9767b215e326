// The sockets that processes hold now, and which processes: the kernel's tables list the sockets
// with their inodes, and the descriptors of each process name the inodes that it has open.
#ifndef TAVO_SRC_CHECK_HELD_SOCKETS_H
#define TAVO_SRC_CHECK_HELD_SOCKETS_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "check/inode_holders.h"
#include "check/socket_line.h"
#include "support/growing_array.h"
#include "support/kept_texts.h"

namespace tavo {

struct SocketRecord {
    SocketAddress address;
    uint16_t protocol;  // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    uint16_t port;
    uint32_t state;  // in the numbers of the kernel
    uint64_t inode;

    // The holders, in the list of all. Without any, they are unknown.
    std::size_t first_holder;
    std::size_t holders;
};

struct HoldingProcessRecord {
    uint32_t pid;
    const char *program;  // its executable; null when it cannot be read
    bool ended;           // it is no holder then
};

class HeldSockets {
  public:
    // Looks at the processes and then at the sockets, so that a process that ends meanwhile is not
    // taken for the holder of a port that another has. A socket without a holder may have been
    // opened, or handed to another process, since: these are looked for once more. What is closed
    // by then is left out; the holders of the others are unknown. So are sockets that the kernel
    // alone is still closing, such as those in TIME_WAIT: nobody holds them.
    //
    // Call it once. Returns false on failure, which is logged: Code() and Path() say why.
    bool Read();

    // In the order of the tables.
    std::span<const SocketRecord> Sockets() const { return {sockets_.begin(), sockets_.Count()}; }

    // The processes that hold a socket, as numbers into Processes().
    std::span<const std::size_t> HoldersOf(const SocketRecord &socket) const {
        return {holders_.begin() + socket.first_holder, socket.holders};
    }
    std::span<const HoldingProcessRecord> Processes() const {
        return {processes_.begin(), processes_.Count()};
    }

    // Of a reading that failed: the error code, and the table; null where processes could not be
    // read.
    unsigned int Code() const { return code_; }
    const char *Path() const { return path_; }

  private:
    bool Fail(unsigned int code, const char *path);
    bool ReadTables(GrowingArray<SocketRecord> &sockets);
    bool ReadTable(const char *path, uint16_t protocol, GrowingArray<SocketRecord> &sockets);
    bool AddHolder(const char *pid);
    bool AddHeld(const InodeHolders &holders, const GrowingArray<SocketRecord> &found,
                 GrowingArray<SocketRecord> &left);
    bool LookAgain(const GrowingArray<SocketRecord> &left);
    bool AddUnknown(const GrowingArray<SocketRecord> &left);

    GrowingArray<SocketRecord> sockets_;
    GrowingArray<std::size_t> holders_;
    GrowingArray<HoldingProcessRecord> processes_;
    KeySet known_pids_;  // the place of each process
    KeptTexts texts_;
    unsigned int code_ = 0;
    const char *path_ = nullptr;
};

}  // namespace tavo

#endif
