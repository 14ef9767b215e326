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
    change.path = arguments.Word(0);
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

}  // namespace tavo::tool
