// Writes a completion script when servicetool is built: a template with the records of the commands
// as functions of that shell in place of one of its lines.
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "commands/commands.h"
#include "engine/conflict_sources.h"
#include "input/input_file.h"
#include "output/output_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr std::string_view kPlaceOfRecords = "@RECORDS@\n";

// How the templates name what a value can be.
struct ValueKind {
    std::string_view bash;  // a case of _servicetool_offer
    std::string_view zsh;   // an action of _arguments
};

// In the order of Completion.
constexpr ValueKind kValueKinds[] = {
    {"nothing", " "},
    {"words", "("},
    {"items", "_values -s , "},
    {"files", "_files"},
    {"installed", "_servicetool_installed"},
    {"sections", "_servicetool_sections"},
    {"services-and-files", "_servicetool_targets"},
    {"firewall-services", "_servicetool_firewall_services"},
    {"skippable", "_sequence _servicetool_skippable"},
};
static_assert(std::size(kValueKinds) == static_cast<std::size_t>(Completion::kSkippableNames) + 1);

const ValueKind &KindOf(const Value &value) {
    return kValueKinds[static_cast<std::size_t>(value.completion)];
}

std::string Joined(const std::vector<std::string> &words, std::string_view separator) {
    std::string text;
    for (const std::string &word : words) {
        text.append(text.empty() ? "" : separator).append(word);
    }
    return text;
}

// One word of a shell.
std::string ShellWord(const std::string &text) {
    return '\'' + Replaced(text, "'", "'\\''") + '\'';
}

// The names that skip a setting, each once.
std::string SettingNames() {
    std::vector<std::string> names;
    for (const ServiceSetting &setting : kServiceSettings) {
        if (!Holds(names, setting.service)) {
            names.emplace_back(setting.service);
        }
    }
    return Joined(names, " ");
}

// ---- bash

std::string BashKind(const Value &value) {
    const std::string words(value.completion == Completion::kSkippableNames ? SettingNames()
                                                                            : value.words);
    return ShellWord(std::string(KindOf(value).bash) + (words.empty() ? "" : " ") + words);
}

std::string BashOptions(std::span<const Option> options) {
    std::vector<std::string> names;
    std::string values;
    std::string open;
    for (const Option &option : options) {
        names.emplace_back(option.name);
        if (option.letter != '\0') {
            names.push_back(std::string("-") + option.letter);
        }
        if (!option.value.name.empty()) {
            values += " [" + std::string(option.name) + "]=" + BashKind(option.value);
        }
        if (option.repeat == Repeat::kWords) {
            open = "            open=" + std::string(option.name) + '\n';
        }
    }
    return "            options=" + ShellWord(Joined(names, " ")) + '\n' +
           (values.empty() ? "" : "            values=(" + values.substr(1) + ")\n") + open;
}

std::string BashOperands(std::span<const Operand> operands) {
    std::vector<std::string> kinds;
    std::string many;
    for (const Operand &operand : operands) {
        if (operand.TakesMany()) {
            many = "            many=" + BashKind(operand.value) + '\n';
        } else {
            kinds.push_back(BashKind(operand.value));
        }
    }
    return (kinds.empty() ? "" : "            operands=(" + Joined(kinds, " ") + ")\n") + many;
}

std::string BashRecords() {
    std::vector<std::string> names;
    std::string cases;
    for (const Command *command : Commands()) {
        names.emplace_back(command->name);
        cases += "        " + names.back() + ")\n" + BashOptions(OptionsOf(command)) +
                 BashOperands(command->operands) + "            ;;\n";
    }
    return "# What the command $1 takes, or servicetool itself: its options; the kinds of their "
           "values\n"
           "# and of the arguments, each with its words; the kind of all further arguments; the "
           "option\n"
           "# that takes several values.\n"
           "_servicetool_record() {\n"
           "    options='' values=() operands=() many='' open=''\n"
           "    case $1 in\n"
           "        '')\n" +
           BashOptions(OptionsOf(nullptr)) + "            operands=(" +
           ShellWord("words " + Joined(names, " ")) + ")\n            ;;\n" + cases +
           "    esac\n}\n";
}

