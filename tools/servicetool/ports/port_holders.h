// Who declares which ports, so that a port that the library calls taken gets a name.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_HOLDERS_H
#define TAVO_SERVICETOOL_PORTS_PORT_HOLDERS_H

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ports/firewall_services.h"
#include "ports/port_question.h"
#include "ports/port_ranges.h"
#include "ports/rule_file.h"

namespace tavo::tool {

// Someone who declares ports.
struct PortHolder {
    std::string name;   // what leaves it out of a comparison; empty where nothing does
    std::string file;   // that declares it; empty for a built-in one
    std::string entry;  // of the file: a section or a key
    std::string place;  // file and entry in short, as tables show them
    auto operator<=>(const PortHolder &) const = default;
};

// "web_http (system/web.sc)".
std::string HolderText(const PortHolder &holder);

struct Declaration {
    PortRange range;
    std::uint32_t protocols;
    PortHolder holder;
};

using Declarations = std::vector<Declaration>;

Declarations DeclaredBy(const FirewallServices &services);
Declarations DeclaredBy(const RuleFile &file);

// Taken ports and their holders; none where it is not known who holds them.
class HeldPorts {
  public:
    struct Row {
        PortRange range;
        std::uint32_t protocols;
        std::vector<PortHolder> holders;
    };

    // Adds the ports of a set that are taken for `protocols`, each with those who declare it for
    // one of them and are not skipped.
    void Add(const PortRanges &taken, std::uint32_t protocols, const Declarations &declarations,
             const SkippedNames &skipped);

    // Adds them without a holder.
    void Add(const PortRanges &taken, std::uint32_t protocols) { Add(taken, protocols, {}, {}); }

    // In the order of ports; a port that several declare as part of different ranges has a row for
    // each range.
    std::vector<Row> Rows() const;

  private:
    using Holders = std::map<PortHolder, std::uint32_t>;  // with the protocols
    std::map<PortRange, Holders> by_range_;
};

}  // namespace tavo::tool

#endif
