// servicetool: service files from a shell. This file is its command line.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "input_file.h"
#include "library_log.h"
#include "report.h"
#include "text.h"

namespace tavo {
namespace {

constexpr char kExamples[] = R"(Examples:
  servicetool list
  servicetool show web_http
  servicetool lint mypackage.sc
  servicetool lint --help)";

constexpr char kListExamples[] = R"(Examples:
  servicetool list                       every service of the appliance
  servicetool list --package             those of packages only
  servicetool list --no-legend | wc -l   how many there are
  servicetool list --json | jq -r '.results[].name')";

constexpr char kShowExamples[] = R"(Examples:
  servicetool show ntp                   the service ntp, in whatever file it is
  servicetool show ./mypackage.sc        all services of a file
  servicetool show --json ntp | jq '.results[0].ports')";

constexpr char kLintExamples[] = R"(Examples:
  servicetool lint mypackage.sc
  servicetool lint --strict *.sc && echo fit to ship
  generate-services | servicetool lint -)";

// CLI11 reads "[a,b]" as a list and "++" as the end of a command, and forgets "--" behind the first
// FILE. So words that are meant as they are get a guard in front, which keeps it from looking
// closer.
constexpr char kGuard = '\1';

std::string Guarded(const std::string &word, bool options_ended) {
    const bool special = word == "++" || word.starts_with('[') || word.starts_with(kGuard) ||
                         (options_ended && word.starts_with('-'));
    return special ? kGuard + word : word;
}

std::string Unguarded(const std::string &word) {
    return word.starts_with(kGuard) ? word.substr(1) : word;
}

// A flag says it all; CLI11 would take --flag=false for its opposite.
void AddFlag(CLI::App *app, const char *names, bool &flag, const char *purpose) {
    app->add_flag(names, flag, purpose)->disable_flag_override();
}

class CommandLine {
  public:
    CommandLine();
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    int Run(int argc, char **argv);

  private:
    CLI::App *AddCommand(const char *name, const char *purpose, const char *examples);
    void AddCommonOptions(CLI::App *app);
    void Parse(int argc, char **argv);
    int CheckAndRun();
    void RunCommand(Report &report) const;
    int UsageError(std::string message, std::string fix = {});
    int UnexpectedWord();
    std::string UnknownOption() const;
    std::string AssignedFlag() const;

    std::vector<std::string> options_;  // words before "--" that start with a hyphen
    bool json_ = false;
    bool verbose_ = false;
    ListOptions list_options_;
    LintOptions lint_options_;
    std::string show_target_;

    CLI::App app_{"Looks at the service files of the appliance.", "servicetool"};
    CLI::App *list_ = nullptr;
    CLI::App *show_ = nullptr;
    CLI::App *lint_ = nullptr;
};

CommandLine::CommandLine() {
    const auto formatter = std::make_shared<CLI::Formatter>();
    formatter->column_width(26);
    formatter->label("SUBCOMMAND", "COMMAND");
    formatter->label("Positionals", "Arguments");
    app_.formatter(formatter);
    app_.require_subcommand(0, 1);
    app_.set_help_flag("-h,--help", "Print this help and exit");
    app_.set_version_flag("--version", "servicetool " SERVICETOOL_VERSION,
                          "Print the version and exit");
    app_.footer(kExamples);
    AddCommonOptions(&app_);

    list_ = AddCommand("list", "List the services that the service files declare", kListExamples);
    AddFlag(list_, "--system", list_options_.system, "Only those of the system");
    AddFlag(list_, "--package", list_options_.package, "Only those of packages");
    AddFlag(list_, "--no-legend", list_options_.no_legend, "Leave the header out");

    show_ =
        AddCommand("show", "Show everything that a service or a service file says", kShowExamples);
    show_
        ->add_option("NAME|FILE", show_target_,
                     "A service by its name, or a file; - is standard input")
        ->option_text(" ")
        ->required();

    lint_ = AddCommand("lint", "Find everything that is wrong in service files", kLintExamples);
    lint_->add_option("FILE", lint_options_.files, "Service files; - is standard input")
        ->option_text("...")
        ->required();
    AddFlag(lint_, "--strict", lint_options_.strict, "Fail on warnings, too");
}

CLI::App *CommandLine::AddCommand(const char *name, const char *purpose, const char *examples) {
    CLI::App *command = app_.add_subcommand(name, purpose);
    command->group("Commands");
    command->footer(examples);
    AddCommonOptions(command);
    return command;
}

// They may stand before the command and behind it.
void CommandLine::AddCommonOptions(CLI::App *app) {
    AddFlag(app, "--json", json_, "Print one JSON document instead");
    AddFlag(app, "-v,--verbose", verbose_, "Print what the library logs, too");
}

