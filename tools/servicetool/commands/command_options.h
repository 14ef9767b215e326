// What each command takes from the command line.
#ifndef TAVO_SERVICETOOL_COMMANDS_COMMAND_OPTIONS_H
#define TAVO_SERVICETOOL_COMMANDS_COMMAND_OPTIONS_H

#include <CLI/CLI.hpp>
#include <string>

#include "commands/commands.h"
#include "output/report.h"

namespace tavo::tool {

struct CommandOptions {
    bool json = false;
    bool verbose = false;
    ListOptions list;
    std::string show_target;
    LintOptions lint;
    ServicesOptions services;
    CheckOptions check;
    SuggestOptions suggest;
    std::string suggest_count = "1";  // as it is written
    std::string suggest_near;
    WhyOptions why;
    PortsOptions ports;
    InstallOptions install;  // of update, too
    RemoveOptions remove;
    SetOptions set;
    SetPortsOptions set_ports;
    SectionOptions remove_section;
    RestartOptions restart;
    CleanOptions clean;
};

// Adds the commands to `app`, which then writes what is parsed to `options`.
void AddCommands(CLI::App &app, CommandOptions &options);

// Whether some command has an option of that name, "--file", which takes a value.
bool TakesValue(const CLI::App &app, const std::string &option);

// Takes the guards off, and lists and numbers out of their texts.
struct UsageProblem {
    std::string message;  // empty: there is none
    std::string fix;      // empty: the help tells
};
UsageProblem TakeAsMeant(const CLI::App &command, CommandOptions &options);

void Run(const CLI::App &command, const CommandOptions &options, Report &report);

}  // namespace tavo::tool

#endif
