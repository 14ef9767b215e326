// The rules of the port-forwarding library, line by line: whose they are, and what is wrong with
// one that the library stumbles over.
#ifndef TAVO_SERVICETOOL_PORTS_RULE_FILE_H
#define TAVO_SERVICETOOL_PORTS_RULE_FILE_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "output/report.h"
#include "ports/port_question.h"

namespace tavo::tool {

inline constexpr char kRuleFile[] = "/usr/tavo/etc/portforward/rule.conf";

// Keys of a rule.
inline constexpr char kRuleService[] = "service_id";
inline constexpr char kRuleTitle[] = "service name";
inline constexpr char kRuleProtocol[] = "protocol name";
inline constexpr char kRuleAppliancePorts[] = "s_port";
inline constexpr char kRuleRouterPorts[] = "r_port";

struct ForwardRule {
    ConfigLine line;  // that opens its section
    std::map<std::string_view, ConfigLine> keys;

    std::string Value(std::string_view key) const;
};

class RuleFile {
  public:
    // Reads the file; one that is not there has no rules.
    RuleFile();
    RuleFile(const RuleFile &) = delete;
    RuleFile &operator=(const RuleFile &) = delete;

    // Why the file cannot be read; else empty.
    const std::string &Problem() const { return problem_; }

    // There is no file, be it that a symbolic link to it is there.
    bool IsMissing() const { return missing_; }

    const std::string &Text() const { return text_; }

    // In file order, sections of one name as one rule.
    const std::vector<ForwardRule> &Rules() const { return rules_; }

  private:
    bool missing_ = false;
    std::string text_;
    std::string problem_;
    std::vector<ForwardRule> rules_;
};

// The first rule that cannot be compared with anything, as a finding at its line; false when there
// is none.
bool FindBadRule(const RuleFile &file, const SkippedNames &skipped, Diagnostic &finding);

}  // namespace tavo::tool

#endif
