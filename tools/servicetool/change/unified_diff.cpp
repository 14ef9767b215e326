#include "change/unified_diff.h"

#include <algorithm>
#include <cstddef>
#include <dtl/dtl.hpp>
#include <iterator>
#include <utility>
#include <vector>

#include "output/text.h"

namespace tavo::tool {
namespace {

using Lines = std::vector<std::string>;
using LineDiff = dtl::Diff<std::string, Lines>;

// More than any service file has. For larger files only the number of lines is reported.
constexpr std::size_t kMostLines = 20000;

// diff prints this if the last line has no newline. Here it is part of the line, so that lines with
// and without a newline differ.
constexpr char kNoNewline[] = "\n\\ No newline at end of file";

Lines LinesOf(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const bool whole = end != std::string_view::npos;
        lines.push_back(std::string(text.substr(0, end)) + (whole ? "" : kNoNewline));
        text.remove_prefix(whole ? end + 1 : text.size());
    }
    return lines;
}

// A line with its change.
struct Edit {
    dtl::edit_t type;
    std::string line;
};

// The lines of both texts in order; for replaced lines, the removed ones come first.
std::vector<Edit> EditsOf(const Lines &before, const Lines &after) {
    LineDiff diff(before, after);
    diff.onHuge();  // a bound for the memory that very different files take
    diff.compose();
    std::vector<Edit> edits;
    std::vector<Edit> added;
    const auto flush = [&] {
        std::move(added.begin(), added.end(), std::back_inserter(edits));
        added.clear();
    };
    for (const auto &[line, info] : diff.getSes().getSequence()) {
        if (info.type == dtl::SES_COMMON) {
            flush();
        }
        (info.type == dtl::SES_ADD ? added : edits).push_back({info.type, line});
    }
    flush();
    return edits;
}

// A range in a hunk's header, such as "12,3": `count` lines after the first `passed` ones. An empty
// range starts with the line before it.
std::string RangeText(std::size_t passed, std::size_t count) {
    const std::string first = std::to_string(count == 0 ? passed : passed + 1);
    return count == 1 ? first : first + ',' + std::to_string(count);
}

// Writes the hunks, each with lines of context around its changes.
class HunkWriter {
  public:
    explicit HunkWriter(std::vector<Edit> edits) : edits_(std::move(edits)) {}

    std::string Write();

  private:
    std::size_t EndOfHunk(std::size_t change) const;
    std::size_t NextChange(std::size_t from) const;
    void WriteHunk(std::size_t first, std::size_t end);

    static constexpr std::size_t kContext = 3;

    std::vector<Edit> edits_;
    std::size_t before_ = 0;  // lines of each text already processed
    std::size_t after_ = 0;
    std::string text_;
};

std::size_t HunkWriter::NextChange(std::size_t from) const {
    const auto changes = [](const Edit &edit) { return edit.type != dtl::SES_COMMON; };
    return static_cast<std::size_t>(
        std::find_if(edits_.begin() + static_cast<std::ptrdiff_t>(from), edits_.end(), changes) -
        edits_.begin());
}

// Changes with adjacent or overlapping context share a hunk.
std::size_t HunkWriter::EndOfHunk(std::size_t change) const {
    std::size_t next = change;
    while (next != edits_.size() && next <= change + 2 * kContext) {
        change = next + 1;
        next = NextChange(change);
    }
    return std::min(change + kContext, edits_.size());
}

std::string HunkWriter::Write() {
    std::size_t at = 0;
    for (std::size_t change = NextChange(0); change != edits_.size(); change = NextChange(at)) {
        const std::size_t first = change - std::min(change - at, kContext);
        before_ += first - at;
        after_ += first - at;
        at = EndOfHunk(change);
        WriteHunk(first, at);
    }
    return std::move(text_);
}

void HunkWriter::WriteHunk(std::size_t first, std::size_t end) {
    std::string lines;
    std::size_t before = 0;
    std::size_t after = 0;
    for (std::size_t i = first; i < end; ++i) {
        const dtl::edit_t type = edits_[i].type;
        before += type == dtl::SES_ADD ? 0 : 1;
        after += type == dtl::SES_DELETE ? 0 : 1;
        lines += type == dtl::SES_ADD ? '+' : type == dtl::SES_DELETE ? '-' : ' ';
        lines += edits_[i].line + '\n';
    }
    text_ +=
        "@@ -" + RangeText(before_, before) + " +" + RangeText(after_, after) + " @@\n" + lines;
    before_ += before;
    after_ += after;
}

std::string Hunks(const Lines &before, const Lines &after) {
    if (before.size() + after.size() > kMostLines) {
        return "(" + Counted(before.size(), "line") + " before, " + Counted(after.size(), "line") +
               " after: too many to be shown)\n";
    }
    return HunkWriter(EditsOf(before, after)).Write();
}

std::string Label(const FileText &text, char side, const std::string &path) {
    return text ? side + path : "/dev/null";
}

std::string_view ColourOf(std::string_view line) {
    switch (line.front()) {
        case '-':
            return "\x1b[31m";
        case '+':
            return "\x1b[32m";
        case '@':
            return "\x1b[36m";
        default:
            return {};
    }
}

// Lines of the file start with a sign; only kNoNewline starts with a backslash.
std::string ShownLine(std::string_view line) {
    return line.front() == kNoNewline[1] ? std::string(line) : Escaped(line);
}

}  // namespace

std::string UnifiedDiff(const FileText &before, const FileText &after, const std::string &path) {
    if (before == after) {
        return {};
    }
    return "--- " + Label(before, 'a', path) + "\n+++ " + Label(after, 'b', path) + '\n' +
           Hunks(LinesOf(before.value_or("")), LinesOf(after.value_or("")));
}

std::string ShownDiff(std::string_view diff, bool colour) {
    constexpr std::string_view kPlain = "\x1b[0m";
    std::string shown;
    while (!diff.empty()) {
        const std::string_view line = diff.substr(0, diff.find('\n'));
        diff.remove_prefix(std::min(line.size() + 1, diff.size()));
        const std::string_view in = colour ? ColourOf(line) : std::string_view();
        shown.append(in).append(ShownLine(line)).append(in.empty() ? "" : kPlain) += '\n';
    }
    return shown;
}

}  // namespace tavo::tool
