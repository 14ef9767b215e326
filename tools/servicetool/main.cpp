// servicetool: services and their ports from a shell.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>

#include "change/change_report.h"
#include "commands/commands.h"
#include "input/library.h"
#include "output/report.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

int PrintAndEnd(const std::string &text) {
    std::fputs(text.c_str(), stdout);
    return Report(false).Finish();
}

// Reports an exception of a command. For a command that makes a change, it means that nothing was
// changed: ChangeReport::Do catches the exceptions of the change itself.
void TellThrown(const CommandLine &line, const std::string &reason, Report &report) {
    if (line.command->change != nullptr) {
        ChangeReport(line.command->change(line.arguments), report)
            .Refuse("failed", reason, "", Status::kFailed);
        return;
    }
    report.TellError("", "failed", reason);
}

// A command that makes a change always has one result, except after a usage error.
void AddMissingResult(const CommandLine &line, Report &report) {
    if (line.command->change != nullptr && report.Worst() != Status::kUsage &&
        !report.HasResult()) {
        ChangeReport(line.command->change(line.arguments), report).AddResult();
    }
}

void RunCommand(const CommandLine &line, Report &report) {
    ShowLibraryLog(line.arguments.Has("--verbose"));
    try {
        line.command->run(line.arguments, report);
    } catch (const std::bad_alloc &) {
        TellThrown(line, "out of memory", report);
    } catch (const std::exception &error) {
        TellThrown(line, LowerFirst(error.what()), report);
    }
    AddMissingResult(line, report);
}

int Run(int argc, char **argv) {
    const CommandLine line = ReadCommandLine(argc, argv);
    if (line.arguments.Has("--help")) {
        return PrintAndEnd(HelpText(line.command));
    }
    if (line.arguments.Has("--version")) {
        return PrintAndEnd("servicetool " SERVICETOOL_VERSION "\n");
    }
    Report report(line.arguments.Has("--json"));
    if (line.problem.message.empty()) {
        RunCommand(line, report);
    } else {
        report.TellUsage(line.problem.message, line.problem.fix);
    }
    return report.Finish();
}

}  // namespace
}  // namespace tavo::tool

namespace {

// Prints the message without allocating memory.
[[noreturn]] void EndOutOfMemory() {
    std::fputs("servicetool: error: out of memory [failed]\n", stderr);
    std::_Exit(static_cast<int>(tavo::tool::Status::kFailed));
}

// Called if a destructor runs out of memory, for example while it removes a private folder. Any
// other reason is a defect.
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
        return tavo::tool::Run(argc, argv);
    } catch (const std::bad_alloc &) {
        EndOutOfMemory();
    }
}
