#include "output/report.h"

#include <utility>

#include "output/text.h"

namespace tavo::tool {
namespace {

// The part of a line to keep on each side of the spot; enough for wide terminals.
constexpr std::size_t kContextBytes = 200;

// A narrower cut would be useless, so the line may then wrap instead.
constexpr std::size_t kLeastColumns = 30;

constexpr std::string_view kIndent = "    ";

constexpr std::string_view kBoldRed = "\x1b[1;31m";
constexpr std::string_view kBoldYellow = "\x1b[1;33m";
constexpr std::string_view kBoldGreen = "\x1b[1;32m";

std::string Coloured(std::string_view text, std::string_view code, bool colour) {
    return colour ? std::string(code) + std::string(text) + std::string(kPlain) : std::string(text);
}

// Moves a cut back to the start of the character that it would split, but not further than the
// longest character: invalid UTF-8 may have no such start.
std::size_t CharacterStart(std::string_view text, std::size_t offset) {
    for (std::size_t back = 0; back < 4 && back <= offset; ++back) {
        const std::size_t start = offset - back;
        if (start == text.size() || !IsContinuation(text[start])) {
            return start;
        }
    }
    return offset;
}

std::string Place(const Diagnostic &diagnostic) {
    if (diagnostic.file.empty()) {
        return "servicetool: ";
    }
    std::string place = Escaped(diagnostic.file) + ':';
    if (diagnostic.line != 0) {
        place += std::to_string(diagnostic.line) + ':' + std::to_string(diagnostic.column) + ':';
    }
    return place + ' ';
}

std::string Before(const SourceLine &source) {
    return std::string(source.cut_before ? kCut : "") +
           Escaped(std::string_view(source.text).substr(0, source.spot));
}

std::string After(const SourceLine &source) {
    return Escaped(std::string_view(source.text).substr(source.spot)) +
           std::string(source.cut_after ? kCut : "");
}

// Cuts the line to `columns`, from its wider side. Removes whole characters, so that no escape
// sequence is split.
SourceLine Narrowed(SourceLine line, std::size_t columns) {
    std::size_t before = DisplayWidth(Before(line));
    std::size_t after = DisplayWidth(After(line));
    // A caret after the end of the line also needs a column.
    while (before + std::max<std::size_t>(after, 1) > columns) {
        if (before > after && line.spot > 0) {
            const std::size_t size = std::min(FirstCharacter(line.text).size, line.spot);
            before -= DisplayWidth(Escaped(line.text.substr(0, size)));
            before += std::exchange(line.cut_before, true) ? 0 : kCut.size();
            line.text.erase(0, size);
            line.spot -= size;
        } else if (line.text.size() > line.spot) {
            const std::size_t last = CharacterStart(line.text, line.text.size() - 1);
            const std::size_t end = std::max(last, line.spot);
            after -= DisplayWidth(Escaped(line.text.substr(end)));
            after += std::exchange(line.cut_after, true) ? 0 : kCut.size();
            line.text.resize(end);
        } else {
            break;
        }
    }
    return line;
}

std::string SourceText(const SourceLine &whole, bool colour, std::size_t columns) {
    const std::size_t room = std::max(columns, kLeastColumns) - kIndent.size();
    const SourceLine source = Narrowed(whole, room);
    const std::string before = Before(source);
    return std::string(kIndent) + before + After(source) + '\n' + std::string(kIndent) +
           std::string(DisplayWidth(before), ' ') + Coloured("^", kBoldGreen, colour) + '\n';
}

}  // namespace

std::string_view SeverityName(Severity severity) {
    return severity == Severity::kError ? "error" : "warning";
}

SourceLine AroundSpot(std::string_view line, std::size_t spot) {
    std::size_t begin = 0;
    std::size_t end = line.size();
    if (line.size() > 2 * kContextBytes) {
        begin = spot > kContextBytes ? CharacterStart(line, spot - kContextBytes) : 0;
        if (line.size() - spot > kContextBytes) {
            end = CharacterStart(line, spot + kContextBytes);
        }
    }
    return {std::string(line.substr(begin, end - begin)), spot - begin, begin != 0,
            end != line.size()};
}

Diagnostic Error(std::string file, std::string rule, std::string message, std::string fix) {
    return {.file = std::move(file),
            .rule = std::move(rule),
            .message = std::move(message),
            .fix = std::move(fix)};
}

Diagnostic Warning(Diagnostic diagnostic) {
    diagnostic.severity = Severity::kWarning;
    return diagnostic;
}

Diagnostic AtSpot(const ConfigLine &line, std::string_view spot, Diagnostic diagnostic) {
    diagnostic.line = line.number;
    diagnostic.column = line.ColumnOf(spot);
    diagnostic.source = AroundSpot(line.text, diagnostic.column - 1);
    return diagnostic;
}

std::string DiagnosticText(const Diagnostic &diagnostic, bool colour, std::size_t columns) {
    const bool error = diagnostic.severity == Severity::kError;
    std::string text = Place(diagnostic) +
                       Coloured(std::string(SeverityName(diagnostic.severity)) + ':',
                                error ? kBoldRed : kBoldYellow, colour) +
                       ' ' + Escaped(diagnostic.message) + " [" + diagnostic.rule + "]\n";
    if (diagnostic.line != 0) {
        text += SourceText(diagnostic.source, colour, columns);
    }
    if (!diagnostic.fix.empty()) {
        text += std::string(kIndent) + "fix: " + Escaped(diagnostic.fix) + '\n';
    }
    return text;
}

}  // namespace tavo::tool
