// The sockets that processes hold now, and whether the processes are programs of services.

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <string_view>

#include "base/system_files.h"
#include "check/held_sockets.h"
#include "input/input_file.h"
#include "input/library.h"
#include "output/text.h"
#include "ports/port_claims.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

// ---- Processes ----

// Suffix of the link to an executable that was removed, for example by an update.
constexpr std::string_view kDeleted = " (deleted)";

constexpr std::string_view kUnitSuffix = ".service";

std::string_view WithoutSuffix(std::string_view text, std::string_view suffix) {
    return text.substr(0, text.size() - (text.ends_with(suffix) ? suffix.size() : 0));
}

std::string UserOf(const std::string &folder) {
    constexpr std::size_t kRecord = 16384;  // buffer for the texts of one user
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        return {};
    }
    const auto texts = std::make_unique<char[]>(kRecord);
    passwd record{};
    passwd *found = nullptr;
    const int error = getpwuid_r(status.st_uid, &record, texts.get(), kRecord, &found);
    return error != 0 || found == nullptr ? std::to_string(status.st_uid) : found->pw_name;
}

// The innermost unit of the first line that names one: "web" for
// "0::/system.slice/web.service/workers".
std::string UnitOf(const std::string &folder) {
    std::istringstream lines(ReadRegularFile(folder + "cgroup").text);
    for (std::string line; std::getline(lines, line);) {
        const std::filesystem::path group(line);
        for (auto part = group.end(); part != group.begin();) {
            if ((--part)->extension() == kUnitSuffix) {
                return part->stem();
            }
        }
    }
    return {};
}

HoldingProcess ProcessOf(const HoldingProcessRecord &record) {
    const std::string folder = "/proc/" + std::to_string(record.pid) + '/';
    HoldingProcess process;
    process.pid = record.pid;
    process.program = record.program == nullptr ? "" : record.program;
    process.name = WithoutSuffix(LastPart(process.program), kDeleted);
    if (process.name.empty()) {
        // A process can set any name, even one with newlines. The kernel adds only the last
        // newline.
        process.name = WithoutSuffix(ReadRegularFile(folder + "comm").text, "\n");
    }
    process.user = UserOf(folder);
    process.unit = UnitOf(folder);
    return process;
}

// ---- Sockets ----

// Socket states; UDP uses the numbers of TCP.
constexpr std::uint32_t kConnected = 1;
constexpr std::uint32_t kUnconnected = 7;
constexpr std::uint32_t kListening = 10;

constexpr std::string_view kStatePrefix = "TCP_";

std::string WhyUnread(const HeldSockets &sockets) {
    if (sockets.Path() == nullptr) {
        return "processes: " + SystemReason(sockets.Code());
    }
    const bool refused = access(sockets.Path(), R_OK) != 0;
    return sockets.Path() + (": " + (refused ? ErrorText(errno) : "cannot be read"));
}

// ---- Programs of services ----

constexpr std::string_view kServiceFileSuffix = ".sc";

// Contains a folder for each package, named after it.
constexpr char kPackagesFolder[] = "/usr/local/packages/";

// The unit and the program. A name that the process sets itself is ignored, because the process can
// change it at any time. Names of daemons often are the name of the service with a "d" appended.
std::vector<std::string> NamesOf(const HoldingProcess &process) {
    std::vector<std::string> names;
    for (const std::string &name : {process.unit, process.program.empty() ? "" : process.name}) {
        if (!name.empty()) {
            names.push_back(name);
        }
        if (name.size() > 1 && name.ends_with('d')) {
            names.push_back(name.substr(0, name.size() - 1));
        }
    }
    return names;
}

// The package of a service, which is the name of its service file without folder and suffix; "" if
// the service is not declared by a service file.
std::string PackageOf(const PortDeclarer &service) {
    const std::filesystem::path file(OrEmpty(service.file));
    return file.extension() == kServiceFileSuffix ? file.stem().string() : "";
}

// Whether the library can be called with the name. The library makes it a part of a path, which
// must not lead to another folder.
bool IsFileName(const std::string &name) {
    return name.find('/') == std::string::npos && name != "." && name != "..";
}

