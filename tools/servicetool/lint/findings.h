// Collects the findings of one file while its lines are checked.
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
    // Lint may be given any file, so the number of listed findings is limited; all are counted.
    static constexpr std::size_t kListed = 1000;

    Findings(std::string_view file, LintResult &result) : file_(file), result_(result) {}

    // Sets the service that the following findings are about; null for none.
    void EnterService(LintedService *service) { service_ = service; }

    // `spot` is the part of line.text to mark; it may be empty.
    void Add(const LintRule &rule, const ConfigLine &line, std::string_view spot,
             std::string message, std::string fix = {});

    // Adds a finding with the number of findings that are not listed, if any.
    void Close();

  private:
    std::string file_;
    LintResult &result_;
    LintedService *service_ = nullptr;
};

}  // namespace tavo::tool

#endif
