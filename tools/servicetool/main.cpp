// servicetool: services and their ports from a shell. This file is its command line.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "change/given_up_change.h"
#include "commands/command_options.h"
#include "commands/command_words.h"
#include "input/library_log.h"
#include "output/report.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr char kExamples[] = R"(Examples:
  servicetool list
  servicetool lint mypackage.sc
  servicetool check 8080/tcp
  servicetool install mypackage.sc
  servicetool install --help)";

class CommandLine {
  public:
    CommandLine();
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    int Run(int argc, char **argv);

  private:
    void Parse(int argc, char **argv);
    int CheckAndRun();
    UsageProblem Problem();
    int UsageError(std::string message, std::string fix = {});
    int UnexpectedWord();
    bool LacksValue() const;
    bool TakesFiles() const;
    std::string UnknownOption() const;
    std::string AssignedFlag() const;

    CommandWords words_;
    CommandOptions options_;
    CLI::App app_{"Looks at the services of the appliance and their ports, and changes them.",
                  "servicetool"};
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
    AddCommands(app_, options_);
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
    words_ = ReadWords({argv + std::min(argc, 1), argv + argc},
                       [this](const std::string &option) { return TakesValue(app_, option); });
    // Asked for in a command line that is otherwise wrong, JSON is still what a program waits for.
    options_.json = std::count(words_.options.begin(), words_.options.end(), "--json") != 0;
    std::vector<std::string> words = words_.guarded;
    std::reverse(words.begin(), words.end());  // the order that CLI11 takes them in
    app_.parse(words);
}

UsageProblem CommandLine::Problem() {
    if (app_.get_subcommands().empty()) {
        return {"a command is missing", ""};
    }
    if (!words_.lacks_value.empty()) {
        return {LacksValue() ? words_.lacks_value + " needs a value"
                             : "unknown option " + words_.lacks_value,
                ""};
    }
    if (const std::string flag = AssignedFlag(); !flag.empty()) {
        return {flag + " takes no value", ""};
    }
    return TakeAsMeant(*app_.get_subcommands().front(), options_);
}

int CommandLine::CheckAndRun() {
    ShowLibraryLog(options_.verbose);
    const UsageProblem problem = Problem();
    if (!problem.message.empty()) {
        return UsageError(problem.message, problem.fix);
    }
    const CLI::App &command = *app_.get_subcommands().front();
    Report report(options_.json);
    try {
        tavo::tool::Run(command, options_, report);
    } catch (const std::bad_alloc &) {
        TellThrown(command, options_, "out of memory", report);
    } catch (const std::exception &error) {
        TellThrown(command, options_, LowerFirst(error.what()), report);
    }
    AddMissingResult(command, options_, report);
    return report.Finish();
}

// Where no fix is plain, the help is.
int CommandLine::UsageError(std::string message, std::string fix) {
    Report report(options_.json);
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
    if (LacksValue() && option == words_.next) {
        return UsageError(words_.lacks_value + " needs a value",
                          "write " + words_.lacks_value + '=' + option);
    }
    if (!option.empty()) {
        struct stat status {};
        const bool is_file = TakesFiles() && lstat(option.c_str(), &status) == 0;
        return UsageError("unknown option " + Shortened(option),
                          is_file ? "write -- " + option : "");
    }
    const std::string word = Unguarded(app_.remaining(true).front());
    return UsageError(
        (app_.get_subcommands().empty() ? "unknown command " : "unexpected argument ") +
        Quoted(word));
}

// Whether an option without its value is one of the command at all.
bool CommandLine::LacksValue() const {
    const auto commands = app_.get_subcommands();
    return !words_.lacks_value.empty() && !commands.empty() &&
           commands.front()->get_option_no_throw(words_.lacks_value) != nullptr;
}

// Whether the words of the command may be files.
bool CommandLine::TakesFiles() const {
    const auto commands = app_.get_subcommands();
    const std::string name = commands.empty() ? "" : commands.front()->get_name();
    return name == "show" || name == "lint" || name == "install" || name == "update" ||
           !options_.check.files.empty();
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
        std::find_if(words_.options.begin(), words_.options.end(),
                     [&rest](const std::string &word) { return word.ends_with(rest); });
    return written != words_.options.end() ? *written : left.front();
}

// The first option that is written with a value; empty when there is none. CLI11 lets a value pass
// that says the same as the flag alone.
std::string CommandLine::AssignedFlag() const {
    const auto is_assigned_flag = [this](const std::string &word) {
        const std::size_t equals = word.find('=');
        return equals != std::string::npos && !TakesValue(app_, word.substr(0, equals));
    };
    const auto assigned =
        std::find_if(words_.options.begin(), words_.options.end(), is_assigned_flag);
    return assigned == words_.options.end() ? "" : assigned->substr(0, assigned->find('='));
}

}  // namespace
}  // namespace tavo::tool

namespace {

// CLI11 has functions that must not throw, and do when memory runs out. That is said without any
// memory; nothing has been changed by then. Everything else that ends here is a defect.
[[noreturn]] void EndOutOfMemory() {
    std::fputs("servicetool: error: out of memory [failed]\n", stderr);
    std::_Exit(static_cast<int>(tavo::tool::Status::kFailed));
}

[[noreturn]] void Terminate() {
    try {
        if (const std::exception_ptr thrown = std::current_exception()) {
            std::rethrow_exception(thrown);
        }
    } catch (const std::bad_alloc &) {
        EndOutOfMemory();
    } catch (...) {
    }
    std::abort();
}

}  // namespace

int main(int argc, char **argv) {
    std::set_terminate(Terminate);
    try {
        return tavo::tool::CommandLine().Run(argc, argv);
    } catch (const std::bad_alloc &) {
        EndOutOfMemory();
    }
}
