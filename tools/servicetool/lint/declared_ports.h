// The destination ports that the services of a file declare. Two services that declare the same
// port and protocol conflict when the file is checked for conflicts.
#ifndef TAVO_SERVICETOOL_LINT_DECLARED_PORTS_H
#define TAVO_SERVICETOOL_LINT_DECLARED_PORTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "lint/findings.h"

namespace tavo::tool {

// The first declaration of a port.
struct PortDeclaration {
    std::string_view service;
    std::size_t line;
};

// Ports of one protocol and their first declarations. A file may contain millions of ranges, so
// ranges that are already declared are skipped as a whole.
class PortOwners {
  public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    // The lowest port of first..last that is declared, or kNone.
    std::uint32_t FirstDeclared(std::uint32_t first, std::uint32_t last) const;

    const PortDeclaration &OwnerOf(std::uint32_t port) const { return owners_[by_port_[port]]; }

    // Assigns those ports of first..last that are not declared yet to `owner`.
    void Declare(std::uint32_t first, std::uint32_t last, const PortDeclaration &owner);

  private:
    std::map<std::uint32_t, std::uint32_t> ranges_;  // disjoint, start to end
    std::vector<std::uint32_t> by_port_;             // index into owners_
    std::vector<PortDeclaration> owners_;
};

class DeclaredPorts {
  public:
    // Adds the ports of `service` from a line with a valid port list. Adds a finding for each item
    // that contains a declared port.
    void Add(std::string_view service, const ConfigLine &line, Findings &findings);

  private:
    std::array<PortOwners, 2> protocols_;  // by row of the library's protocol map
};

}  // namespace tavo::tool

#endif
