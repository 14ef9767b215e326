#include <algorithm>

#include "commands/commands.h"
#include "lint/lint.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

Json VerdictJson(const LintResult &result, const std::string &name) {
    const auto readable = std::ranges::count(result.services, true, &LintedService::readable);
    return {{"file", Utf8Text(name)},
            {"services", result.services.size()},
            {"readable_services", readable},
            {"errors", result.errors},
            {"warnings", result.warnings}};
}

void Lint(const Arguments &arguments, Report &report) {
    const bool strict = arguments.Has("--strict");
    for (const std::string &path : arguments.Operands()) {
        LintedFile file;
        if (!LintAndTell(path, file, report)) {
            continue;
        }
        if (file.lint.errors != 0 || (strict && file.lint.warnings != 0)) {
            report.Raise(Status::kNo);
        }
        report.Print(Escaped(file.name) + ": " + LintVerdict(file.lint) + '\n');
        report.AddResult(VerdictJson(file.lint, file.name));
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
