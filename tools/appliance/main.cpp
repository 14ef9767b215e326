// appliance: runs a command in a private appliance.
//
// What stands behind -- is the command's own and is taken off before the options are read, so that
// no argument of the command is ever mistaken for one.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "failure.h"
#include "inside.h"
#include "run.h"

namespace {

constexpr const char *kSummary =
    "Runs a command in a private appliance: the appliance's own paths, settings and services,\n"
    "its own process table, network and system log, all thrown away when the command ends.";

constexpr const char *kUsage =
    "Usage: appliance run [--root DIR] [--with FILE...] -- COMMAND [ARG...]\n";

constexpr const char *kDetails = R"(
A FILE of --with is SOURCE:/TARGET, or a SOURCE alone, which goes to /usr/local/etc/services.d, where
packages have their service files.

Examples:
  appliance run -- servicetool list
  appliance run --with my-service.sc -- servicetool show my-service
  appliance run --with my.conf:/etc/tavoinfo.conf -- bash -l
  appliance run --root look -- tavofirewall --reload; cat look/run/calls/tavofirewall

Inside:
  /run/log/messages      what was sent to the system log, a line each
  /run/calls/NAME        how NAME was called: tavofirewall, tavoroutertool, systemctl and the plugin
                         portforward only keep a record; /run/calls/all has them all in order
  /run/exit-status/NAME  the statuses that the next calls of NAME end with, a line each
  /run/active-units      the units that systemctl calls active, a line each

Exit status: that of COMMAND; 128 + N when signal N ended it; 125 when the appliance cannot be
started, 126 when COMMAND cannot be run, 127 when there is no such command.)";

constexpr const char *kSeeHelp = " (see appliance run --help)";

class HelpText : public CLI::Formatter {
  public:
    std::string make_usage(const CLI::App *, std::string) const override { return kUsage; }
};

// What the parser did not know, in words that help on.
void RefuseExtras(const std::vector<std::string> &extras, bool run) {
    if (extras.empty()) {
        return;
    }
    const std::string &extra = extras.front();
    if (extra.starts_with('-')) {
        throw tavo::Failure("unknown option " + extra + kSeeHelp);
    }
    if (!run) {
        throw tavo::Failure("unknown subcommand " + extra + ", it must be run" + kSeeHelp);
    }
    throw tavo::Failure("unexpected argument " + extra +
                        ": COMMAND stands behind --, as in appliance run -- " + extra);
}

int Main(int argc, char *argv[]) {
    char **const separator = std::find(argv, argv + argc, std::string_view("--"));
    tavo::RunOptions options;

    CLI::App app(kSummary, "appliance");
    app.formatter(std::make_shared<HelpText>());
    app.footer(kDetails);
    app.set_version_flag("--version", "appliance " APPLIANCE_VERSION);
    app.allow_extras();
    CLI::App *run = app.add_subcommand("run", "Run a command");
    run->description(kSummary);
    run->footer(kDetails);
    run->allow_extras();
    run->add_option("--root", options.root, "Make its files in DIR, empty or absent, and keep them")
        ->type_name("DIR")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    run->add_option("--with", options.extra_files, "Place files of the host in it")
        ->type_name("FILE");
    try {
        app.parse(static_cast<int>(separator - argv), argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        throw tavo::Failure(error.what() + std::string(kSeeHelp));
    }
    RefuseExtras(app.remaining(true), run->parsed());
    if (!run->parsed()) {
        throw tavo::Failure(std::string("a subcommand is required: run") + kSeeHelp);
    }
    if (argv + argc - separator < 2) {
        throw tavo::Failure(std::string("-- COMMAND is required") + kSeeHelp);
    }
    options.command.assign(separator + 1, argv + argc);
    return tavo::RunAppliance(options);
}

}  // namespace

int main(int argc, char *argv[]) {
    try {
        if (argc > 3 && std::string_view(argv[1]) == tavo::kInsideCommand) {
            return tavo::BecomeCommand(argv);
        }
        return Main(argc, argv);
    } catch (const std::system_error &error) {
        // Its what() is written for programmers, and names temporary paths.
        std::fprintf(stderr, "appliance: %s\n", tavo::ErrorText(error.code().value()).c_str());
        return tavo::kOwnFailure;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "appliance: %s\n", error.what());
        return tavo::kOwnFailure;
    }
}
