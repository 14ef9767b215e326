// servicetool: service files from a shell. This file is its command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "commands.h"
#include "library_log.h"
#include "report.h"
#include "text.h"

namespace tavo {
namespace {

constexpr char kExamples[] = R"(Examples:
  servicetool list
  servicetool show ftp
  servicetool lint mypackage.sc
  servicetool lint --help)";

constexpr char kListExamples[] = R"(Examples:
  servicetool list                       every service of the appliance
  servicetool list --package             those of packages only
  servicetool list --no-legend | wc -l   how many there are
  servicetool list --json | jq -r '.results[].name')";

constexpr char kShowExamples[] = R"(Examples:
  servicetool show ftp                   the service ftp, in whatever file it is
  servicetool show ./mypackage.sc        all services of a file
  servicetool show --json ftp | jq '.results[0].ports')";

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
    int UsageError(std::string message);
    std::string UnexpectedWord() const;

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
    list_->add_flag("--system", list_options_.system, "Only those of the system");
    list_->add_flag("--package", list_options_.package, "Only those of packages");
    list_->add_flag("--no-legend", list_options_.no_legend, "Leave the header out");

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
    lint_->add_flag("--strict", lint_options_.strict, "Fail on warnings, too");
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
    app->add_flag("--json", json_, "Print one JSON document instead");
    app->add_flag("-v,--verbose", verbose_, "Print what the library logs, too");
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
    } catch (const CLI::ExtrasError &) {
        return UsageError(UnexpectedWord());
    } catch (const CLI::ParseError &error) {
        return UsageError(LowerFirst(error.what()));
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

int CommandLine::UsageError(std::string message) {
    Report report(json_);
    const auto commands = app_.get_subcommands();
    report.TellError("", "usage", std::move(message),
                     "see servicetool " +
                         (commands.empty() ? "" : commands.front()->get_name() + ' ') + "--help");
    report.Raise(Status::kUsage);
    return report.Finish();
}

std::string CommandLine::UnexpectedWord() const {
    const std::string guarded = app_.remaining(true).front();
    const std::string word = Unguarded(guarded);
    if (guarded.size() > 1 && guarded.front() == '-') {
        return "unknown option " + Shortened(word);
    }
    return (app_.get_subcommands().empty() ? "unknown command " : "unexpected argument ") +
           Quoted(word);
}

}  // namespace
}  // namespace tavo

int main(int argc, char **argv) {
    return tavo::CommandLine().Run(argc, argv);
}
