// The ports that a service file asks for when it is installed.
#ifndef TAVO_SERVICETOOL_PORTS_SECTION_QUERIES_H
#define TAVO_SERVICETOOL_PORTS_SECTION_QUERIES_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "lint/lint.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// The ports of a list in the order of the file.
PortQuery QueryOf(const TAVO_SERVICE_CONF_PORT *ports);

struct SectionQuery {
    std::string section;
    PortQuery query;
    bool names_protocols = false;  // or else both are meant
    std::size_t line = 0;          // that opens the section
};

// Section [global] is no service, but an install asks for its ports too.
inline constexpr std::string_view kGlobalSection = "global";

// The line that opens a [global] without dst.ports; a part of `text`.
std::optional<ConfigLine> PortlessGlobalLine(std::string_view text);

// The destination ports of each section that the library reads in a file of that text: those of
// [global] first, then in file order. Returns none when the library does not read the file. Throws
// std::runtime_error or std::bad_alloc when the system keeps it from reading a service.
std::optional<std::vector<SectionQuery>> QueriesOf(const std::string &text, const LintResult &lint);
std::optional<std::vector<SectionQuery>> QueriesOf(const std::string &text);

}  // namespace tavo::tool

#endif
