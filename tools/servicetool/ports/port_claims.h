// Claims to ports: the declarations of services, settings and rules of the router, and the sockets
// that processes hold; as a list with the conflicts between them, or as one account per port.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_CLAIMS_H
#define TAVO_SERVICETOOL_PORTS_PORT_CLAIMS_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "output/report.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {

struct HoldingProcess {
    std::uint32_t pid = 0;
    std::string program;  // path of the executable; empty if it cannot be read
    std::string name;     // last part of that path, else the name that the process sets itself
    std::string user;     // name, or number if it has no name; empty if unknown
    std::string unit;     // unit of the service manager, without its suffix; empty if none
};

// The state of a socket that exists but is in no table of the kernel.
inline constexpr std::uint32_t kNoState = 0;

struct PortClaim {
    PortRange range;
    std::uint32_t protocol;  // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    int source;              // one of TAVO_PORT_CHECK_*

    // For a socket, the service that declares its port and that its program belongs to; null if
    // there is none or it is unknown.
    const PortDeclarer *declarer = nullptr;

    // For a socket.
    std::uint32_t state = kNoState;           // the kernel's number
    const HoldingProcess *process = nullptr;  // null if the holder is unknown
    bool is_stranger = false;  // a service declares its port, but its program belongs to none

    bool IsHeld() const { return source == TAVO_PORT_CHECK_RUNTIME; }

    // Whether it is a socket that waits for clients.
    bool Listens() const;

    // The process, or one with empty texts if it is unknown.
    const HoldingProcess &Process() const;

    // The number of the process; "" if it is unknown.
    std::string PidText() const { return process == nullptr ? "" : std::to_string(process->pid); }

    // The same for JSON; null if it is unknown.
    Json PidJson() const { return process == nullptr ? Json(nullptr) : Json(process->pid); }
};

// The name of the process that holds a socket, "unknown" if it cannot be inspected; "" for a
// declaration.
std::string HolderName(const PortClaim &claim);

using ClaimList = std::vector<const PortClaim *>;

// The state of a socket: "LISTEN", "ESTABLISHED"; for UDP "UNCONNECTED" or "CONNECTED". Empty for
// kNoState.
std::string StateName(const PortClaim &claim);

// The name of a declarer for comparisons: some services have two names.
std::string_view ServiceName(const PortDeclarer &declarer);

struct PortClaims {
    std::vector<PortClaim> claims;  // by port, protocol and source, no duplicates
    int failed = 0;                 // sources that may have more claims

    // By protocol.
    std::map<std::uint32_t, PortRanges> collide;  // ports in conflict
    std::map<std::uint32_t, PortRanges> unclear;  // ports with unknown listeners

    // Owners of what the claims point to.
    std::unique_ptr<PortConflicts> declared;
    std::deque<PortDeclarer> system;  // of kSystemPorts
    std::deque<HoldingProcess> processes;
};

// Reads the claims of the sources: what is declared of the ports of `query`, and all sockets.
// Finds the ports in conflict among them, and the services that the sockets belong to. Reports
// failures but does not raise the status.
PortClaims ReadPortClaims(const PortQuery &query, int sources, Report &report);

// The claims of the sources for a protocol, in the same order.
ClaimList ClaimsFor(std::uint32_t protocol, int sources, const std::vector<PortClaim> &claims);

// Finds the claims to given ports in a list sorted by first port.
class ClaimsInReach {
  public:
    explicit ClaimsInReach(ClaimList all) : all_(std::move(all)) {}

    // The ports of consecutive calls must ascend.
    const ClaimList &At(const PortRange &ports);

  private:
    const ClaimList all_;
    std::size_t next_ = 0;
    ClaimList reach_;
};

// ---- Holders, defined in held_ports.cpp ----

// Appends a claim for each socket and process, and the processes. A failure is reported and entered
// in `failed`.
void ReadHeldPorts(Report &report, PortClaims &all);

// Whether a process is the program of the service that declares a port.
//
// The appliance has no record of which program belongs to which service, so names are compared: the
// names of the process (its unit, its program) and the sections that the library returns for each
// of them, with the names of the service and its file. Programs of a package are also recognised by
// the package's folder.
//
// The result is a hint, not a proof: users can choose the names of their programs and units. It is
// correct for the appliance's own programs.
//
// The sections of a program are read once, even if it is compared with many services.
class ProgramsOfServices {
  public:
    // Empty if unknown because the program of the process is unknown.
    std::optional<bool> Owns(const PortDeclarer &service, const HoldingProcess &process);

    // Enters the first of the declarers of a socket's port that its process belongs to, or that the
    // process is a stranger.
    void EnterOwner(const ClaimList &declared, PortClaim &socket);

  private:
    using Sections = std::set<std::string>;

    const Sections &SectionsFor(const std::string &name);

    std::map<std::string, Sections> sections_;  // by the name of the unit or program
};

// ---- Conflicts ----

// Whether any of the claim's ports is in conflict.
bool Collides(const PortClaim &claim, const PortClaims &all);

// The claims to ports in conflict, each cut to these ports.
std::vector<PortClaim> CollidingClaims(const PortClaims &all);

// ---- Accounts ----

// A port and a protocol to report on.
struct PortTarget {
    std::uint32_t port;
    std::uint32_t protocol;  // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    auto operator<=>(const PortTarget &) const = default;
};

// The declarers and holders of one port for one protocol.
struct PortAccount {
    PortTarget target;
    ClaimList declared;   // by services and settings
    ClaimList forwarded;  // by rules of the router
    ClaimList held;       // listening sockets first
    int failed = 0;       // sources that could not be read

    // Derived: the processes that hold the port, without duplicates; if any of them listen, only
    // these. Strangers are holders that belong to no service that declares the port.
    std::vector<const HoldingProcess *> holders;
    std::vector<const HoldingProcess *> strangers;
    bool has_unknown_holder = false;  // a process that cannot be inspected
    bool is_listened_to = false;      // by a known process

    // Whether all holders belong to services that declare the port. Empty if the port has no
    // declarer or no holder, or if it is unknown for some holders.
    std::optional<bool> same_service;

    // Whether the port is always taken.
    bool IsReserved() const { return target.port == kReservedPort; }

    // kUnknown if no declarer or holder is known, but there may be one.
    PortVerdict Verdict() const;
};

// One account for each target. The targets must be distinct, and the claims those of all sources to
// their ports. The accounts point to the claims.
std::vector<PortAccount> AccountsOf(const std::vector<PortTarget> &targets, const PortClaims &all,
                                    Report &report);

// "8080/tcp is declared by 'web' in package/web.sc, but nobody listens". Names are not escaped; the
// caller must escape the sentence when printing it. `as_root`: the caller is root, who can inspect
// every process. Defined in port_sentence.cpp.
std::string PortSentence(const PortAccount &account, bool as_root);

}  // namespace tavo::tool

#endif
