// Text from files, arguments and the system for printing.
//
// Such text is not trusted: a terminal interprets control characters. Escape all printed text with
// Escaped, even if the output is not a terminal. Different texts have different escaped forms.
#ifndef TAVO_SERVICETOOL_OUTPUT_TEXT_H
#define TAVO_SERVICETOOL_OUTPUT_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::tool {

// The first character of a text. A byte that does not start a UTF-8 character is a character of its
// own.
struct Character {
    std::size_t size;  // in bytes, at least 1
    char32_t code;     // code point; the byte if `valid` is false
    bool valid;
};

// `text` must not be empty.
Character FirstCharacter(std::string_view text);

// Whether the byte belongs to a UTF-8 character that starts before it.
bool IsContinuation(char c);

// Whether the character must be escaped: C0 and C1 control characters, and characters that are
// invisible or change the direction of the following text.
bool IsControl(char32_t code);

// Whether the text is its own escaped form, and each of its bytes takes one column.
bool IsPlain(std::string_view text);

// Escapes `text`: \n, \t, \r and \\, \xNN for other control bytes and invalid UTF-8, and \uNNNN or
// \UNNNNNNNN for control characters beyond ASCII.
std::string Escaped(std::string_view text);

// The width of an escaped text in columns of a terminal.
std::size_t DisplayWidth(std::string_view escaped);

// Marks the part of a text that is cut off.
inline constexpr std::string_view kCut = "...";

// Ends a coloured text on a terminal.
inline constexpr std::string_view kPlain = "\x1b[0m";

// The longest prefix of an escaped text with at most `width` columns.
std::string_view FirstColumns(std::string_view escaped, std::size_t width);

// The part of a path after its last slash.
inline std::string_view LastPart(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

// `text` for a message; a long one is cut and ends with "...".
std::string Shortened(std::string_view text);

// The same in double quotes.
std::string Quoted(std::string_view text);

// `text` for JSON: unchanged if it is UTF-8, else with \xNN for each invalid byte.
std::string Utf8Text(std::string_view text);

// Converts ASCII letters to lower case.
std::string LowerCase(std::string_view text);

// Converts a message of another library to our form: first word in lower case, no full stop.
std::string LowerFirst(std::string_view message);

// A number with a noun: "1 error", "2 errors".
std::string Counted(std::size_t n, std::string_view thing);

// Replaces each `from` in `text` with `to`. If `from` is empty, `text` is unchanged.
std::string Replaced(std::string text, std::string_view from, std::string_view to);

// "a", "a and b", "a, b and c", with `last` before the last text.
std::string Enumerated(const std::vector<std::string> &texts, std::string_view last = " and ");

// Whether the text is one of `texts`.
bool Holds(const std::vector<std::string> &texts, std::string_view text);

}  // namespace tavo::tool

#endif
