// Collects the findings of one file while its lines are walked.
#ifndef TAVO_SERVICETOOL_LINT_FINDINGS_H
#define TAVO_SERVICETOOL_LINT_FINDINGS_H

#include <cstddef>
#include <string>
#include <string_view>

#include "config_lines.h"
#include "lint/lint.h"
#include "lint/lint_rules.h"

namespace tavo::tool {

class Findings {
  public:
    // Any file may be handed to lint, so the list of findings is bounded; the counts are not.
    static constexpr std::size_t kListed = 1000;

    Findings(std::string_view file, LintResult &result) : file_(file), result_(result) {}

    // What follows is about this service, or about none where it is NULL.
    void EnterService(LintedService *service) { service_ = service; }

    // `spot` is the part of line.text that is meant; it may be empty.
    void Add(const LintRule &rule, const ConfigLine &line, std::string_view spot,
             std::string message, std::string fix = {});

    // Says how many findings are not listed, if any.
    void Close();

  private:
    std::string file_;
    LintResult &result_;
    LintedService *service_ = nullptr;
};

}  // namespace tavo::tool

#endif
