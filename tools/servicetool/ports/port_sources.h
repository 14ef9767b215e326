// The sources of taken ports: forwarding rules, firewall services, settings and sockets. Finds the
// requested ports in them; returns conflicts as records, as a table and as JSON.
//
// A source is a bit of TAVO_PORT_CHECK_*, in the order of reading.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_SOURCES_H
#define TAVO_SERVICETOOL_PORTS_PORT_SOURCES_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "engine/conflicts.h"
#include "output/json.h"
#include "output/report.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

struct PortSource {
    int flag;
    std::string_view name;  // on the command line and in tables
};

inline constexpr PortSource kPortSources[] = {
    {TAVO_PORT_CHECK_PORT_FORWARD, "forward"},
    {TAVO_PORT_CHECK_FW_SERVICE, "service"},
    {TAVO_PORT_CHECK_SYS_KEY, "setting"},
    {TAVO_PORT_CHECK_RUNTIME, "socket"},
};

inline constexpr int kDeclaringSources =
    TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY;

// The name of one source; "reserved" for TAVO_PORT_CHECK_DEFAULT, which the port that is always
// taken has instead of a source.
std::string_view SourceName(int source);

// The names of several sources.
std::vector<std::string_view> SourceNames(int sources);

// ---- Declarers ----

// A text of a declarer; "" if it is missing.
inline std::string_view OrEmpty(const char *text) {
    return text == nullptr ? std::string_view() : text;
}

// "system/FILE" or "package/FILE" for a path in a service folder; any other path is unchanged.
std::string FolderAndName(std::string_view path);

// Orders declarers by their texts.
std::strong_ordering CompareTexts(const PortDeclarer &a, const PortDeclarer &b);

// The file and entry of a declarer of the source, abbreviated for tables: "system/web.sc",
// "built-in", "rule 1, Web" or a settings key.
std::string PlaceText(int source, const PortDeclarer &declarer);

// The same with the file of a settings key: "smsport in /etc/tavoinfo.conf".
std::string FullPlaceText(int source, const PortDeclarer &declarer);

// "web_http (system/web.sc)".
std::string DeclarerText(int source, const PortDeclarer &declarer);

// Its name, file and entry.
Json DeclarerJson(const PortDeclarer &declarer);

// ---- Questions and answers ----

// The names of services, rules and settings to ignore.
using SkippedNames = std::vector<std::string>;

struct PortRequest {
    PortQuery query;
    SkippedNames skipped;
};

enum class PortVerdict { kFree, kUnknown, kTaken };

// "free", "taken" or "unknown".
std::string_view VerdictName(PortVerdict verdict);

// The answer to "are the ports free?".
Status StatusOf(PortVerdict verdict);

// Ports that are taken.
struct PortConflict {
    PortRange range;
    std::uint32_t protocols;
    int source;
    std::vector<PortDeclarer> declarers;         // empty for sockets and the reserved port
    std::shared_ptr<const PortConflicts> owner;  // of the texts of the declarers
};

Json ConflictJson(const PortConflict &conflict);

struct PortAnswer {
    std::vector<PortConflict> conflicts;  // by source, then by port
    int failed = 0;                       // sources that could not be read

    // Ports found in one source are taken, even if another source cannot be read.
    PortVerdict Verdict() const;

    // Raises the status to the answer, or to kFailed if a source could not be read.
    void RaiseStatus(Report &report) const;
};

// "80/tcp is free", "80/tcp: cannot tell (service, setting)" with the sources that failed. A long
// list of ports is shortened.
std::string VerdictText(const PortQuery &query, const PortAnswer &answer);

// The ports of a record of the engine.
PortRange RangeOf(const TakenPorts &taken);

class PortSources {
  public:
    // Reads only `sources`. Each failure is reported once.
    PortSources(int sources, Report &report) : sources_(sources), report_(report) {}
    PortSources(const PortSources &) = delete;
    PortSources &operator=(const PortSources &) = delete;

    // Answers all requests, in order, and reads each source once. Throws std::bad_alloc when out of
    // memory.
    std::vector<PortAnswer> Ask(const std::vector<PortRequest> &requests);

    // The same with the conflicts as records of the engine instead.
    std::vector<PortAnswer> Find(const std::vector<PortRequest> &requests, PortConflicts &found);

    // Reports a diagnostic, once.
    void ReportOnce(const Diagnostic &diagnostic);

  private:
    void AddFailures(int source, const PortConflicts &found, std::vector<PortAnswer> &answers);

    // Warns of the lines that the reader of the rules or the settings silently ignores.
    void ReportIgnoredLines(int source);

    int sources_;
    Report &report_;
    std::set<std::string> reported_;
};

// ---- The ports of files ----

// The ports of a list in the order of the file.
PortQuery QueryOf(const TAVO_SERVICE_CONF_PORT *ports);

// The ports that an install requests for a section, and the answer to be entered.
struct SectionQuery {
    std::string section;
    PortQuery query;
    bool names_protocols = false;  // false: both by default
    std::size_t line = 0;          // number of the section's header line
    PortAnswer answer = {};
};

struct FileQueries {
    std::vector<SectionQuery> sections;  // those with ports

    // The header of a [global] without dst.ports; points into the text of the file.
    std::optional<ConfigLine> portless_global;
};

// The destination ports of each section in the text of a file without errors: [global] first,
// because an install also requests its ports, the others in file order. Throws std::runtime_error
// or std::bad_alloc if a system error prevents reading the ports.
FileQueries QueriesOf(std::string_view text);

// ---- Failures, defined in source_failure.cpp ----

// Reports an error in a query on the command line, raises the status and returns false.
bool ReportBadQuery(const std::string &text, const PortProblem &problem, Report &report);

// The failure as a diagnostic, with its position in the file if it has one.
Diagnostic WhyUnknown(const SourceFailure &failure);

// Why a built-in service is left out of the catalogue; `code` is the error code of its reading, 0
// if its settings are absent or invalid.
Diagnostic WhyLeftOut(const std::string &service, unsigned int code);

// ---- Output ----

// One line per taken port or range and source, without duplicate lines.
class ConflictTable {
  public:
    // kYes: the first column is the section that needs the ports.
    enum class Sections { kNo, kYes };
    explicit ConflictTable(Sections sections = Sections::kNo);

    void Add(const std::vector<PortConflict> &conflicts, const std::string &section = {});

    // Returns "" if there is no conflict.
    std::string Text(bool header, std::size_t columns) const;

  private:
    Sections sections_;
    Table table_;
    std::set<std::vector<std::string>> known_;
};

}  // namespace tavo::tool

#endif