// Only service files of packages are named after the package.
bool LiesInPackageOf(const PortDeclarer &service, const std::string &package,
                     const std::string &program) {
    return !package.empty() &&
           OrEmpty(service.file).starts_with(kPackageServiceDirectory + std::string("/")) &&
           program.starts_with(kPackagesFolder + package + '/');
}

}  // namespace

bool PortClaim::Listens() const {
    return IsHeld() && state == (protocol == TAVO_PROTO_UDP ? kUnconnected : kListening);
}

const HoldingProcess &PortClaim::Process() const {
    static const HoldingProcess nobody;
    return process == nullptr ? nobody : *process;
}

std::string HolderName(const PortClaim &claim) {
    return claim.process != nullptr ? claim.process->name : claim.IsHeld() ? "unknown" : "";
}

std::string StateName(const PortClaim &claim) {
    if (claim.state == kNoState) {
        return {};
    }
    if (claim.protocol == TAVO_PROTO_UDP &&
        (claim.state == kConnected || claim.state == kUnconnected)) {
        return claim.state == kConnected ? "CONNECTED" : "UNCONNECTED";
    }
    const std::string_view name = TAVOTCPStateToString(claim.state);
    return name.starts_with(kStatePrefix) ? std::string(name.substr(kStatePrefix.size()))
                                          : "STATE " + std::to_string(claim.state);
}

void ReadHeldPorts(Report &report, PortClaims &all) {
    HeldSockets read;
    if (!read.Read()) {
        if (read.Code() == TLIBC_ERR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        all.failed |= TAVO_PORT_CHECK_RUNTIME;
        report.AddError("", "unreadable", "the holders of ports are unknown: " + WhyUnread(read),
                        "", Status::kOk);
        return;
    }
    for (const HoldingProcessRecord &record : read.Processes()) {
        all.processes.push_back(record.ended ? HoldingProcess{} : ProcessOf(record));
    }
    for (const SocketRecord &socket : read.Sockets()) {
        PortClaim claim = {{socket.port, socket.port}, socket.protocol, TAVO_PORT_CHECK_RUNTIME};
        claim.state = socket.state;
        for (const std::size_t holder : read.HoldersOf(socket)) {
            claim.process = &all.processes[holder];
            all.claims.push_back(claim);
        }
        if (socket.holders == 0) {
            all.claims.push_back(claim);
        }
    }
}

std::optional<bool> ProgramsOfServices::Owns(const PortDeclarer &service,
                                             const HoldingProcess &process) {
    const std::string name(OrEmpty(service.name));
    const std::string package = PackageOf(service);
    const std::vector<std::string> names = NamesOf(process);
    const auto has_section = [&](const std::string &program) {
        return SectionsFor(program).contains(name);
    };
    if ((!package.empty() && Holds(names, package)) ||
        (!name.empty() && (Holds(names, name) || std::ranges::any_of(names, has_section))) ||
        LiesInPackageOf(service, package, process.program)) {
        return true;
    }
    return process.program.empty() ? std::nullopt : std::optional(false);
}

void ProgramsOfServices::EnterOwner(const ClaimList &declared, PortClaim &socket) {
    bool all_known = socket.process != nullptr;
    for (const PortClaim *claim : declared) {
        const auto owns = Owns(*claim->declarer, socket.Process());
        if (owns.value_or(false)) {
            socket.declarer = claim->declarer;
            return;
        }
        all_known = all_known && owns;
    }
    socket.is_stranger = all_known;
}

const ProgramsOfServices::Sections &ProgramsOfServices::SectionsFor(const std::string &name) {
    const auto [known, is_new] = sections_.try_emplace(name);
    if (is_new && IsFileName(name)) {
        TLIBCSzList *list = OrThrow(OwnedNames(TLIBCSzListAlloc(0))).release();
        TAVOFwSectionNameEnum(name.c_str(), &list);
        const OwnedNames owner(list);
        for (int i = 0; i < TLIBCSzListCount(list); ++i) {
            known->second.insert(TLIBCSzListGet(list, i));
        }
    }
    return known->second;
}

}  // namespace tavo::tool
