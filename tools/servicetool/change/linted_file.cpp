#include "change/linted_file.h"

#include <utility>

#include "input/input_file.h"
#include "output/text.h"

namespace tavo::tool {
bool LintAndTell(const std::string &path, LintedFile &file, Report &report, std::string fix) {
    const bool standard_input = path == kStandardInput;
    file.name = standard_input ? std::string(kStandardInputName) : path;
    FileContents contents = standard_input ? ReadStandardInput() : ReadRegularFile(path);
    if (!contents.problem.empty()) {
        report.TellError(file.name, "unreadable", contents.problem, std::move(fix));
        report.Raise(Status::kFailed);
        return false;
    }
    file.text = std::move(contents.text);
    file.lint = LintText(file.text, file.name);
    for (const Diagnostic &diagnostic : file.lint.diagnostics) {
        report.Tell(diagnostic);
    }
    return true;
}

std::string LintVerdict(const LintResult &result) {
    std::string verdict;
    if (result.errors != 0) {
        verdict = Counted(result.errors, "error");
    }
    if (result.warnings != 0) {
        verdict += (verdict.empty() ? "" : ", ") + Counted(result.warnings, "warning");
    }
    return verdict.empty() ? "ok" : verdict;
}

}  // namespace tavo::tool
