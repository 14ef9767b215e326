// Sockets and processes meet in the sockets' inodes: the kernel's tables list the sockets with
// theirs, and the descriptors of each process name those that it has open. The library reads both;
// what else there is to say of a process is read here, once for each, however many sockets it has.
#include "ports/socket_holders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <tuple>

#include "input/input_file.h"
#include "input/library_failure.h"
#include "input/library_owners.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

// Behind the link to an executable that is not there any more, as after an update.
constexpr std::string_view kDeleted = " (deleted)";

constexpr std::string_view kUnitSuffix = ".service";

struct SocketTable {
    const char *path;
    std::uint16_t protocol;
    bool optional;  // a kernel without IPv6 has none
};

constexpr SocketTable kSocketTables[] = {
    {"/proc/net/tcp", TAVO_PROTO_TCP, false},
    {"/proc/net/tcp6", TAVO_PROTO_TCP, true},
    {"/proc/net/udp", TAVO_PROTO_UDP, false},
    {"/proc/net/udp6", TAVO_PROTO_UDP, true},
};

// Their numbers for UDP are those of TCP.
constexpr std::uint32_t kConnected = 1;
constexpr std::uint32_t kUnconnected = 7;
constexpr std::uint32_t kListening = 10;

constexpr std::string_view kStatePrefix = "TCP_";

