// One record per command: what it is called, what it takes and what it does. The command line is
// read by the records; the help and the completion scripts are generated from them.
#ifndef TAVO_SERVICETOOL_COMMANDS_COMMAND_H
#define TAVO_SERVICETOOL_COMMANDS_COMMAND_H

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
struct SectionOptions;

// What a shell offers for a value.
enum class Completion {
    kNothing,
    kWords,             // the words of the record
    kWordList,          // the same, with commas between them
    kFiles,             // any file
    kInstalledFiles,    // names of installed service files
    kSections,          // services that the installed file of the first argument declares
    kServicesAndFiles,  // services by their names, and any file
    kFirewallServices,  // services that the firewall can offer
    kSkippableNames,    // what a check can skip, with commas between the names
};

// What an option or an argument stands for, in the help and for a shell.
struct Value {
    std::string_view name;  // "FILE"; empty for an option without a value
    Completion completion = Completion::kNothing;
    std::string_view words = {};  // those of Completion::kWords and kWordList, with blanks between
};

enum class Repeat {
    kLast,   // if repeated, the last one wins
    kItems,  // values with commas in them, which add up
    kWords,  // any number of words up to the next option
};

struct Option {
    const char *name;  // "--near"
    std::string_view help;
    Value value = {};
    Repeat repeat = Repeat::kLast;
    char letter = '\0';              // "-v" for "--verbose"
    std::string_view excludes = {};  // the name of an option that cannot be given as well
    bool ends = false;               // nothing else on the line matters
};

// How often an argument may be given.
enum class Count { kOne, kAtMostOne, kAny, kSome };

struct Operand {
    Value value;
    std::string_view help;
    Count count = Count::kOne;
};

struct UsageProblem {
    std::string message;   // empty: there is none
    std::string fix = {};  // empty: the help is
};

struct Command;

// What a command line gives to a command.
class Arguments {
  public:
    // Has the options of every command from the start, and those of this one from here on.
    void SetCommand(const Command &command) { command_ = &command; }
    void Add(const Option &option, std::string value);
    void Add(std::string operand);

    bool Has(std::string_view option) const;

    // The last value of an option; empty where it is not given.
    std::string Text(std::string_view option) const;

    // All values of an option, those of Repeat::kItems cut at their commas.
    std::vector<std::string> Texts(std::string_view option) const;

    const std::vector<std::string> &Operands() const { return operands_; }

    // One of the operands; empty where so many are not given.
    std::string Word(std::size_t number) const;

  private:
    const Option &Known(std::string_view name) const;
    std::vector<std::string> Values(std::string_view option) const;

    const Command *command_ = nullptr;
    std::vector<std::pair<const Option *, std::string>> given_;
    std::vector<std::string> operands_;
};

struct Command {
    std::string_view name;
    std::string_view summary;
    std::span<const Operand> operands;
    std::span<const Option> options;  // besides those of every command
    std::string_view examples;

    // What is wrong with the arguments beyond what the record says of them.
    UsageProblem (*check)(const Arguments &arguments) = nullptr;

    void (*run)(const Arguments &arguments, Report &report);

    // Of a command that changes something: the change, as far as the command line says it, but for
    // the name of the operation. It is reported when the command ends before it has planned one.
    Change (*change)(const Arguments &arguments) = nullptr;
};

// The options of servicetool itself, and those of them that every command has, too.
std::span<const Option> OwnOptions();
std::span<const Option> CommonOptions();

// ---- What several commands have

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

FolderChoice FolderOf(const Arguments &arguments);

// What the commands that change a section take: the two operands above, and their options.
SectionOptions SectionOf(const Arguments &arguments);

// A change of the file and section that are operands, for Command::change.
Change ChangeAskedFor(const Arguments &arguments);

// A problem where one of the names is empty.
UsageProblem ProblemOfEmptyName(const std::vector<std::string> &names);

// The same, and where standard input is named a second time.
UsageProblem ProblemOfNames(const std::vector<std::string> &names);

// The number that the text is in decimal digits, when it is one of 1 to `most`.
std::optional<unsigned int> NumberUpTo(unsigned int most, std::string_view text);

}  // namespace tavo::tool

#endif
