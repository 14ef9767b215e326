#include "output/report.h"

#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <utility>

#include "input/input_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr int kSchema = 1;

Json NumberOrNull(std::size_t number) {
    return number == 0 ? Json(nullptr) : Json(number);
}

Json DiagnosticJson(const Diagnostic &diagnostic) {
    return {{"file", TextOrNull(diagnostic.file)},
            {"line", NumberOrNull(diagnostic.line)},
            {"column", NumberOrNull(diagnostic.column)},
            {"severity", SeverityName(diagnostic.severity)},
            {"rule", diagnostic.rule},
            {"message", Utf8Text(diagnostic.message)},
            {"fix", TextOrNull(diagnostic.fix)}};
}

// An array of JSON texts, one per line, so that diff and grep can be used on the document.
std::string ArrayText(const std::vector<std::string> &elements) {
    std::string text;
    for (const std::string &element : elements) {
        text += (text.empty() ? "\n" : ",\n") + element;
    }
    return '[' + text + ']';
}

// The blanks between the columns of a table.
constexpr std::size_t kGap = 2;

// A narrower cut of a cell would be useless, so the line may then wrap instead.
constexpr std::size_t kLeastColumns = 8;

}  // namespace

WindowSize Report::Window(int descriptor) const {
    winsize size{};
    return isatty(descriptor) == 1 && ioctl(descriptor, TIOCGWINSZ, &size) == 0
               ? WindowSize{size.ws_col, size.ws_row}
               : WindowSize{};
}

bool Report::Colour(int descriptor) const {
    const char *no_colour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    return (no_colour == nullptr || *no_colour == '\0') && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0 && isatty(descriptor) == 1;
}

void Report::Add(const Diagnostic &diagnostic) {
    if (json_) {
        diagnostics_.push_back(DiagnosticJson(diagnostic).Text());
        return;
    }
    // Keeps the order of output if both streams go to one terminal.
    std::fflush(stdout);
    // If standard error is not a terminal, diagnostics have the width of an ordinary one.
    constexpr std::size_t kOrdinary = 80;
    const std::size_t columns = Window(STDERR_FILENO).columns;
    const std::string text =
        DiagnosticText(diagnostic, Colour(STDERR_FILENO), columns == 0 ? kOrdinary : columns);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void Report::AddError(std::string file, std::string rule, std::string message, std::string fix,
                      Status status) {
    Raise(status);
    Add(Error(std::move(file), std::move(rule), std::move(message), std::move(fix)));
}

void Report::AddWarning(std::string file, std::string rule, std::string message, std::string fix,
                        Status status) {
    Raise(status);
    Add(Warning(Error(std::move(file), std::move(rule), std::move(message), std::move(fix))));
}

void Report::AddUsageError(std::string message, std::string fix) {
    AddError("", "usage", std::move(message), std::move(fix), Status::kUsage);
}

void Report::Print(std::string_view text) {
    if (!json_) {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
}

void Report::PrintDone(const std::string &line) {
    Print(line + '\n');
    done_ += "; " + line;
}

void Report::AddResult(const Json &result) {
    if (json_) {
        results_.push_back(result.Text());
    }
}

int Report::Finish() {
    if (json_) {
        const std::string document = "{\"schema\":" + std::to_string(kSchema) +
                                     ",\"ok\":" + (status_ == Status::kOk ? "true" : "false") +
                                     ",\"results\":" + ArrayText(results_) +
                                     ",\"diagnostics\":" + ArrayText(diagnostics_) + "}\n";
        std::fwrite(document.data(), 1, document.size(), stdout);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fprintf(stderr, "servicetool: error: standard output: %s%s [failed]\n",
                     ErrorText(errno).c_str(), done_.c_str());
        return static_cast<int>(Status::kFailed);
    }
    return static_cast<int>(status_);
}

// ---- Tables

// Reserved memory costs nothing until it is used, while growing a long table would copy it, to
// memory that is new each time.
Table::Table(const std::vector<std::string> &header) : columns_(header.size()) {
    constexpr std::size_t kManyBytes = std::size_t{4} << 20;
    text_.reserve(kManyBytes);
    cells_.reserve(kManyBytes / sizeof(Cell));
    Row(header);
}

void Table::Row(std::initializer_list<std::string_view> cells) {
    std::ranges::for_each(cells, [this](std::string_view cell) { AddCell(cell); });
}

void Table::Row(const std::vector<std::string> &cells) {
    std::ranges::for_each(cells, [this](std::string_view cell) { AddCell(cell); });
}

// Nearly all cells are plain; copying them only once makes long tables faster.
void Table::AddCell(std::string_view cell) {
    const std::string_view shown = cell.empty() ? "-" : cell;
    std::size_t width = shown.size();
    if (IsPlain(shown)) {
        text_ += shown;
    } else {
        const std::string escaped = Escaped(shown);
        width = DisplayWidth(escaped);
        text_ += escaped;
    }
    cells_.push_back({static_cast<std::uint32_t>(text_.size()), static_cast<std::uint32_t>(width)});
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
