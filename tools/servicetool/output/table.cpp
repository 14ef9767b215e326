#include "output/table.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr std::string_view kGap = "  ";
constexpr std::string_view kCut = "...";

// Narrower than this a cut text tells nothing, and the terminal may wrap the line.
constexpr std::size_t kLeastColumns = 8;

std::string CutTo(const std::string &cell, std::size_t columns) {
    if (DisplayWidth(cell) <= columns) {
        return cell;
    }
    return std::string(FirstColumns(cell, columns - kCut.size())) + std::string(kCut);
}

}  // namespace

Table::Table(std::vector<std::string> header) {
    Row(std::move(header));
}

void Table::Row(std::vector<std::string> cells) {
    for (std::string &cell : cells) {
        cell = cell.empty() ? "-" : Escaped(cell);
    }
    rows_.push_back(std::move(cells));
}

std::string Table::Text(bool header, std::size_t columns) const {
    const std::size_t last = rows_.front().size() - 1;
    const auto first_row = rows_.begin() + (header ? 0 : 1);
    std::vector<std::size_t> widths(last, 0);
    for (auto row = first_row; row != rows_.end(); ++row) {
        for (std::size_t i = 0; i < last; ++i) {
            widths[i] = std::max(widths[i], DisplayWidth((*row)[i]));
        }
    }
    std::size_t left = 0;
    for (const std::size_t width : widths) {
        left += width + kGap.size();
    }
    std::string text;
    for (auto row = first_row; row != rows_.end(); ++row) {
        for (std::size_t i = 0; i < last; ++i) {
            const std::string &cell = (*row)[i];
            text += cell + std::string(widths[i] - DisplayWidth(cell), ' ') + std::string(kGap);
        }
        const std::string &cell = (*row)[last];
        text += columns == 0
                    ? cell
                    : CutTo(cell, std::max(columns - std::min(columns, left), kLeastColumns));
        text += '\n';
    }
    return text;
}

}  // namespace tavo::tool
