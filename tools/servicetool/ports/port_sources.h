// The sources of taken ports: forwarding rules, firewall services, settings and sockets.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_SOURCES_H
#define TAVO_SERVICETOOL_PORTS_PORT_SOURCES_H

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/conflict_sources.h"
#include "output/report.h"
#include "ports/port_holders.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo {
class PortConflicts;
}

namespace tavo::tool {

struct PortSource {
    int flag;               // TAVO_PORT_CHECK_*
    std::string_view name;  // on the command line and in tables
};

inline constexpr std::string_view kForwardSource = "forward";
inline constexpr std::string_view kServiceSource = "service";
inline constexpr std::string_view kSettingSource = "setting";
inline constexpr std::string_view kSocketSource = "socket";

// In the order in which they are read.
inline constexpr PortSource kPortSources[] = {
    {TAVO_PORT_CHECK_PORT_FORWARD, kForwardSource},
    {TAVO_PORT_CHECK_FW_SERVICE, kServiceSource},
    {TAVO_PORT_CHECK_SYS_KEY, kSettingSource},
    {TAVO_PORT_CHECK_RUNTIME, kSocketSource},
};

// In place of a source, for the port that always counts as taken.
inline constexpr std::string_view kReservedSource = "reserved";

enum class PortVerdict { kFree, kTaken, kUnknown };

// The names of services, rules and settings that a comparison leaves out.
using SkippedNames = std::vector<std::string>;

struct PortRequest {
    PortQuery query;
    SkippedNames skipped;
};

// Ports that are taken.
struct PortConflict {
    PortRange range;
    std::uint32_t protocols;
    std::string_view source;
    std::vector<PortHolder> holders;  // who declares them; empty for sockets
};

struct PortAnswer {
    std::vector<PortConflict> conflicts;   // by source, then by port
    std::vector<std::string_view> failed;  // sources that could not be read

    // Ports that one source has are taken, even if another source is unknown.
    PortVerdict Verdict() const;

    // Raises the status of a question whether the ports are free.
    void RaiseStatus(Report &report) const;
};

class PortSources {
  public:
    // `flags` are the sources to ask, bits of TAVO_PORT_CHECK_*. Failures are reported once each.
    PortSources(int flags, Report &report) : flags_(flags), report_(report) {}
    PortSources(const PortSources &) = delete;
    PortSources &operator=(const PortSources &) = delete;

    // Answers any number of requests, in their order, with one reading of each source. Throws
    // std::bad_alloc when out of memory.
    std::vector<PortAnswer> Ask(const std::vector<PortRequest> &requests);

    PortAnswer Ask(const PortQuery &query, const SkippedNames &skipped) {
        return std::move(Ask({{query, skipped}}).front());
    }

  private:
    void AddFailures(const PortConflicts &found, std::vector<PortAnswer> &answers);
    void AddFailures(const PortSource &source, const PortConflicts &found,
                     std::vector<PortAnswer> &answers);
    void TellIgnoredLines(const PortSource &source);
    void TellOnce(Diagnostic diagnostic);

    int flags_;
    Report &report_;
    std::set<std::string> told_;
};

}  // namespace tavo::tool

#endif
