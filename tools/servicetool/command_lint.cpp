#include <nlohmann/json.hpp>

#include "commands.h"
#include "input_file.h"
#include "library_log.h"
#include "lint.h"
#include "text.h"

namespace tavo {
namespace {

LintResult LintQuietly(const FileContents &contents, const std::string &name) {
    const LibraryLog log;
    return LintText(contents.text, name);
}

std::string Verdict(const LintResult &result) {
    std::string verdict;
    if (result.errors != 0) {
        verdict = Counted(result.errors, "error");
    }
    if (result.warnings != 0) {
        verdict += (verdict.empty() ? "" : ", ") + Counted(result.warnings, "warning");
    }
    return verdict.empty() ? "ok" : verdict;
}

nlohmann::ordered_json VerdictJson(const LintResult &result, const std::string &name) {
    const auto readable = std::count_if(result.services.begin(), result.services.end(),
                                        [](const LintedService &s) { return s.readable; });
    return {{"file", Utf8Text(name)},
            {"services", result.services.size()},
            {"readable_services", readable},
            {"errors", result.errors},
            {"warnings", result.warnings}};
}

void LintFile(const std::string &path, bool strict, Report &report) {
    const bool standard_input = path == kStandardInput;
    const std::string name = standard_input ? std::string(kStandardInputName) : path;
    const FileContents contents = standard_input ? ReadStandardInput() : ReadRegularFile(path);
    if (!contents.problem.empty()) {
        report.TellError(name, "unreadable", contents.problem);
        report.Raise(Status::kFailed);
        return;
    }
    const LintResult result = LintQuietly(contents, name);
    for (const Diagnostic &diagnostic : result.diagnostics) {
        report.Tell(diagnostic);
    }
    if (result.errors != 0 || (strict && result.warnings != 0)) {
        report.Raise(Status::kNo);
    }
    report.Print(Escaped(name) + ": " + Verdict(result) + '\n');
    report.AddResult(VerdictJson(result, name));
}

}  // namespace

void Lint(const LintOptions &options, Report &report) {
    for (const std::string &path : options.files) {
        LintFile(path, options.strict, report);
    }
}

}  // namespace tavo
