// The findings of lint in a short form for tests.
#ifndef TAVO_TESTS_SERVICETOOL_LINT_FINDINGS_H
#define TAVO_TESTS_SERVICETOOL_LINT_FINDINGS_H

#include <string>
#include <string_view>
#include <vector>

#include "lint/lint.h"

namespace tavo::test {

// Findings as "LINE:COLUMN severity rule: message | fix".
inline std::vector<std::string> Findings(std::string_view text) {
    std::vector<std::string> findings;
    for (const tool::Diagnostic &d : tool::LintText(text, "web.sc").diagnostics) {
        findings.push_back(std::to_string(d.line) + ':' + std::to_string(d.column) + ' ' +
                           std::string(SeverityName(d.severity)) + ' ' + d.rule + ": " + d.message +
                           (d.fix.empty() ? "" : " | " + d.fix));
    }
    return findings;
}

inline constexpr char kTitle[] = "title=\"Web\"\n";
inline constexpr char kDesc[] = "desc=\"Pages\"\n";
inline constexpr char kPorts[] = "dst.ports=\"80/tcp\"\n";

// A file with one valid service in lines 1 to 4, and `more` from line 5.
inline std::string GoodFileAnd(const std::string &more) {
    return std::string("[web]\n") + kTitle + kDesc + kPorts + more;
}

// The findings about a value of dst.ports; it starts in line 4 at column 11.
inline std::vector<std::string> PortFindings(const std::string &value) {
    return Findings(std::string("[web]\n") + kTitle + kDesc + "dst.ports=" + value + '\n');
}

}  // namespace tavo::test

#endif