int CommandLine::Run(int argc, char **argv) {
    try {
        Parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        std::fputs(app_.help().c_str(), stdout);
        return Report(false).Finish();
    } catch (const CLI::CallForVersion &version) {
        std::printf("%s\n", version.what());
        return Report(false).Finish();
    } catch (const CLI::ArgumentMismatch &) {
        return UsageError(AssignedFlag() + " takes no value");
    } catch (const CLI::ExtrasError &) {
        return UnexpectedWord();
    } catch (const CLI::ParseError &error) {
        // What is missing may be missing only because it looks like an option.
        return UnknownOption().empty() ? UsageError(LowerFirst(error.what())) : UnexpectedWord();
    }
    return CheckAndRun();
}

void CommandLine::Parse(int argc, char **argv) {
    std::vector<std::string> words;
    bool options_ended = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--" && !options_ended) {
            options_ended = true;
            continue;
        }
        // Asked for in a command line that is otherwise wrong, JSON is still what a program waits
        // for.
        json_ = json_ || (word == "--json" && !options_ended);
        if (word.size() > 1 && word.front() == '-' && !options_ended) {
            options_.push_back(word);
        }
        words.push_back(Guarded(word, options_ended));
    }
    std::reverse(words.begin(), words.end());  // the order that CLI11 takes them in
    app_.parse(words);
    show_target_ = Unguarded(show_target_);
    for (std::string &file : lint_options_.files) {
        file = Unguarded(file);
    }
}

int CommandLine::CheckAndRun() {
    const auto &files = lint_options_.files;
    if (app_.get_subcommands().empty()) {
        return UsageError("a command is missing");
    }
    if ((show_->parsed() && show_target_.empty()) ||
        std::find(files.begin(), files.end(), "") != files.end()) {
        return UsageError("a name is empty");
    }
    if (const std::string flag = AssignedFlag(); !flag.empty()) {
        return UsageError(flag + " takes no value");
    }
    if (std::count(files.begin(), files.end(), kStandardInput) > 1) {
        return UsageError("standard input is named twice");
    }
    LibraryLog::Start(verbose_);
    Report report(json_);
    try {
        RunCommand(report);
    } catch (const std::bad_alloc &) {
        report.TellError("", "failed", "out of memory");
        report.Raise(Status::kFailed);
    } catch (const std::exception &error) {
        report.TellError("", "failed", LowerFirst(error.what()));
        report.Raise(Status::kFailed);
    }
    return report.Finish();
}

void CommandLine::RunCommand(Report &report) const {
    if (list_->parsed()) {
        List(list_options_, report);
    } else if (show_->parsed()) {
        Show(show_target_, report);
    } else {
        Lint(lint_options_, report);
    }
}

// Where no fix is plain, the help is.
int CommandLine::UsageError(std::string message, std::string fix) {
    Report report(json_);
    const auto commands = app_.get_subcommands();
    if (fix.empty()) {
        fix = "see servicetool " + (commands.empty() ? "" : commands.front()->get_name() + ' ') +
              "--help";
    }
    report.TellError("", "usage", std::move(message), std::move(fix));
    report.Raise(Status::kUsage);
    return report.Finish();
}

int CommandLine::UnexpectedWord() {
    const std::string option = UnknownOption();
    if (!option.empty()) {
        struct stat status {};
        const bool is_file =
            (show_->parsed() || lint_->parsed()) && lstat(option.c_str(), &status) == 0;
        return UsageError("unknown option " + Shortened(option),
                          is_file ? "write -- " + option : "");
    }
    const std::string word = Unguarded(app_.remaining(true).front());
    return UsageError(
        (app_.get_subcommands().empty() ? "unknown command " : "unexpected argument ") +
        Quoted(word));
}

// The first option that is not known, as it was written: of -vx.sc, CLI11 takes the -v and leaves
// "-x.sc". Empty when there is none, or another word was not expected before it.
std::string CommandLine::UnknownOption() const {
    const std::vector<std::string> left = app_.remaining(true);
    if (left.empty() || left.front().size() < 2 || left.front().front() != '-') {
        return {};
    }
    const std::string rest = left.front().substr(1);
    const auto written =
        std::find_if(options_.begin(), options_.end(),
                     [&rest](const std::string &word) { return word.ends_with(rest); });
    return written != options_.end() ? *written : left.front();
}

// The first option that is written with a value; empty when there is none. CLI11 lets a value pass
// that says the same as the flag alone.
std::string CommandLine::AssignedFlag() const {
    const auto assigned =
        std::find_if(options_.begin(), options_.end(),
                     [](const std::string &word) { return word.find('=') != std::string::npos; });
    return assigned == options_.end() ? "" : assigned->substr(0, assigned->find('='));
}

}  // namespace
}  // namespace tavo

int main(int argc, char **argv) {
    return tavo::CommandLine().Run(argc, argv);
}
