#include "patterns.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <regex>

namespace tavo::test {
namespace {

// Keeps the compiled patterns, because many tests search thousands of texts for the same one.
const std::regex &Compiled(std::string_view pattern) {
    static thread_local std::map<std::string, std::regex, std::less<>> compiled;
    auto found = compiled.find(pattern);
    if (found == compiled.end()) {
        const std::string text(pattern);
        found = compiled.emplace(text, std::regex(text)).first;
    }
    return found->second;
}

Groups TextsOf(const std::cmatch &match) {
    return {match.begin(), match.end()};
}

}  // namespace

bool IsMatch(std::string_view text, std::string_view pattern) {
    return std::regex_match(text.begin(), text.end(), Compiled(pattern));
}

bool HasMatch(std::string_view text, std::string_view pattern) {
    return std::regex_search(text.begin(), text.end(), Compiled(pattern));
}

std::optional<Groups> FirstMatch(std::string_view text, std::string_view pattern) {
    std::cmatch match;
    const bool found = std::regex_search(text.begin(), text.end(), match, Compiled(pattern));
    return found ? std::optional(TextsOf(match)) : std::nullopt;
}

std::vector<Groups> AllMatches(std::string_view text, std::string_view pattern) {
    std::vector<Groups> matches;
    std::transform(std::cregex_iterator(text.begin(), text.end(), Compiled(pattern)), {},
                   std::back_inserter(matches), TextsOf);
    return matches;
}

std::string ReplaceMatches(std::string_view text, std::string_view pattern,
                           const std::string &replacement) {
    std::string replaced;
    std::regex_replace(std::back_inserter(replaced), text.begin(), text.end(), Compiled(pattern),
                       replacement);
    return replaced;
}

}  // namespace tavo::test
