// Who declares which ports: firewall services, settings and forwarding rules.
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
    std::string name;         // what leaves it out of a comparison; empty where nothing does
    std::string file;         // that declares it; empty for a built-in one
    std::string entry;        // of the file: a section or a key
    std::string place;        // file and entry in short, as tables show them
    std::string detail = {};  // of a rule: "tcp, 8080 of the router to 80"

    // The name by which it is compared with others: the system knows some services by two names.
    std::string service = {};
    auto operator<=>(const Declarer &) const = default;
};

// All empty for what nobody declares: sockets and the reserved port.
Declarer DeclarerOf(const TakenPorts &taken);

// "web_http (system/web.sc)".
std::string DeclarerText(const Declarer &declarer);

// Ports that one declares for one protocol, as far as they were asked for.
struct Declaration {
    PortRange range;
    std::uint32_t protocol;   // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    std::string_view source;  // kForwardSource, kServiceSource or kSettingSource
    const Declarer *declarer;
};

// By port, protocol and source, then by declarer; each only once.
void SortDeclarations(std::vector<Declaration> &declarations);

struct DeclaredPorts {
    std::vector<Declaration> declarations;  // in that order
    std::vector<std::string_view> failed;   // the sources that may declare more
    std::deque<Declarer> declarers;         // what the declarations point to
};

// Reads the declarations of the ports of a query. Failures are reported; the status is up to the
// caller.
DeclaredPorts ReadDeclaredPorts(const PortQuery &query, Report &report);

}  // namespace tavo::tool

#endif