std::string_view LastPart(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

std::string_view WithoutSuffix(std::string_view text, std::string_view suffix) {
    return text.substr(0, text.size() - (text.ends_with(suffix) ? suffix.size() : 0));
}

std::string ProgramOf(std::uint32_t pid) {
    const OwnedText program(ProgramCommandFetch(pid));
    return program ? program.get() : "";
}

// A process may call itself anything, with line ends, too; the last one is not part of it.
std::string OwnNameOf(const std::string &folder) {
    return std::string(WithoutSuffix(ReadRegularFile(folder + "comm").text, "\n"));
}

std::string UserName(uid_t user) {
    constexpr std::size_t kRecord = 16384;  // texts of one user: far more than there ever are
    const auto texts = std::make_unique<char[]>(kRecord);
    passwd record{};
    passwd *found = nullptr;
    const int error = getpwuid_r(user, &record, texts.get(), kRecord, &found);
    return error != 0 || found == nullptr ? std::to_string(user) : found->pw_name;
}

std::string UserOf(const std::string &folder) {
    struct stat status {};
    return stat(folder.c_str(), &status) == 0 ? UserName(status.st_uid) : "";
}

// "0::/system.slice/web.service/workers" is of the unit "web": what stands deepest counts.
std::string UnitOfLine(std::string_view line) {
    while (!line.empty()) {
        const std::string_view part = LastPart(line);
        if (part.ends_with(kUnitSuffix)) {
            return std::string(WithoutSuffix(part, kUnitSuffix));
        }
        line.remove_suffix(std::min(line.size(), part.size() + 1));
    }
    return {};
}

std::string UnitOf(const std::string &folder) {
    const std::string text = ReadRegularFile(folder + "cgroup").text;
    std::string unit;
    for (std::string_view rest = text; !rest.empty() && unit.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        unit = UnitOfLine(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return unit;
}

// A process that has ended has no folder, or one without an executable until its parent takes note.
// Neither has it sockets any more.
bool HasEnded(const std::string &folder) {
    char target;
    return readlink((folder + "exe").c_str(), &target, sizeof(target)) < 0 &&
           (errno == ENOENT || errno == ESRCH);
}

std::optional<HoldingProcess> ProcessOf(std::uint32_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid) + '/';
    HoldingProcess process;
    process.pid = pid;
    process.program = ProgramOf(pid);
    process.name = WithoutSuffix(LastPart(process.program), kDeleted);
    if (process.name.empty()) {
        process.name = OwnNameOf(folder);
    }
    process.user = UserOf(folder);
    process.unit = UnitOf(folder);
    if (HasEnded(folder)) {
        return {};
    }
    return process;
}

OwnedList NewSocketList() {
    return OrThrow(OwnedList(TLIBCDListAlloc(
        [](const void *info) -> void * {
            return RawSocketInfoCopy(static_cast<const RawSocketInfo *>(info));
        },
        [](void *info) { RawSocketInfoFree(static_cast<RawSocketInfo *>(info)); })));
}

// Appends the sockets of a table to a list. Why that cannot be done; empty when it is.
std::string ReadSockets(const SocketTable &table, TLIBCDList *sockets) {
    if (table.optional && access(table.path, F_OK) != 0 && errno == ENOENT) {
        return {};
    }
    TLIBCErrSetEx(0, nullptr, 0);
    if (ParseToRawSocketInfo(table.path, table.protocol, sockets) == 0) {
        return {};
    }
    if (TLIBCErrGet() == TLIBC_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    const std::string path = table.path;
    return path + ": " + (access(table.path, R_OK) != 0 ? ErrorText(errno) : "cannot be read");
}

using Sockets = std::vector<RawSocketInfo>;

// Those that are not the kernel's alone. Why they cannot be listed; empty when they are.
std::string ReadAllSockets(Sockets &sockets) {
    const OwnedList list = NewSocketList();
    for (const SocketTable &table : kSocketTables) {
        const std::string problem = ReadSockets(table, list.get());
        if (!problem.empty()) {
            return problem;
        }
    }
    for (const TLIBCDListNode *node = TLIBCDListFirst(list.get()); node != nullptr;
         node = TLIBCDListNext(node)) {
        const auto &socket = *static_cast<const RawSocketInfo *>(TLIBCDListElement(node));
        if (socket.ulInode != 0) {
            sockets.push_back(socket);
        }
    }
    return {};
}

// Who has which socket; NULL with the error code set when processes cannot be read.
OwnedTable FetchHolders() {
    ForgetFailure();
    OwnedTable holders(InodeToPidsTableFetch());
    const unsigned int code = TLIBCErrGet();
    if (holders == nullptr && (code == TLIBC_ERR_NO_MEMORY || SystemReason(code).empty())) {
        throw std::bad_alloc();
    }
    return holders;
}

class Look {
  public:
    // Why the sockets cannot be listed; empty when they are.
    std::string Take();

    std::vector<HeldSocket> Result() const;

  private:
    // Port, protocol, state and process, 0 for one that is not known.
    using Holding = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;

    bool IsThere(std::uint32_t pid);
    bool AddHolders(const RawSocketInfo &socket, TLIBCSzHash *holders);
    void LookAgain(Sockets left);

    std::map<std::uint32_t, std::optional<HoldingProcess>> processes_;  // none: it has ended
    std::set<Holding> holdings_;
};

// The processes come first, lest one that ends meanwhile is blamed for what another has. A socket
// that nobody had then may have been opened, or handed to another process, since.
std::string Look::Take() {
    const OwnedTable holders = FetchHolders();
    if (holders == nullptr) {
        return "processes: " + SystemReason(TLIBCErrGet());
    }
    Sockets sockets;
    const std::string problem = ReadAllSockets(sockets);
    if (!problem.empty()) {
        return problem;
    }
    std::erase_if(sockets,
                  [&](const RawSocketInfo &socket) { return AddHolders(socket, holders.get()); });
    if (!sockets.empty()) {
        LookAgain(std::move(sockets));
    }
    return {};
}

// What is closed by then was nobody's; of the rest it cannot be told whose it is.
void Look::LookAgain(Sockets left) {
    if (const OwnedTable holders = FetchHolders()) {
        std::erase_if(
            left, [&](const RawSocketInfo &socket) { return AddHolders(socket, holders.get()); });
    }
    if (left.empty()) {
        return;
    }
    Sockets now;
    const bool known = ReadAllSockets(now).empty();
    std::set<std::uint64_t> open;
    for (const RawSocketInfo &socket : now) {
        open.insert(socket.ulInode);
    }
    for (const RawSocketInfo &socket : left) {
        if (!known || open.contains(socket.ulInode)) {
            holdings_.emplace(socket.uPort, socket.uProtocol, socket.uState, 0);
        }
    }
}

// Whether anybody has the socket.
bool Look::AddHolders(const RawSocketInfo &socket, TLIBCSzHash *holders) {
    const OwnedNames pids = OrThrow(OwnedNames(InodeToPidsGet(holders, socket.ulInode)));
    bool found = false;
    for (int i = 0; i < TLIBCSzListCount(pids.get()); ++i) {
        const std::string_view text = TLIBCSzListGet(pids.get(), i);
        std::uint32_t pid = 0;
        std::from_chars(text.data(), text.data() + text.size(), pid);
        if (IsThere(pid)) {
            holdings_.emplace(socket.uPort, socket.uProtocol, socket.uState, pid);
            found = true;
        }
    }
    return found;
}

bool Look::IsThere(std::uint32_t pid) {
    const auto [process, is_new] = processes_.try_emplace(pid);
    if (is_new) {
        process->second = ProcessOf(pid);
    }
    return process->second.has_value();
}

std::vector<HeldSocket> Look::Result() const {
    std::vector<HeldSocket> sockets;
    sockets.reserve(holdings_.size());
    for (const auto &[port, protocol, state, pid] : holdings_) {
        const auto process = processes_.find(pid);
        sockets.push_back(
            {port, protocol, state, process == processes_.end() ? std::nullopt : process->second});
    }
    return sockets;
}

}  // namespace

bool Listens(const HeldSocket &socket) {
    return socket.state == (socket.protocol == TAVO_PROTO_UDP ? kUnconnected : kListening);
}

std::string StateName(const HeldSocket &socket) {
    if (socket.state == kNoState) {
        return {};
    }
    if (socket.protocol == TAVO_PROTO_UDP && socket.state == kUnconnected) {
        return "UNCONNECTED";
    }
    if (socket.protocol == TAVO_PROTO_UDP && socket.state == kConnected) {
        return "CONNECTED";
    }
    const std::string_view name = TAVOTCPStateToString(socket.state);
    return name.starts_with(kStatePrefix) ? std::string(name.substr(kStatePrefix.size()))
                                          : "STATE " + std::to_string(socket.state);
}

SocketHolders LookAtSockets() {
    Look look;
    const std::string problem = look.Take();
    return {problem.empty(), problem, look.Result()};
}

}  // namespace tavo::tool
