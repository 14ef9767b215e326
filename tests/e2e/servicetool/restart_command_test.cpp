// servicetool restart: firewall and relay daemon apply the declared ports.
#include <gmock/gmock.h>

#include "change_world.h"

namespace tavo::test {
namespace {

class RestartCommand : public ChangeWorld {};

TEST_F(RestartCommand, ReloadsTheFirewallAndTheRelayDaemon) {
    ExpectRun(ServiceTool({"restart"}), 0,
              "will notify: " + kFirewallAndRelay + "notified: " + kFirewallAndRelay);
    EXPECT_EQ(Calls(), "tavofirewall --reload\n" + kRelayCalls);
}

TEST_F(RestartCommand, ReloadsWhatIsAskedFor) {
    struct Case {
        std::vector<std::string> options;
        std::string calls;
    };
    for (const Case &one :
         {Case{{"--firewall"}, "tavofirewall --reload\n" + kRelayCalls},
          Case{{"--relay"}, kRelayCalls},
          Case{{"--firewall", "--relay"}, "tavofirewall --reload\n" + kRelayCalls}}) {
        std::filesystem::remove(kCalls + "all");
        std::vector<std::string> words = one.options;
        words.insert(words.begin(), "restart");
        EXPECT_EQ(ServiceTool(words).status, 0);
        EXPECT_EQ(Calls(), one.calls);
    }
}

TEST_F(RestartCommand, LeavesARelayDaemonAloneThatDoesNotRun) {
    WriteFile("/run/active-units", "");
    EXPECT_EQ(ServiceTool({"restart", "--relay"}).status, 0);
    EXPECT_EQ(Calls(), "systemctl is-active --quiet tavorelayd\n");
}

TEST_F(RestartCommand, NotifiesNobodyInADryRun) {
    ExpectRun(ServiceTool({"restart", "--dry-run"}), 0,
              "will notify: " + kFirewallAndRelay + kDryRun);
    EXPECT_EQ(Calls(), "");
}

TEST_F(RestartCommand, SaysWhoWasNotNotified) {
    const ReplacedTool firewall(kFirewallTool);
    const ProgramResult text = ServiceTool({"restart"});
    const Json result = Json::Parse(ServiceTool({"restart", "--json"}).out)["results"][0];
    const std::string reason = ": " + kFirewallTool + " is missing [not-told]\n";
    ExpectRun(text, 3, "will notify: " + kFirewallAndRelay,
              "servicetool: warning: could not notify the firewall" + reason +
                  "    fix: write servicetool restart\n"
                  "servicetool: warning: could not notify the relay daemon" +
                  reason + "    fix: write servicetool restart --relay\n");
    EXPECT_EQ(result, Json::Parse(R"({"operation": "restart", "file": null, "path": null,
        "section": null, "dry_run": false, "changed": false, "diff": null, "conflicts": [],
        "told": [], "not_told": ["firewall", "relay"]})"));
    EXPECT_EQ(Calls(), "");
}

TEST_F(RestartCommand, DoesNotKnowWhetherTheRelayDaemonRuns) {
    WriteFile("/run/exit-status/systemctl", "143\n");
    ExpectRun(ServiceTool({"restart", "--relay"}), 3, "will notify: relay daemon\n",
              "servicetool: warning: could not notify the relay daemon: it is unknown whether "
              "tavorelayd runs [not-told]\n    fix: write servicetool restart --relay\n");
}

}  // namespace
}  // namespace tavo::test
