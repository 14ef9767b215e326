// The sources of taken ports: forwarding rules, firewall services, settings and sockets. What they
// have of the ports that are asked for, as rows, as a table and as JSON.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_SOURCES_H
#define TAVO_SERVICETOOL_PORTS_PORT_SOURCES_H

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/conflict_sources.h"
#include "output/json.h"
#include "output/report.h"
#include "ports/declared_ports.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo {
class PortConflicts;
struct SourceFailure;
}  // namespace tavo

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

// kReservedSource for a flag that is no source.
std::string_view SourceName(int flag);

// The names of services, rules and settings that a comparison leaves out.
using SkippedNames = std::vector<std::string>;

struct PortRequest {
    PortQuery query;
    SkippedNames skipped;
};

using FailedSources = std::vector<std::string_view>;

enum class PortVerdict { kFree, kTaken, kUnknown };

// "free", "taken" or "unknown".
std::string_view VerdictName(PortVerdict verdict);

// Ports that are taken.
struct PortConflict {
    PortRange range;
    std::uint32_t protocols;
    std::string_view source;
    std::vector<Declarer> declarers;  // empty for sockets and the reserved port
};

Json ConflictJson(const PortConflict &conflict);

struct PortAnswer {
    std::vector<PortConflict> conflicts;  // by source, then by port
    FailedSources failed;                 // sources that could not be read

    // Ports that one source has are taken, even if another source is unknown.
    PortVerdict Verdict() const;

    // Raises the status of a question whether the ports are free.
    void RaiseStatus(Report &report) const;
};

// "80/tcp is free", "80/tcp: cannot tell (service, setting)" for the sources that failed. Very many
// ports are cut.
std::string VerdictText(const PortQuery &query, const PortAnswer &answer);

// The ports of a record of the engine.
PortRange RangeOf(const TakenPorts &taken);

class PortSources {
  public:
    // `flags` are the sources to ask, bits of TAVO_PORT_CHECK_*. Failures are reported once each.
    PortSources(int flags, Report &report) : flags_(flags), report_(report) {}
    PortSources(const PortSources &) = delete;
    PortSources &operator=(const PortSources &) = delete;

    // Answers any number of requests, in their order, with one reading of each source. Throws
    // std::bad_alloc when out of memory.
    std::vector<PortAnswer> Ask(const std::vector<PortRequest> &requests);

    PortAnswer Ask(const PortQuery &query, const SkippedNames &skipped = {}) {
        std::vector<PortAnswer> answers = Ask({{query, skipped}});
        PortAnswer answer = std::move(answers.front());
        return answer;
    }

    // The same as records of the engine; returns the sources that failed for each request.
    std::vector<FailedSources> Find(const std::vector<PortRequest> &requests, PortConflicts &found);

    // Reports the failure and adds its source to those that failed.
    void Fail(const SourceFailure &failure, FailedSources &failed);

  private:
    void AddFailures(const PortSource &source, const PortConflicts &found,
                     std::vector<FailedSources> &failed);
    void TellIgnoredLines(const PortSource &source);
    void TellOnce(Diagnostic diagnostic);

    int flags_;
    Report &report_;
    std::set<std::string> told_;
};

// One line per taken port or range and source. What several questions find is shown once.
class ConflictTable {
  public:
    // With a column in front for the section that asks, where there are sections.
    enum class Sections { kNo, kYes };
    explicit ConflictTable(Sections sections = Sections::kNo) : sections_(sections) {}

    void Add(const std::vector<PortConflict> &conflicts, const std::string &section = {});

    // Empty when there is no conflict.
    std::string Text(bool header, std::size_t columns) const;

  private:
    using Cells = std::vector<std::string>;

    Sections sections_;
    std::vector<Cells> rows_;
    std::set<Cells> known_;
};

}  // namespace tavo::tool

#endif
