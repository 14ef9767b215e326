#include <numeric>

#include "output/report.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// The blanks between columns.
constexpr std::size_t kGap = 2;

// A narrower cut would be useless, so the line may then wrap instead.
constexpr std::size_t kLeastColumns = 8;

}  // namespace

Table::Table(const std::vector<std::string> &header) : columns_(header.size()) {
    Row(header);
}

// Nearly all cells are plain; copying them only once makes long tables faster.
void Table::Row(const std::vector<std::string> &cells) {
    for (const std::string &cell : cells) {
        const std::string_view shown = cell.empty() ? "-" : std::string_view(cell);
        std::size_t width = shown.size();
        if (IsPlain(shown)) {
            text_ += shown;
        } else {
            const std::string escaped = Escaped(shown);
            width = DisplayWidth(escaped);
            text_ += escaped;
        }
        cells_.push_back(
            {static_cast<std::uint32_t>(text_.size()), static_cast<std::uint32_t>(width)});
    }
}

std::string_view Table::CellText(std::size_t number) const {
    const std::size_t begin = number == 0 ? 0 : cells_[number - 1].end;
    return std::string_view(text_).substr(begin, cells_[number].end - begin);
}

std::string Table::Text(bool header, std::size_t columns) const {
    const std::size_t last = columns_ - 1;
    const std::size_t first = header ? 0 : columns_;
    std::vector<std::size_t> widths(last, 0);
    for (std::size_t number = first; number < cells_.size(); ++number) {
        const std::size_t column = number % columns_;
        if (column != last) {
            widths[column] = std::max<std::size_t>(widths[column], cells_[number].width);
        }
    }
    const std::size_t left = std::accumulate(widths.begin(), widths.end(), last * kGap);
    const std::size_t room = std::max(columns - std::min(columns, left), kLeastColumns);
    std::string text;
    text.reserve(text_.size() + cells_.size() / columns_ * left);
    for (std::size_t number = first; number < cells_.size(); ++number) {
        const std::size_t column = number % columns_;
        const std::string_view cell = CellText(number);
        if (column != last) {
            text += cell;
            text.append(widths[column] - cells_[number].width + kGap, ' ');
        } else if (columns == 0 || cells_[number].width <= room) {
            text.append(cell) += '\n';
        } else {
            text.append(FirstColumns(cell, room - kCut.size())).append(kCut) += '\n';
        }
    }
    return text;
}

}  // namespace tavo::tool
