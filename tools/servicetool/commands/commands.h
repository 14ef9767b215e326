// The records of the commands: name, arguments, options and function. They define how the command
// line is parsed; the help and the completion scripts are generated from them.
#ifndef TAVO_SERVICETOOL_COMMANDS_COMMANDS_H
#define TAVO_SERVICETOOL_COMMANDS_COMMANDS_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "change/installed_file.h"
#include "output/report.h"

namespace tavo::tool {

struct Change;

// How a shell completes a value.
enum class Completion {
    kNothing,
    kWords,             // one of Value::words
    kWordList,          // Value::words, separated by commas
    kFiles,             // any file
    kInstalledFiles,    // names of installed service files
    kSections,          // services in the installed file of the first argument
    kServicesAndFiles,  // names of services, and any file
    kFirewallServices,  // services that the firewall can offer
    kSkippableNames,    // names that a check can skip, separated by commas
};

// The value of an option or an argument, for the help and for completion.
struct Value {
    std::string_view name;  // "FILE"; empty for an option without a value
    Completion completion = Completion::kNothing;
    std::string_view words = {};  // for kWords and kWordList, separated by blanks
};

enum class Repeat {
    kLast,   // if repeated, the last one wins
    kItems,  // lists separated by commas; if repeated, all items are used
    kWords,  // any number of words up to the next option
};

struct Option {
    const char *name;  // "--near"
    std::string_view help;
    Value value = {};
    Repeat repeat = Repeat::kLast;
    char letter = '\0';              // "-v" for "--verbose"
    bool ends = false;               // the rest of the line is ignored
    std::string_view excludes = {};  // name of an option that cannot be combined with this one
};

// How often an argument can be given.
enum class Count { kOne, kAtMostOne, kAny, kSome };

struct Operand {
    Value value;
    std::string_view help;
    Count count = Count::kOne;

    bool TakesMany() const { return count == Count::kAny || count == Count::kSome; }
    bool IsRequired() const { return count == Count::kOne || count == Count::kSome; }
};

struct UsageProblem {
    std::string message;   // empty: no problem
    std::string fix = {};  // empty: refer to the help
};

struct Command;

// The options and arguments of a command line.
class Arguments {
  public:
    void SetCommand(const Command &command) { command_ = &command; }

    // Only after SetCommand.
    const Command &GivenCommand() const { return *command_; }

    // Splits the values of Repeat::kItems at commas.
    void Add(const Option &option, const std::string &value);
    void Add(std::string operand) { operands_.push_back(std::move(operand)); }

    bool Has(std::string_view option) const { return !Texts(option).empty(); }

    // The last value of an option; empty if it is not given.
    std::string Text(std::string_view option) const;

    // All values of an option, those of Repeat::kItems by item.
    std::vector<std::string> Texts(std::string_view option) const;

    const std::vector<std::string> &Operands() const { return operands_; }

    // The operand at an index; empty if it is not given.
    std::string Word(std::size_t number) const;

  private:
    const Command *command_ = nullptr;
    std::vector<std::pair<std::string_view, std::string>> given_;  // names of options, values
    std::vector<std::string> operands_;
};

struct Command {
    std::string_view name;
    std::string_view summary;
    std::span<const Operand> operands = {};
    std::span<const Option> options = {};  // in addition to the common ones
    std::string_view examples;

    // Checks the arguments for errors that the record does not describe.
    UsageProblem (*check)(const Arguments &arguments) = nullptr;

    void (*run)(const Arguments &arguments, Report &report);

    // For a command that makes a change: the change according to the command line. It is reported
    // if the command ends before it has planned a change.
    Change (*change)(const Arguments &arguments) = nullptr;
};

// The options of the command, or of servicetool itself if `command` is null, in the order of the
// help.
std::vector<Option> OptionsOf(const Command *command);

// ---- Common parts of several commands

inline constexpr Option kNoLegend = {.name = "--no-legend", .help = "Print no header"};
inline constexpr Option kDryRun = {.name = "--dry-run", .help = "Only show what would be done"};
inline constexpr Option kSystemFile = {
    .name = "--system", .help = "The file of the system", .excludes = "--package"};
inline constexpr Option kPackageFile = {.name = "--package", .help = "The file of a package"};
inline constexpr Option kNoRestart = {.name = "--no-restart",
                                      .help = "Do not reload the firewall and the relay daemon"};

inline constexpr Operand kTargetFile = {
    .value = {"FILE", Completion::kInstalledFiles},
    .help = "The name of an installed file, such as mypackage.sc"};
inline constexpr Operand kTargetSection = {.value = {"SECTION", Completion::kSections},
                                           .help = "The name of a service in it"};

// The service folders that --system and --package select; both if neither is given.
int FoldersOf(const Arguments &arguments);

// The change that the command makes to the file and section given as operands, for Command::change.
Change ChangeAskedFor(const Arguments &arguments);

// Returns a problem if a name is empty.
UsageProblem ProblemOfEmptyName(const std::vector<std::string> &names);

// Returns a problem if a name is empty, or if standard input is named more than once.
UsageProblem ProblemOfNames(const std::vector<std::string> &names);

// ---- The commands

extern const Command kListCommand;
extern const Command kShowCommand;
extern const Command kLintCommand;
extern const Command kServicesCommand;
extern const Command kCheckCommand;
extern const Command kSuggestCommand;
extern const Command kWhyCommand;
extern const Command kPortsCommand;
extern const Command kInstallCommand;
extern const Command kUpdateCommand;
extern const Command kRemoveCommand;
extern const Command kSetCommand;
extern const Command kSetPortsCommand;
extern const Command kRemoveSectionCommand;
extern const Command kRestartCommand;
extern const Command kCleanCommand;

// All commands, in the order of the help.
std::span<const Command *const> Commands();

struct CommandLine {
    const Command *command = nullptr;  // null if the command is missing or unknown
    Arguments arguments;
    UsageProblem problem;  // the first one
};

// Reads the whole line even after an error, so that --json has an effect wherever it is.
CommandLine ReadCommandLine(int argc, char **argv);

// The help for a command, or for servicetool itself if `command` is null.
std::string HelpText(const Command *command);

}  // namespace tavo::tool

#endif
