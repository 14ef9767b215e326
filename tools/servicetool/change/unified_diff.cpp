#include <algorithm>
#include <cstddef>
#include <dtl/dtl.hpp>
#include <span>
#include <utility>
#include <vector>

#include "change/installed_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

using Lines = std::vector<std::string>;

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

// Lines with their changes.
using Edits = std::vector<std::pair<std::string, dtl::elemInfo>>;

bool IsChanged(const Edits::value_type &edit) {
    return edit.second.type != dtl::SES_COMMON;
}

// The lines of both texts in order; for replaced lines, the removed ones come first.
Edits EditsOf(const Lines &before, const Lines &after) {
    dtl::Diff<std::string, Lines> diff(before, after);
    diff.onHuge();  // a bound for the memory that very different files take
    diff.compose();
    Edits edits = diff.getSes().getSequence();
    for (auto start = edits.begin(); start != edits.end();) {
        const auto end = std::find_if_not(start, edits.end(), IsChanged);
        std::stable_partition(start, end,
                              [](const auto &edit) { return edit.second.type == dtl::SES_DELETE; });
        start = end == edits.end() ? end : end + 1;
    }
    return edits;
}

// A range in a hunk's header, such as "12,3": `count` lines after the first `passed` ones. An empty
// range starts with the line before it.
std::string RangeText(std::size_t passed, std::size_t count) {
    const std::string first = std::to_string(count == 0 ? passed : passed + 1);
    return count == 1 ? first : first + ',' + std::to_string(count);
}

// Whether a line is changed or near a change.
bool IsShown(std::span<const Edits::value_type> edits, std::size_t line) {
    constexpr std::size_t kContext = 3;
    const std::size_t first = line - std::min(line, kContext);
    const std::size_t end = std::min(line + kContext + 1, edits.size());
    return std::ranges::any_of(edits.subspan(first, end - first), IsChanged);
}

// Each run of shown lines is a hunk, so changes with adjacent or overlapping context share one.
std::string HunksOf(const Edits &edits) {
    std::string text;
    std::size_t passed_before = 0;
    std::size_t passed_after = 0;
    for (std::size_t i = 0; i < edits.size(); ++i) {
        std::string lines;
        std::size_t before = 0;
        std::size_t after = 0;
        for (; i < edits.size() && IsShown(edits, i); ++i) {
            const auto &[line, info] = edits[i];
            const dtl::edit_t type = info.type;
            before += type == dtl::SES_ADD ? 0 : 1;
            after += type == dtl::SES_DELETE ? 0 : 1;
            lines += type == dtl::SES_ADD ? '+' : type == dtl::SES_DELETE ? '-' : ' ';
            lines += line + '\n';
        }
        if (!lines.empty()) {
            text += "@@ -" + RangeText(passed_before, before) + " +" +
                    RangeText(passed_after, after) + " @@\n" + lines;
        }
        // A hunk ends before a line that is not shown.
        passed_before += before + 1;
        passed_after += after + 1;
    }
    return text;
}

std::string_view ColourOf(std::string_view line) {
    constexpr std::pair<char, std::string_view> kColours[] = {
        {'-', "\x1b[31m"}, {'+', "\x1b[32m"}, {'@', "\x1b[36m"}};
    for (const auto &[sign, colour] : kColours) {
        if (line.front() == sign) {
            return colour;
        }
    }
    return {};
}

}  // namespace

std::string UnifiedDiff(const FileText &before, const FileText &after, const std::string &path) {
    if (before == after) {
        return {};
    }
    const std::string missing = "/dev/null";
    const std::string header =
        "--- " + (before ? 'a' + path : missing) + "\n+++ " + (after ? 'b' + path : missing) + '\n';
    const Lines old_lines = LinesOf(before.value_or(""));
    const Lines new_lines = LinesOf(after.value_or(""));
    if (old_lines.size() + new_lines.size() > kMostLines) {
        return header + "(" + Counted(old_lines.size(), "line") + " before, " +
               Counted(new_lines.size(), "line") + " after: too many to be shown)\n";
    }
    return header + HunksOf(EditsOf(old_lines, new_lines));
}

std::string ShownDiff(std::string_view diff, bool colour) {
    std::string shown;
    for (const std::string &line : LinesOf(diff)) {
        const std::string_view in = colour ? ColourOf(line) : std::string_view();
        // Lines of the file start with a sign; only kNoNewline starts with a backslash.
        const bool own = line.front() == kNoNewline[1];
        shown.append(in).append(own ? line : Escaped(line));
        shown.append(in.empty() ? "" : kPlain) += '\n';
    }
    return shown;
}

}  // namespace tavo::tool
