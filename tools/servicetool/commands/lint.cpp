#include <algorithm>

#include "commands/commands.h"
#include "lint/lint.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

void Lint(const Arguments &arguments, Report &report) {
    const bool strict = arguments.Has("--strict");
    for (const std::string &path : arguments.Operands()) {
        LintedFile file;
        if (!LintAndTell(path, file, report)) {
            continue;
        }
        const LintResult &lint = file.lint;
        if (lint.errors != 0 || (strict && lint.warnings != 0)) {
            report.Raise(Status::kNo);
        }
        report.Print(Escaped(file.name) + ": " + LintVerdict(lint) + '\n');
        const auto readable = std::ranges::count(lint.services, true, &LintedService::readable);
        report.AddResult({{"file", Utf8Text(file.name)},
                          {"services", lint.services.size()},
                          {"readable_services", readable},
                          {"errors", lint.errors},
                          {"warnings", lint.warnings}});
    }
}

constexpr Operand kOperands[] = {
    {.value = {"FILE", Completion::kFiles},
     .help = "Service files; - is standard input",
     .count = Count::kSome},
};

constexpr Option kOptions[] = {
    {.name = "--strict", .help = "Treat warnings as errors"},
};

}  // namespace

constinit const Command kLintCommand = {
    .name = "lint",
    .summary = "Find mistakes in service files",
    .operands = kOperands,
    .options = kOptions,
    .examples = R"(Examples:
  servicetool lint mypackage.sc
  servicetool lint --strict *.sc && echo fit to ship
  generate-services | servicetool lint -)",
    .check = [](const Arguments &arguments) { return ProblemOfNames(arguments.Operands()); },
    .run = Lint,
};

}  // namespace tavo::tool