// ---- zsh

// A text inside an argument of _arguments.
std::string ZshText(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        if (std::string_view("\\[]:").find(c) != std::string_view::npos) {
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped;
}

// ":message:action"
std::string ZshValue(const Value &value) {
    std::string action(KindOf(value).zsh);
    if (value.completion == Completion::kWords) {
        action.append(value.words).append(")");
    } else if (value.completion == Completion::kWordList) {
        action.append(LowerCase(value.name)).append(" ").append(value.words);
    }
    return ':' + ZshText(LowerCase(value.name)) + ':' + action;
}

// The options that exclude this one, and its other form.
std::string ZshExcluded(const Option &option, std::span<const Option> options) {
    if (option.ends) {
        return "(- *)";
    }
    std::vector<std::string> excluded;
    for (const Option &other : options) {
        if (other.name == option.excludes || other.excludes == option.name) {
            excluded.emplace_back(other.name);
        }
    }
    if (option.letter != '\0') {
        excluded.push_back(std::string("-") + option.letter);
        excluded.emplace_back(option.name);
    }
    return excluded.empty() ? "" : '(' + Joined(excluded, " ") + ')';
}

std::string ZshLine(const std::string &argument) {
    return "                " + ShellWord(argument) + '\n';
}

std::string ZshOptions(std::span<const Option> options) {
    std::string lines;
    for (const Option &option : options) {
        const bool has_value = !option.value.name.empty();
        const std::string before =
            ZshExcluded(option, options) + (option.repeat == Repeat::kLast ? "" : "*");
        const std::string after =
            (has_value ? "=[" : "[") + ZshText(option.help) + ']' +
            (option.repeat == Repeat::kWords ? ":*-*" : "") +  // values end at the next option
            (has_value ? ZshValue(option.value) : "");
        if (option.letter != '\0') {
            lines += ZshLine(before + '-' + option.letter + after);
        }
        lines += ZshLine(before + option.name + after);
    }
    return lines;
}

std::string ZshOperands(std::span<const Operand> operands) {
    std::string lines;
    for (std::size_t i = 0; i < operands.size(); ++i) {
        lines += ZshLine((operands[i].TakesMany() ? "*" : std::to_string(i + 1)) +
                         ZshValue(operands[i].value));
    }
    return lines;
}

std::string ZshRecords() {
    std::string commands;
    std::string cases;
    for (const Command *command : Commands()) {
        commands += "        " +
                    ShellWord(std::string(command->name) + ':' + std::string(command->summary)) +
                    '\n';
        cases += "        " + std::string(command->name) + ")\n            arguments=(\n" +
                 ZshOptions(OptionsOf(command)) + ZshOperands(command->operands) +
                 "            )\n            ;;\n";
    }
    return "_servicetool_commands() {\n    local -a commands\n    commands=(\n" + commands +
           "    )\n    _describe -t commands 'command' commands\n}\n\n"
           "# What the command $1 takes, or servicetool itself, in the form of _arguments.\n"
           "_servicetool_record() {\n    settings=(" +
           SettingNames() + ")\n    case $1 in\n        '')\n            arguments=(\n" +
           ZshOptions(OptionsOf(nullptr)) + "            )\n            ;;\n" + cases +
           "        *) return 1 ;;\n    esac\n}\n";
}

int WriteScript(const std::string &shell, const std::string &path, const std::string &script) {
    const FileContents contents = ReadRegularFile(path);
    std::string problem = contents.problem;
    if (problem.empty()) {
        problem = WriteWholeFile(script, Replaced(contents.text, kPlaceOfRecords,
                                                  shell == "zsh" ? ZshRecords() : BashRecords()));
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
    if (argc != 4) {
        std::fputs("usage: completion_scripts bash|zsh TEMPLATE SCRIPT\n", stderr);
        return 2;
    }
    return tavo::tool::WriteScript(argv[1], argv[2], argv[3]);
}
