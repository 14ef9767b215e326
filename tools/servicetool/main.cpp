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

// A command that makes a change has one result, except after a usage error. An exception means that
// nothing was changed: ChangeReport::Do catches the exceptions of the change itself.
void ReportChangeNotMade(const CommandLine &line, const std::string &problem, Report &report) {
    const Change change = line.command->change(line.arguments);
    ChangeReport change_report(change, report);
    if (problem.empty()) {
        change_report.AddResult();
    } else {
        change_report.Refuse("failed", problem, "", Status::kFailed);
    }
}

void RunCommand(const CommandLine &line, Report &report) {
    ShowLibraryLog(line.arguments.Has("--verbose"));
    std::string problem;
    try {
        line.command->run(line.arguments, report);
    } catch (const std::bad_alloc &) {
        problem = "out of memory";
    } catch (const std::exception &error) {
        problem = LowerFirst(error.what());
    }
    const bool lacks_result = report.Worst() != Status::kUsage && !report.HasResult();
    if (line.command->change != nullptr && (lacks_result || !problem.empty())) {
        ReportChangeNotMade(line, problem, report);
    } else if (!problem.empty()) {
        report.AddError("", "failed", problem);
    }
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
        report.AddUsageError(line.problem.message, line.problem.fix);
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
