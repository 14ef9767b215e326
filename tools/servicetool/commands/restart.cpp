// servicetool restart.
#include "change/change_report.h"
#include "commands/commands.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

// Restarts the firewall and the relay daemon, or only the relay daemon if only --relay is given.
void Restart(const Arguments &arguments, Report &report) {
    const bool relay = arguments.Has("--relay");
    const bool firewall = arguments.Has("--firewall") || !relay;
    const int flags = (firewall ? TAVO_RESTART_FIREWALL : 0) | (relay ? TAVO_RESTART_RELAY : 0);
    Change change = ChangeAskedFor(arguments);
    change.listeners = firewall ? std::vector{Listener::kFirewall, Listener::kRelayDaemon}
                                : std::vector{Listener::kRelayDaemon};
    ChangeReport change_report(change, report);
    if (change_report.Begin()) {
        change_report.Do(
            [flags](ChangeOutcome &outcome) { return RestartServices(flags, outcome.notified); });
    }
}

constexpr Option kOptions[] = {
    {.name = "--firewall", .help = "Reload the firewall, and the relay daemon if it runs"},
    {.name = "--relay", .help = "Reload the relay daemon if it runs"},
    kDryRun,
};

}  // namespace

constinit const Command kRestartCommand = {
    .name = "restart",
    .summary = "Make changed ports take effect",
    .options = kOptions,
    .examples = R"(Examples:
  servicetool restart                    the firewall, and with it the relay daemon
  servicetool restart --relay            the relay daemon alone)",
    .run = Restart,
    .change = ChangeAskedFor,
};

}  // namespace tavo::tool
