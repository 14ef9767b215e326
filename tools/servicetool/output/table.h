// Tables for people: a header in capitals, one line per thing, columns as wide as what they hold.
#ifndef TAVO_SERVICETOOL_OUTPUT_TABLE_H
#define TAVO_SERVICETOOL_OUTPUT_TABLE_H

#include <cstddef>
#include <string>
#include <string_view>
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
    struct Cell {
        std::size_t end;  // in the text, where the next one begins
        std::size_t width;
    };

    std::string_view CellText(std::size_t number) const;

    std::size_t columns_;
    std::string text_;         // of all cells, escaped; the header is the first row
    std::vector<Cell> cells_;  // row by row
};

}  // namespace tavo::tool

#endif
