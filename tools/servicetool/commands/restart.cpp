// servicetool restart.
#include "change/change_report.h"
#include "commands/commands.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

struct RestartOptions {
    bool firewall = false;  // with the relay daemon; also where nothing is asked for
    bool relay = false;
    bool dry_run = false;
};

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

constexpr Option kOptions[] = {
    {.name = "--firewall", .help = "Reload the firewall, and the relay daemon if it runs"},
    {.name = "--relay", .help = "Reload the relay daemon if it runs"},
    kDryRun,
};

constexpr char kExamples[] = R"(Examples:
  servicetool restart                    the firewall, and with it the relay daemon
  servicetool restart --relay            the relay daemon alone)";

}  // namespace

constinit const Command kRestartCommand = {
    .name = "restart",
    .summary = "Have the declared ports take effect",
    .operands = {},
    .options = kOptions,
    .examples = kExamples,
    .run =
        [](const Arguments &arguments, Report &report) {
            Restart({.firewall = arguments.Has("--firewall"),
                     .relay = arguments.Has("--relay"),
                     .dry_run = arguments.Has("--dry-run")},
                    report);
        },
    .change =
        [](const Arguments &arguments) {
            return ChangeAskedFor("restart", "", "", arguments.Has("--dry-run"));
        },
};

}  // namespace tavo::tool
