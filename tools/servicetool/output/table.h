// Tables for people: a header in capitals, one line per thing, columns as wide as what they hold.
#ifndef TAVO_SERVICETOOL_OUTPUT_TABLE_H
#define TAVO_SERVICETOOL_OUTPUT_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace tavo::tool {

class Table {
  public:
    explicit Table(std::vector<std::string> header);

    // One cell per column, as the texts came; an empty one is shown as "-".
    void Row(std::vector<std::string> cells);

    // The lines of the table. Where they are wider than `columns` (0: there is no limit) the last
    // column is cut to fit, with "..." at the cut.
    std::string Text(bool header, std::size_t columns) const;

  private:
    std::vector<std::vector<std::string>> rows_;  // escaped; the header is the first
};

}  // namespace tavo::tool

#endif
