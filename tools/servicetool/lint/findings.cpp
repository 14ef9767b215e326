#include "lint/findings.h"

#include <utility>

#include "output/text.h"

namespace tavo::tool {

void Findings::Add(const LintRule &rule, const ConfigLine &line, std::string_view spot,
                   std::string message, std::string fix) {
    const bool error = rule.severity == Severity::kError;
    const std::size_t number = ++(error ? result_.errors : result_.warnings);
    const bool listed = number <= kListed;
    if (error && service_ != nullptr) {
        service_->readable = false;
        if (listed && !service_->first_error) {
            service_->first_error = result_.diagnostics.size();
        }
    }
    if (!listed) {
        return;
    }
    const std::size_t column = line.ColumnOf(spot);
    result_.diagnostics.push_back({file_, line.number, column, rule.severity,
                                   std::string(rule.name), std::move(message), std::move(fix),
                                   AroundSpot(line.text, column - 1)});
}

void Findings::Close() {
    const auto beyond = [](std::size_t n) { return n > kListed ? n - kListed : 0; };
    const std::size_t errors = beyond(result_.errors);
    const std::size_t warnings = beyond(result_.warnings);
    if (errors + warnings != 0) {
        const LintRule rule = Rule("more-problems");
        result_.diagnostics.push_back({.file = file_,
                                       .severity = rule.severity,
                                       .rule = std::string(rule.name),
                                       .message = Counted(errors, "error") + " and " +
                                                  Counted(warnings, "warning") +
                                                  " are not listed"});
    }
}

}  // namespace tavo::tool
