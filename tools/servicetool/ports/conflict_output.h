// Taken ports as tables and as JSON.
#ifndef TAVO_SERVICETOOL_PORTS_CONFLICT_OUTPUT_H
#define TAVO_SERVICETOOL_PORTS_CONFLICT_OUTPUT_H

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ports/port_sources.h"

namespace tavo::tool {

// "free", "taken" or "unknown".
std::string_view VerdictName(PortVerdict verdict);

// "80/tcp is free", "80/tcp: cannot tell (service, setting)" for the sources that failed. Very many
// ports are cut.
std::string VerdictText(const PortQuery &query, const PortAnswer &answer);

Json ConflictJson(const PortConflict &conflict);

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
