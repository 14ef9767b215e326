// Searches texts by pattern, in the syntax of ECMAScript. Tests use these functions instead of
// <regex>, which takes seconds to compile in each source file.
#ifndef TAVO_TESTS_SUPPORT_PATTERNS_H
#define TAVO_TESTS_SUPPORT_PATTERNS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::test {

// The text of a match, and that of each group; "" for a group that took no part in it.
using Groups = std::vector<std::string>;

// All functions throw std::regex_error if the pattern is not valid.

// Whether the whole text matches.
bool IsMatch(std::string_view text, std::string_view pattern);

// Whether a part of the text matches.
bool HasMatch(std::string_view text, std::string_view pattern);

// The first match in the text; nullopt if there is none.
std::optional<Groups> FirstMatch(std::string_view text, std::string_view pattern);

// All matches that do not overlap, in the order of the text.
std::vector<Groups> AllMatches(std::string_view text, std::string_view pattern);

// Replaces all matches; $1 is the text of the first group.
std::string ReplaceMatches(std::string_view text, std::string_view pattern,
                           const std::string &replacement);

}  // namespace tavo::test

#endif
