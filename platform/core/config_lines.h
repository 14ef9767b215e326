// The line-level grammar of configuration files, in one place: the readers, the writers and
// servicetool's lint all see a file through ConfigLineReader.
//
// The grammar itself is told in tavocore.h. Text is bytes; every offset and column counts bytes.
#ifndef TAVO_PLATFORM_CORE_CONFIG_LINES_H
#define TAVO_PLATFORM_CORE_CONFIG_LINES_H

#include <cstddef>
#include <string_view>

namespace tavo {

// The six white space characters of ASCII, in any locale.
constexpr bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// ASCII letters in lower case, in any locale.
constexpr char Lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// `text` without the blanks at both ends; the result always points into `text`.
constexpr std::string_view TrimBlanks(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin != end && IsBlank(text[begin])) {
        ++begin;
    }
    while (end != begin && IsBlank(text[end - 1])) {
        --end;
    }
    return {text.data() + begin, end - begin};
}

// Whether a value is read without its first and last byte, a pair of quotes.
constexpr bool IsQuoted(std::string_view value) {
    return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

// Whether a value that was read is read as something else when it is written back without a pair of
// quotes around it. It stood in such a pair then: no other text is read with quotes at both ends
// or a blank at one.
constexpr bool NeedsQuotes(std::string_view value) {
    return IsQuoted(value) || (!value.empty() && (IsBlank(value.front()) || IsBlank(value.back())));
}

enum class ConfigLineKind {
    kBlank,
    kComment,
    kSection,   // [name]
    kKeyValue,  // key=value
    kOther,     // none of these: skipped by the readers, kept by the writers
};

struct ConfigLine {
    ConfigLineKind kind = ConfigLineKind::kBlank;
    std::size_t number = 0;  // from 1
    std::size_t begin = 0;   // offset of the line in the text; a byte-order mark is no part of it
    std::size_t end = 0;     // offset behind its line end, where the next line begins
    std::string_view text;   // the line without its line end (LF, CRLF or none at the end)
    std::string_view name;   // kSection: what stands between the brackets. kKeyValue: the key
    std::string_view raw_value;  // kKeyValue: the value as written, trimmed
    std::string_view value;      // kKeyValue: raw_value without its one pair of quotes

    // The column, from 1, at which `part`, one of the views above, begins.
    std::size_t ColumnOf(std::string_view part) const {
        return static_cast<std::size_t>(part.data() - text.data()) + 1;
    }
};

// One line, given without its line end: what the reader makes of it anywhere in a file. Its number
// and offsets are 0.
ConfigLine ParseConfigLine(std::string_view text);

// Walks a text line by line. The text must outlive the reader and the lines it gives.
class ConfigLineReader {
  public:
    explicit ConfigLineReader(std::string_view text);

    // For a text of which it is known whether there is a NUL byte in it.
    ConfigLineReader(std::string_view text, bool holds_nul);

    // For whole lines from the middle of such a text, where no byte-order mark stands.
    static ConfigLineReader OfLines(std::string_view lines, bool holds_nul);

    // Gives the next line; false at the end of the text, `line` then being as it was.
    bool Next(ConfigLine &line);

    // Gives the next line that opens a section, passing over what stands before it without a look;
    // false when there is none, `line` then being as it was. Lines passed over are not counted: for
    // readers that need no line numbers.
    bool NextSection(ConfigLine &line);

  private:
    // Moves to the line of `position` when only blanks stand before it there.
    bool MoveToLineOf(std::size_t position);

    std::string_view text_;
    std::size_t offset_ = 0;
    std::size_t number_ = 0;
    bool holds_nul_ = false;
};

}  // namespace tavo

#endif
