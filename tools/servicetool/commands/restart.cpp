// servicetool restart.
#include "change/change_report.h"
#include "commands/commands.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

void Restart(const RestartOptions &options, Report &report) {
    const bool firewall = options.firewall || !options.relay;
    const int flags =
        (firewall ? TAVO_RESTART_FIREWALL : 0) | (options.relay ? TAVO_RESTART_RELAY : 0);
    Change plan;
    plan.operation = "restart";
    plan.dry_run = options.dry_run;
    plan.listeners = firewall ? std::vector{Listener::kFirewall, Listener::kRelayDaemon}
                              : std::vector{Listener::kRelayDaemon};
    ChangeReport change(std::move(plan), report);
    if (change.Begin("")) {
        change.Do(
            [flags](ChangeOutcome &outcome) { return RestartServices(flags, outcome.notified); });
    }
}

}  // namespace tavo::tool
