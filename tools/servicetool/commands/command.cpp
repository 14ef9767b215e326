#include "commands/commands.h"

#include <algorithm>
#include <stdexcept>

#include "change/change_report.h"
#include "input/input_file.h"
#include "output/text.h"
#include "ports/port_query.h"

namespace tavo::tool {
namespace {

constexpr const Command *kCommands[] = {
    &kListCommand,     &kShowCommand,          &kLintCommand,    &kServicesCommand,
    &kCheckCommand,    &kSuggestCommand,       &kWhyCommand,     &kPortsCommand,
    &kInstallCommand,  &kUpdateCommand,        &kRemoveCommand,  &kSetCommand,
    &kSetPortsCommand, &kRemoveSectionCommand, &kRestartCommand, &kCleanCommand,
};

constexpr Option kHelp = {
    .name = "--help", .help = "Print this help and exit", .letter = 'h', .ends = true};
constexpr Option kVersion = {
    .name = "--version", .help = "Print the version and exit", .ends = true};
constexpr Option kJson = {.name = "--json", .help = "Print one JSON document instead of text"};
constexpr Option kVerbose = {
    .name = "--verbose", .help = "Also print the log lines of the library", .letter = 'v'};

// ---- The help

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

std::string OptionLines(const Command *command) {
    std::string lines;
    for (const Option &option : OptionsOf(command)) {
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
        lines += Line(term, option.help);
    }
    return lines;
}

// "FILE", "FILE...", "[FILE]" or "[FILE...]"
std::string UsageOf(const Operand &operand) {
    const std::string usage = std::string(operand.value.name) + (operand.TakesMany() ? "..." : "");
    return operand.IsRequired() ? usage : '[' + usage + ']';
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

std::span<const Command *const> Commands() {
    return kCommands;
}

std::vector<Option> OptionsOf(const Command *command) {
    if (command == nullptr) {
        return {kHelp, kVersion, kJson, kVerbose};
    }
    std::vector<Option> options = {kHelp, kJson, kVerbose};
    options.insert(options.end(), command->options.begin(), command->options.end());
    return options;
}

void Arguments::Add(const Option &option, const std::string &value) {
    if (option.repeat == Repeat::kItems) {
        ForEachPiece(value, [&](std::string_view item) { given_.emplace_back(option.name, item); });
    } else {
        given_.emplace_back(option.name, value);
    }
}

std::string Arguments::Text(std::string_view option) const {
    const std::vector<std::string> values = Texts(option);
    return values.empty() ? "" : values.back();
}

// Throws std::logic_error if a command uses an option that its record does not contain.
std::vector<std::string> Arguments::Texts(std::string_view option) const {
    const std::vector<Option> known = OptionsOf(command_);
    if (option != kVersion.name && std::none_of(known.begin(), known.end(), [&](const Option &one) {
            return one.name == option;
        })) {
        throw std::logic_error("no option " + std::string(option));
    }
    std::vector<std::string> values;
    for (const auto &[name, value] : given_) {
        if (name == option) {
            values.push_back(value);
        }
    }
    return values;
}

std::string Arguments::Word(std::size_t number) const {
    return number < operands_.size() ? operands_[number] : std::string();
}

int FoldersOf(const Arguments &arguments) {
    const int folders = (arguments.Has("--system") ? TAVO_SERVICE_CONF_DIR_SYSTEM : 0) |
                        (arguments.Has("--package") ? TAVO_SERVICE_CONF_DIR_PACKAGE : 0);
    return folders != 0 ? folders : kEveryServiceFolder;
}

Change ChangeAskedFor(const Arguments &arguments) {
    Change change;
    change.operation = arguments.GivenCommand().name;
    change.file.name = arguments.Word(0);
    change.section = arguments.Word(1);
    change.dry_run = arguments.Has("--dry-run");
    return change;
}

UsageProblem ProblemOfEmptyName(const std::vector<std::string> &names) {
    return Holds(names, "") ? UsageProblem{"a name is empty"} : UsageProblem{};
}

UsageProblem ProblemOfNames(const std::vector<std::string> &names) {
    UsageProblem problem = ProblemOfEmptyName(names);
    if (problem.message.empty() && std::count(names.begin(), names.end(), kStandardInput) > 1) {
        problem.message = "standard input is named twice";
    }
    return problem;
}

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
