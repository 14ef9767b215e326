// The private appliance of a test, in which only the test declares ports apart from the built-in
// services, and the stand-ins in it for the tools that act on ports.
#ifndef TAVO_TESTS_SUPPORT_APPLIANCE_H
#define TAVO_TESTS_SUPPORT_APPLIANCE_H

#include <string>
#include <vector>

namespace tavo::test {

constexpr char kSystemServices[] = "/usr/tavo/etc/services.d";
constexpr char kPackageServices[] = "/usr/local/etc/services.d";
constexpr char kForwardingRules[] = "/usr/tavo/etc/portforward/rule.conf";

// An appliance without service files and forwarding rules, with empty settings. The built-in
// services remain. The constructor throws outside of a private appliance.
class Appliance {
  public:
    Appliance();

    // The entries that were added to /tmp since construction, sorted.
    std::vector<std::string> InTmp() const;

  private:
    std::vector<std::string> tmp_before_;
};

// The recorded calls of a stand-in, unchanged; "all" returns the calls of all stand-ins in order.
// Empty if there was no call.
std::string RecordOfCalls(const std::string &name = "all");

void ForgetCalls();

// Sets the exit statuses of the next runs of a stand-in, one per line; the last one is repeated.
void SetExitStatus(const std::string &name, const std::string &statuses);

void ActivateRelayDaemon();

// The system log once it contains `text`, or after ten seconds. The launcher, a separate process,
// writes it, so a message may appear with a delay.
std::string SystemLogWith(const std::string &text);

// Replaces the tool or plugin with a script of these lines.
void WriteScript(const std::string &path, const std::string &lines);

}  // namespace tavo::test

#endif
