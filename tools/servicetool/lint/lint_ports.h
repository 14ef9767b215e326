// The ports that the lists of a service file name.
#ifndef TAVO_SERVICETOOL_LINT_LINT_PORTS_H
#define TAVO_SERVICETOOL_LINT_LINT_PORTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "lint/findings.h"
#include "ports/port_query.h"

namespace tavo::tool {

// A set of ports that grows. A file may contain millions of ranges, so ranges that are already in
// the set are skipped as a whole.
class PortSet {
  public:
    // The lowest port of the range that is in the set.
    std::optional<std::uint32_t> FirstIn(const PortRange &range) const;

    // Adds the range. Returns the parts of it that were not in the set.
    PortRanges Add(const PortRange &range);

  private:
    std::map<std::uint32_t, std::uint32_t> ranges_;  // disjoint, start to end
};

// The destination ports that the services of a file declare. Two services that declare the same
// port and protocol conflict when the file is checked for conflicts.
class DeclaredPorts {
  public:
    // Adds the ports of `service` from a line with a valid port list. Adds a finding for each item
    // that contains a declared port.
    void Add(std::string_view service, const ConfigLine &line, Findings &findings);

  private:
    struct Declaration {
        std::string_view service;
        std::size_t line;
    };

    struct ProtocolPorts {
        PortSet declared;
        std::vector<std::uint32_t> firsts;  // by port, the index of its first declaration
    };

    std::vector<Declaration> declarations_;
    std::array<ProtocolPorts, 2> protocols_;  // by row of the library's protocol map
};

}  // namespace tavo::tool

#endif
