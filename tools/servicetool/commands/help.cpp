#include <algorithm>
#include <string_view>

#include "commands/commands.h"

namespace tavo::tool {
namespace {

// The column of the explanations.
constexpr std::size_t kColumn = 26;

constexpr char kExamples[] = R"(Examples:
  servicetool list
  servicetool lint mypackage.sc
  servicetool check 8080/tcp
  servicetool install mypackage.sc
  servicetool install --help)";

std::string Line(std::string term, std::string_view explanation) {
    term.insert(0, "  ");
    term.resize(std::max(kColumn, term.size() + 1), ' ');
    return term.append(explanation) + '\n';
}

std::string OptionLine(const Option &option) {
    std::string term = option.name;
    if (option.letter != '\0') {
        term = std::string("-") + option.letter + ',' + term;
    }
    if (!option.value.name.empty()) {
        term.append(" ").append(option.value.name);
        term += option.repeat == Repeat::kWords   ? "..."
                : option.repeat == Repeat::kItems ? ",..."
                                                  : "";
    }
    return Line(term, option.help);
}

std::string UsageOf(const Operand &operand) {
    const std::string name(operand.value.name);
    switch (operand.count) {
        case Count::kAtMostOne:
            return '[' + name + ']';
        case Count::kAny:
            return '[' + name + "...]";
        case Count::kSome:
            return name + "...";
        default:
            return name;
    }
}

std::string OptionLines(const Command *command) {
    std::string lines;
    for (const Option &option : OptionsOf(command)) {
        lines += OptionLine(option);
    }
    return lines;
}

std::string HelpOfCommand(const Command &command) {
    std::string usage = "Usage: servicetool " + std::string(command.name) + " [OPTIONS]";
    std::string operands;
    for (const Operand &operand : command.operands) {
        usage += ' ' + UsageOf(operand);
        operands += Line(std::string(operand.value.name) + (operand.TakesMany() ? " ..." : ""),
                         operand.help);
    }
    return std::string(command.summary) + '\n' + usage + "\n\n" +
           (operands.empty() ? "" : "Arguments:\n" + operands + '\n') + "Options:\n" +
           OptionLines(&command) + '\n' + std::string(command.examples) + '\n';
}

}  // namespace

std::string HelpText(const Command *command) {
    if (command != nullptr) {
        return HelpOfCommand(*command);
    }
    std::string commands;
    for (const Command *one : Commands()) {
        commands += Line(std::string(one->name), one->summary);
    }
    return "Query and change the network services of the appliance and their ports.\n"
           "Usage: servicetool [OPTIONS] [COMMAND]\n\nOptions:\n" +
           OptionLines(nullptr) + "\nCommands:\n" + commands + '\n' + kExamples + '\n';
}

}  // namespace tavo::tool
