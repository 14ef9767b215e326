// Writes a completion script when servicetool is built: a template with the records of the commands
// in place of one of its lines. The records are calls of functions that the template defines, the
// same for every shell.
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "commands/commands.h"
#include "engine/conflict_sources.h"
#include "input/input_file.h"
#include "output/text.h"
#include "support/service_directory.h"

namespace tavo::tool {
namespace {

constexpr std::string_view kPlaceOfRecords = "@RECORDS@\n";

constexpr std::string_view kExplanation =
    R"(# Calls a function for each part of the command $1, or of servicetool itself if $1 is empty:
#   _servicetool_command NAME SUMMARY
#   _servicetool_option NAME LETTER EXCLUDED REPEAT HELP [VALUE KIND WORDS]
#   _servicetool_operand POSITION VALUE KIND WORDS
# EXCLUDED are the options that are not offered with this one, or "- *" for all words; REPEAT is
# "last", "items" or "words"; KIND says what the value can be, and WORDS lists values; POSITION is a
# number, or "*" for all further arguments.
)";

// The names of the kinds of values, in the order of Completion.
constexpr std::string_view kKinds[] = {"nothing",   "words",    "items",   "files",
                                       "installed", "sections", "targets", "firewall_services",
                                       "skippable"};
static_assert(std::size(kKinds) == static_cast<std::size_t>(Completion::kSkippableNames) + 1);

// In the order of Repeat.
constexpr std::string_view kRepeats[] = {"last", "items", "words"};

using Words = std::vector<std::string>;

std::string Joined(const Words &words) {
    std::string text;
    for (const std::string &word : words) {
        text.append(text.empty() ? "" : " ").append(word);
    }
    return text;
}

// A line that calls a function of the template. The words are quoted for the shell.
std::string Call(std::string_view function, const Words &words) {
    std::string line = "            _servicetool_" + std::string(function);
    for (const std::string &word : words) {
        line += " '" + Replaced(word, "'", "'\\''") + '\'';
    }
    return line + '\n';
}

// The names that skip a setting, each once.
Words SettingNames() {
    Words names;
    for (const ServiceSetting &setting : kServiceSettings) {
        if (!Holds(names, setting.service)) {
            names.emplace_back(setting.service);
        }
    }
    return names;
}

void AddValue(const Value &value, Words &words) {
    words.push_back(LowerCase(value.name));
    words.emplace_back(kKinds[static_cast<std::size_t>(value.completion)]);
    words.push_back(value.completion == Completion::kSkippableNames ? Joined(SettingNames())
                                                                    : std::string(value.words));
}

// The options that exclude this one, and its other form.
Words ExcludedBy(const Option &option, const std::vector<Option> &options) {
    if (option.ends) {
        return {"-", "*"};
    }
    Words excluded;
    for (const Option &other : options) {
        if (other.name == option.excludes || other.excludes == option.name) {
            excluded.emplace_back(other.name);
        }
    }
    if (option.letter != '\0') {
        excluded.insert(excluded.end(), {std::string("-") + option.letter, option.name});
    }
    return excluded;
}

std::string OptionCalls(const Command *command) {
    const std::vector<Option> options = OptionsOf(command);
    std::string calls;
    for (const Option &option : options) {
        Words words = {option.name, option.letter == '\0' ? "" : std::string("-") + option.letter,
                       Joined(ExcludedBy(option, options)),
                       std::string(kRepeats[static_cast<std::size_t>(option.repeat)]),
                       std::string(option.help)};
        if (!option.value.name.empty()) {
            AddValue(option.value, words);
        }
        calls += Call("option", words);
    }
    return calls;
}

std::string OperandCalls(const Command &command) {
    std::string calls;
    for (std::size_t i = 0; i < command.operands.size(); ++i) {
        const Operand &operand = command.operands[i];
        Words words = {operand.TakesMany() ? "*" : std::to_string(i + 1)};
        AddValue(operand.value, words);
        calls += Call("operand", words);
    }
    return calls;
}

std::string Records() {
    constexpr char kEnd[] = "            ;;\n";
    Words folders;
    for (const ServiceFolder &folder : kServiceFolders) {
        folders.emplace_back(folder.path);
    }
    std::string commands;
    std::string cases;
    for (const Command *command : Commands()) {
        commands += Call("command", {std::string(command->name), std::string(command->summary)});
        cases += "        " + std::string(command->name) + ")\n" + OptionCalls(command) +
                 OperandCalls(*command) + kEnd;
    }
    return "_servicetool_folders=(" + Joined(folders) + ")\n\n" + std::string(kExplanation) +
           "_servicetool_record() {\n    case $1 in\n        '')\n" + OptionCalls(nullptr) +
           commands + kEnd + cases + "        *) return 1 ;;\n    esac\n}\n";
}

int WriteScript(const std::string &path, const std::string &script) {
    const FileContents contents = ReadRegularFile(path);
    std::string problem = contents.problem;
    if (problem.empty()) {
        problem = WriteWholeFile(script, Replaced(contents.text, kPlaceOfRecords, Records()));
    }
    if (!problem.empty()) {
        std::fprintf(stderr, "completion_scripts: error: %s: %s\n", script.c_str(),
                     problem.c_str());
    }
    return problem.empty() ? 0 : 1;
}

}  // namespace
}  // namespace tavo::tool

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fputs("usage: completion_scripts TEMPLATE SCRIPT\n", stderr);
        return 2;
    }
    return tavo::tool::WriteScript(argv[1], argv[2]);
}
