// Which function each command is.
#include <algorithm>
#include <iterator>
#include <string_view>

#include "commands/command_options.h"

namespace tavo::tool {
namespace {

struct Command {
    std::string_view name;
    void (*run)(const CommandOptions &options, Report &report);
};

constexpr Command kCommands[] = {
    {"list", [](const auto &options, Report &report) { List(options.list, report); }},
    {"show", [](const auto &options, Report &report) { Show(options.show_target, report); }},
    {"lint", [](const auto &options, Report &report) { Lint(options.lint, report); }},
    {"services", [](const auto &options, Report &report) { Services(options.services, report); }},
    {"check", [](const auto &options, Report &report) { Check(options.check, report); }},
    {"suggest", [](const auto &options, Report &report) { Suggest(options.suggest, report); }},
    {"why", [](const auto &options, Report &report) { Why(options.why, report); }},
    {"ports", [](const auto &options, Report &report) { Ports(options.ports, report); }},
    {"install", [](const auto &options, Report &report) { Install(options.install, report); }},
    {"update", [](const auto &options, Report &report) { Update(options.install, report); }},
    {"remove", [](const auto &options, Report &report) { Remove(options.remove, report); }},
    {"set", [](const auto &options, Report &report) { Set(options.set, report); }},
    {"set-ports", [](const auto &options, Report &report) { SetPorts(options.set_ports, report); }},
    {"remove-section",
     [](const auto &options, Report &report) { RemoveSection(options.remove_section, report); }},
    {"restart", [](const auto &options, Report &report) { Restart(options.restart, report); }},
    {"clean", [](const auto &options, Report &report) { Clean(options.clean, report); }},
};

}  // namespace

void Run(const CLI::App &command, const CommandOptions &options, Report &report) {
    const auto is_meant = [&command](const Command &one) { return one.name == command.get_name(); };
    std::find_if(std::begin(kCommands), std::end(kCommands), is_meant)->run(options, report);
}

}  // namespace tavo::tool
