// The private appliance that a test runs in, prepared so that the test decides what declares a
// port, and the stand-ins in it for the tools that act on ports.
#ifndef TAVO_TESTS_SUPPORT_APPLIANCE_H
#define TAVO_TESTS_SUPPORT_APPLIANCE_H

#include <string>
#include <vector>

namespace tavo::test {

constexpr char kSystemServices[] = "/usr/tavo/etc/services.d";
constexpr char kPackageServices[] = "/usr/local/etc/services.d";
constexpr char kForwardingRules[] = "/usr/tavo/etc/portforward/rule.conf";

// An appliance without service files and forwarding rules, with empty settings. The built-in
// services stay. Throws outside of a private appliance.
class Appliance {
  public:
    Appliance();

    // What has come into /tmp since, sorted. The folder of a source or build tree may have been
    // there.
    std::vector<std::string> InTmp() const;

  private:
    std::vector<std::string> tmp_before_;
};

// The record of the calls of a stand-in, as it was written; "all" is the record of all of them in
// order. Empty when there was no call.
std::string RecordOfCalls(const std::string &name = "all");

void ForgetCalls();

// The statuses that a stand-in exits with from now on, a line each; the last one stays.
void SetExitStatus(const std::string &name, const std::string &statuses);

void ActivateRelayDaemon();

// The tool or plugin runs these lines from now on.
void WriteScript(const std::string &path, const std::string &lines);

}  // namespace tavo::test

#endif
