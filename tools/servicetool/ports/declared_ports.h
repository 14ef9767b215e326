// Declared ports and their declarers: firewall services, settings and forwarding rules.
#ifndef TAVO_SERVICETOOL_PORTS_DECLARED_PORTS_H
#define TAVO_SERVICETOOL_PORTS_DECLARED_PORTS_H

#include <compare>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "output/report.h"
#include "ports/port_query.h"

namespace tavo {
struct TakenPorts;
}

namespace tavo::tool {

// A service, a rule or a setting that declares ports.
struct Declarer {
    std::string name;         // the name to skip it by; empty if it cannot be skipped
    std::string file;         // path of the declaring file; empty for a built-in service
    std::string entry;        // section or key in the file
    std::string place;        // file and entry, abbreviated for tables
    std::string detail = {};  // of a rule: "tcp, 8080 of the router to 80"

    // The name for comparisons with other declarers: some services have two names.
    std::string service = {};
    auto operator<=>(const Declarer &) const = default;
};

// All members are empty for sockets and the reserved port, which have no declarer.
Declarer DeclarerOf(const TakenPorts &taken);

// "web_http (system/web.sc)".
std::string DeclarerText(const Declarer &declarer);

// Ports that one declarer declares for one protocol, limited to the requested ports.
struct Declaration {
    PortRange range;
    std::uint32_t protocol;   // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    std::string_view source;  // kForwardSource, kServiceSource or kSettingSource
    const Declarer *declarer;
};

// Sorts by port, protocol, source and declarer, and removes duplicates.
void SortDeclarations(std::vector<Declaration> &declarations);

struct Declarations {
    std::vector<Declaration> declarations;  // in the order of SortDeclarations
    std::vector<std::string_view> failed;   // sources that may declare more
    std::deque<Declarer> declarers;         // the declarations point to these
};

// Reads the declarations of the ports of a query. Reports failures but does not raise the status.
Declarations ReadDeclaredPorts(const PortQuery &query, Report &report);

}  // namespace tavo::tool

#endif
