// Text from files, arguments and the system on its way to a person.
//
// Nothing of it is trusted: a terminal obeys control bytes, so whatever is printed goes through
// Escaped, on a terminal or not, and what is printed never looks like anything else that was there.
#ifndef TAVO_SERVICETOOL_OUTPUT_TEXT_H
#define TAVO_SERVICETOOL_OUTPUT_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::tool {

// The first character of a text. A byte that starts no UTF-8 character is one of its own.
struct Character {
    std::size_t size;  // in bytes, at least 1
    char32_t code;     // its code point, or the byte where `valid` is false
    bool valid;
};

// `text` must not be empty.
Character FirstCharacter(std::string_view text);

// Whether a terminal would act on the character instead of showing it: C0 and C1 control
// characters, and those that are invisible or turn the direction of what follows.
bool IsControl(char32_t code);

// `text` with \n, \t and \r for those, \\ for a backslash, \xNN for other control bytes and bytes
// that are no UTF-8, and \uNNNN or \UNNNNNNNN for control characters beyond ASCII.
std::string Escaped(std::string_view text);

// How many columns of a terminal an escaped text takes.
std::size_t DisplayWidth(std::string_view escaped);

// The longest beginning of an escaped text that takes at most `width` columns.
std::string_view FirstColumns(std::string_view escaped, std::size_t width);

// `text` for a message, a long one cut with "..." behind it.
std::string Shortened(std::string_view text);

// The same in double quotes.
std::string Quoted(std::string_view text);

// `text` as JSON can hold it: as it is where it is UTF-8, else with \xNN for each byte that is not.
std::string Utf8Text(std::string_view text);

// ASCII letters in lower case, other characters as they are.
std::string LowerCase(std::string_view text);

// A message of some library in the form of ours: its first word in lower case, no full stop.
std::string LowerFirst(std::string_view message);

// `n` things: "1 error", "2 errors".
std::string Counted(std::size_t n, std::string_view thing);

// `text` with `to` for each `from`; an empty `from` is nowhere in it.
std::string Replaced(std::string text, std::string_view from, std::string_view to);

// Whether the text is one of `texts`.
bool Holds(const std::vector<std::string> &texts, std::string_view text);

}  // namespace tavo::tool

#endif
