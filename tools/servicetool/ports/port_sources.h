// Everyone who may hold a port, asked one by one so that each answer names its source.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_SOURCES_H
#define TAVO_SERVICETOOL_PORTS_PORT_SOURCES_H

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "output/report.h"
#include "ports/port_holders.h"
#include "ports/port_query.h"
#include "ports/port_question.h"

namespace tavo::tool {

struct PortSource {
    int flag;               // TAVO_PORT_CHECK_*
    std::string_view name;  // as it is called on the command line and in tables
};

inline constexpr std::string_view kForwardSource = "forward";
inline constexpr std::string_view kServiceSource = "service";
inline constexpr std::string_view kSettingSource = "setting";
inline constexpr std::string_view kSocketSource = "socket";

// In the order in which they are asked.
inline constexpr PortSource kPortSources[] = {
    {TAVO_PORT_CHECK_PORT_FORWARD, kForwardSource},
    {TAVO_PORT_CHECK_FW_SERVICE, kServiceSource},
    {TAVO_PORT_CHECK_SYS_KEY, kSettingSource},
    {TAVO_PORT_CHECK_RUNTIME, kSocketSource},
};

// Said in the place of a source about a port that is taken whoever is asked.
inline constexpr std::string_view kReservedSource = "reserved";

// Ports that are taken.
struct PortConflict {
    PortRange range;
    std::uint32_t protocols;
    std::string_view source;
    std::vector<PortHolder> holders;  // empty where it is not known who they are
    bool exact = true;                // false: at least one port of the range is taken
};

struct PortAnswer {
    std::vector<PortConflict> conflicts;
    std::vector<std::string_view> failed;  // sources that cannot tell

    // Ports that one source calls taken are so, whatever another could not tell.
    PortVerdict Verdict() const;

    // What that means for the question whether the ports are free.
    void RaiseStatus(Report &report) const;
};

class PortSources {
  public:
    // `flags` says whom to ask. What goes wrong is told to `report`, the same thing once.
    PortSources(int flags, Report &report);
    ~PortSources();
    PortSources(const PortSources &) = delete;
    PortSources &operator=(const PortSources &) = delete;

    PortAnswer Ask(const PortQuery &query, const SkippedNames &skipped);

    // Whether sockets hold a port of a set now. Where that cannot be known, none, which is told and
    // raises the status.
    std::optional<bool> AnyHeldBySockets(const PortRanges &set, std::uint32_t protocols);

  private:
    struct Question;  // a query on its way from source to source

    void AskForward(Question &question);
    void AskServices(Question &question);
    void AskSettings(Question &question);
    void AskSockets(Question &question);

    const RuleFile &Rules();
    const FirewallServices &Services();
    bool ServicesAreKnown(const SkippedNames &skipped);
    bool SocketsAreSeen(std::uint32_t protocols, std::string &problem);
    void TellOnce(Diagnostic diagnostic);

    int flags_;
    Report &report_;
    std::unique_ptr<RuleFile> rules_;
    std::optional<FirewallServices> services_;
    bool settings_looked_at_ = false;   // for lines that mean nothing
    bool services_complete_ = true;     // every file and folder of theirs could be read
    std::uint32_t seen_protocols_ = 0;  // sockets of these are known to be seen
    std::set<std::string> told_;
};

}  // namespace tavo::tool

#endif
