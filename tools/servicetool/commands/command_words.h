// The words of a command line, before CLI11 sees them and behind it.
//
// CLI11 reads "[a,b]" as a list and "++" as the end of a command, forgets "--" behind the first
// FILE, and takes any word for the value of an option that lacks its own. So words that are meant
// as they are get a guard in front, which keeps it from looking closer.
#ifndef TAVO_SERVICETOOL_COMMANDS_COMMAND_WORDS_H
#define TAVO_SERVICETOOL_COMMANDS_COMMAND_WORDS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tavo::tool {

struct CommandWords {
    std::vector<std::string> guarded;
    std::vector<std::string> options;  // before "--", as they were written
    std::string lacks_value;           // the first option that should have one; else empty
    std::string next;                  // the word behind it that looks like an option, if any
};

// `takes_value` says it of an option such as "--file".
CommandWords ReadWords(const std::vector<std::string> &words,
                       const std::function<bool(const std::string &)> &takes_value);

std::string Unguarded(const std::string &word);

// The pieces between the commas of all words, empty ones too.
std::vector<std::string> ListItems(const std::vector<std::string> &words);

// The number that the text is in decimal digits, when it is one of 1 to `most`.
std::optional<unsigned int> NumberUpTo(unsigned int most, const std::string &text);

}  // namespace tavo::tool

#endif
