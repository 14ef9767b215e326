#include "commands/command.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "change/change_report.h"
#include "commands/commands.h"
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

constexpr Option kOwnOptions[] = {kHelp, kVersion, kJson, kVerbose};
constexpr Option kCommonOptions[] = {kHelp, kJson, kVerbose};

}  // namespace

std::span<const Command *const> Commands() {
    return kCommands;
}

std::span<const Option> OwnOptions() {
    return kOwnOptions;
}

std::span<const Option> CommonOptions() {
    return kCommonOptions;
}

void Arguments::Add(const Option &option, std::string value) {
    given_.emplace_back(&option, std::move(value));
}

void Arguments::Add(std::string operand) {
    operands_.push_back(std::move(operand));
}

// Throws std::logic_error if a command uses an option that its record does not contain.
const Option &Arguments::Known(std::string_view name) const {
    const std::span<const Option> of_command =
        command_ == nullptr ? std::span<const Option>() : command_->options;
    for (const std::span<const Option> options : {OwnOptions(), of_command}) {
        for (const Option &option : options) {
            if (option.name == name) {
                return option;
            }
        }
    }
    throw std::logic_error("no option " + std::string(name));
}

std::vector<std::string> Arguments::Values(std::string_view option) const {
    const Option &known = Known(option);
    std::vector<std::string> values;
    for (const auto &[given, value] : given_) {
        if (std::string_view(given->name) == known.name) {
            values.push_back(value);
        }
    }
    return values;
}

bool Arguments::Has(std::string_view option) const {
    return !Values(option).empty();
}

std::string Arguments::Text(std::string_view option) const {
    const std::vector<std::string> values = Values(option);
    return values.empty() ? "" : values.back();
}

std::vector<std::string> Arguments::Texts(std::string_view option) const {
    if (Known(option).repeat != Repeat::kItems) {
        return Values(option);
    }
    std::vector<std::string> items;
    for (const std::string &value : Values(option)) {
        ForEachPiece(value, [&items](std::string_view item) { items.emplace_back(item); });
    }
    return items;
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

std::optional<unsigned int> NumberUpTo(unsigned int most, std::string_view text) {
    unsigned int number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < 1 || number > most) {
        return std::nullopt;
    }
    return number;
}

}  // namespace tavo::tool
