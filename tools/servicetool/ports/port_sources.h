// The sources of taken ports: forwarding rules, firewall services, settings and sockets. Finds the
// requested ports in them; returns conflicts as records, as a table and as JSON.
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

// In the order of reading.
inline constexpr PortSource kPortSources[] = {
    {TAVO_PORT_CHECK_PORT_FORWARD, kForwardSource},
    {TAVO_PORT_CHECK_FW_SERVICE, kServiceSource},
    {TAVO_PORT_CHECK_SYS_KEY, kSettingSource},
    {TAVO_PORT_CHECK_RUNTIME, kSocketSource},
};

// Instead of a source, for the port that is always taken.
inline constexpr std::string_view kReservedSource = "reserved";

// Returns kReservedSource if the flag is not a source.
std::string_view SourceName(int flag);

// The names of services, rules and settings to ignore.
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

    // Ports found in one source are taken, even if another source cannot be read.
    PortVerdict Verdict() const;

    // Raises the status as the answer to "are the ports free?".
    void RaiseStatus(Report &report) const;
};

// "80/tcp is free", "80/tcp: cannot tell (service, setting)" with the sources that failed. A long
// list of ports is shortened.
std::string VerdictText(const PortQuery &query, const PortAnswer &answer);

// The ports of a record of the engine.
PortRange RangeOf(const TakenPorts &taken);

class PortSources {
  public:
    // `flags` are the sources to read, bits of TAVO_PORT_CHECK_*. Each failure is reported once.
    PortSources(int flags, Report &report) : flags_(flags), report_(report) {}
    PortSources(const PortSources &) = delete;
    PortSources &operator=(const PortSources &) = delete;

    // Answers all requests, in order, and reads each source once. Throws std::bad_alloc when out of
    // memory.
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

// One line per taken port or range and source, without duplicate lines.
class ConflictTable {
  public:
    // kYes: the first column is the section that needs the ports.
    enum class Sections { kNo, kYes };
    explicit ConflictTable(Sections sections = Sections::kNo) : sections_(sections) {}

    void Add(const std::vector<PortConflict> &conflicts, const std::string &section = {});

    // Returns "" if there is no conflict.
    std::string Text(bool header, std::size_t columns) const;

  private:
    using Cells = std::vector<std::string>;

    Sections sections_;
    std::vector<Cells> rows_;
    std::set<Cells> known_;
};

}  // namespace tavo::tool

#endif
