// The line-level grammar of configuration files: the readers, the writers and servicetool's lint
// all use ConfigLineReader.
//
// The grammar is described in tavocore.h. Text is bytes; offsets and columns count bytes.
#ifndef TAVO_PLATFORM_CORE_CONFIG_LINES_H
#define TAVO_PLATFORM_CORE_CONFIG_LINES_H

#include <cstddef>
#include <string_view>

namespace tavo {

// The six white space characters of ASCII, independent of the locale. The first comparison decides
// for nearly every character.
constexpr bool IsBlank(char c) {
    return static_cast<unsigned char>(c) <= ' ' && (c == ' ' || (c >= '\t' && c <= '\r'));
}

// ASCII letters in lower case, independent of the locale.
constexpr char Lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// `text` without the blanks at one end or at both; the result always points into `text`.
constexpr std::string_view TrimStart(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}
constexpr std::string_view TrimEnd(std::string_view text) {
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}
constexpr std::string_view TrimBlanks(std::string_view text) {
    return TrimEnd(TrimStart(text));
}

// Whether a value is surrounded by quotes, which are removed when it is read.
constexpr bool IsQuoted(std::string_view value) {
    return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

// Whether a value changes when it is written without quotes and read back. Such a value was quoted
// in the file, because only then can a value have quotes at both ends or a blank at one end.
constexpr bool NeedsQuotes(std::string_view value) {
    return IsQuoted(value) || (!value.empty() && (IsBlank(value.front()) || IsBlank(value.back())));
}

enum class ConfigLineKind {
    kBlank,
    kComment,
    kSection,   // [name]
    kKeyValue,  // key=value
    kOther,     // any other line: skipped by the readers, kept by the writers
};

struct ConfigLine {
    ConfigLineKind kind = ConfigLineKind::kBlank;
    std::size_t number = 0;      // from 1
    std::size_t begin = 0;       // offset in the text; a byte-order mark is not part of the line
    std::size_t end = 0;         // offset after the line end, where the next line begins
    std::string_view text;       // the line without its line end (LF, CRLF or none at the end)
    std::string_view name;       // kSection: the text between the brackets. kKeyValue: the key
    std::string_view raw_value;  // kKeyValue: the value as written, trimmed
    std::string_view value;      // kKeyValue: raw_value without one pair of quotes

    // The column, from 1, of `part`, one of the views above.
    std::size_t ColumnOf(std::string_view part) const {
        return static_cast<std::size_t>(part.data() - text.data()) + 1;
    }
};

// Parses one line without its line end, as the reader would parse it anywhere in a file. Number and
// offsets are 0.
ConfigLine ParseConfigLine(std::string_view text);

// Reads a text line by line. The text must outlive the reader and the lines it returns.
class ConfigLineReader {
  public:
    explicit ConfigLineReader(std::string_view text);

    // For a text that is known to contain or not to contain a NUL byte.
    ConfigLineReader(std::string_view text, bool holds_nul);

    // For whole lines from the middle of such a text, where there is no byte-order mark.
    static ConfigLineReader OfLines(std::string_view lines, bool holds_nul);

    // Gets the next line. Returns false at the end of the text; `line` is then unchanged.
    bool Next(ConfigLine &line);

    // Gets the next section header and skips the lines before it without examining them. Returns
    // false if there is none; `line` is then unchanged. Skipped lines are not counted, so this is
    // only for readers that need no line numbers.
    bool NextSection(ConfigLine &line);

  private:
    // Moves to the line at `position` if it has only blanks before that position.
    bool MoveToLineOf(std::size_t position);

    std::string_view text_;
    std::size_t offset_ = 0;
    std::size_t number_ = 0;
    bool holds_nul_ = false;
};

}  // namespace tavo

#endif
