// Tables: a header in capitals, one line per row, columns as wide as their longest cell.
#ifndef TAVO_SERVICETOOL_OUTPUT_TABLE_H
#define TAVO_SERVICETOOL_OUTPUT_TABLE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::tool {

class Table {
  public:
    explicit Table(const std::vector<std::string> &header);

    // Adds a row, one cell per column. Cells are escaped here; an empty one is printed as "-".
    void Row(const std::vector<std::string> &cells);

    bool HasRows() const { return cells_.size() > columns_; }

    // The lines of the table. If they are wider than `columns` (0: no limit), the last column is
    // cut to fit and ends with "...".
    std::string Text(bool header, std::size_t columns) const;

  private:
    struct Cell {
        std::uint32_t end;  // offset in the text
        std::uint32_t width;
    };

    std::string_view CellText(std::size_t number) const;

    std::size_t columns_;
    std::string text_;         // the escaped texts of all cells; the header is the first row
    std::vector<Cell> cells_;  // by row
};

}  // namespace tavo::tool

#endif
