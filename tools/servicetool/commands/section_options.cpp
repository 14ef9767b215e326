#include "commands/section_options.h"

#include <algorithm>
#include <iterator>

#include "commands/option_kinds.h"

namespace tavo::tool {
namespace {

constexpr char kSetExamples[] = R"(Examples:
  servicetool set mypackage.sc web --title Web --desc "The web pages" --dst-ports 8080/tcp
  servicetool set mypackage.sc web --title "My web"   the rest stays as it is
  servicetool set mypackage.sc web --port-forward --dry-run)";

constexpr char kSetPortsExamples[] = R"(Examples:
  servicetool set-ports mypackage.sc web 8080,8443/tcp
  servicetool set-ports mypackage.sc web 8081/udp --src
  servicetool set-ports mypackage.sc web 8081/tcp --dry-run)";

constexpr char kRemoveSectionExamples[] = R"(Examples:
  servicetool remove-section mypackage.sc web
  servicetool remove-section mypackage.sc web --dry-run)";

constexpr char kRestartExamples[] = R"(Examples:
  servicetool restart                    the firewall, and with it the relay daemon
  servicetool restart --relay            the relay daemon alone)";

// The texts of set that are given with an option each.
struct TextOption {
    const char *name;
    std::string SetOptions::*text;
    const char *label;
    const char *purpose;
};

constexpr TextOption kTextOptions[] = {
    {"--title", &SetOptions::title, "TITLE", "What the service is called; needed for a new one"},
    {"--desc", &SetOptions::description, "TEXT", "What it does; needed for a new one"},
    {"--dst-ports", &SetOptions::ports, "PORTS",
     "Its ports, such as 80,6000:6010/tcp; needed for a new one"},
    {"--src-ports", &SetOptions::source_ports, "PORTS",
     "The ports that its clients come from; others may have them"},
    {"--title-key", &SetOptions::title_key, "REFERENCE",
     "Where the title is in a string table: [SOURCE:]SECTION:KEY"},
    {"--desc-key", &SetOptions::description_key, "REFERENCE", "Where the description is"},
};

void AddTarget(CLI::App &command, SectionOptions &options) {
    AddWord(command, "FILE", options.file, "The name of an installed file, such as mypackage.sc");
    AddWord(command, "SECTION", options.section, "The name of a service in it");
}

void AddSectionOptions(CLI::App &command, SectionOptions &options) {
    AddFolder(command, options.folder);
    AddFlag(command, "--no-restart", options.no_restart,
            "Reload neither the firewall nor the relay daemon");
    AddDryRun(command, options.dry_run);
}

void AddSet(CLI::App &app, CommandOptions &options) {
    SetOptions &set = options.set;
    CLI::App &command =
        AddCommand(app, options, "set", "Write a section of an installed file", kSetExamples);
    AddTarget(command, set);
    for (const TextOption &option : kTextOptions) {
        AddText(command, option.name, set.*option.text, option.label, option.purpose);
    }
    AddFlag(command, "--port-forward", set.port_forward, "The router may forward its ports");
    AddFlag(command, "--no-port-forward", set.no_port_forward, "It may not");
    AddSectionOptions(command, set);
}

void AddSetPorts(CLI::App &app, CommandOptions &options) {
    SetPortsOptions &set = options.set_ports;
    CLI::App &command =
        AddCommand(app, options, "set-ports", "Replace the ports of a section", kSetPortsExamples);
    AddTarget(command, set);
    AddWord(command, "PORTS", set.ports, "Its ports, such as 80,6000:6010/tcp");
    AddFlag(command, "--src", set.source,
            "Set src.ports instead, which are refused alike if others have them");
    AddSectionOptions(command, set);
}

void AddRemoveSection(CLI::App &app, CommandOptions &options) {
    CLI::App &command =
        AddCommand(app, options, "remove-section", "Remove a section from an installed file",
                   kRemoveSectionExamples);
    AddTarget(command, options.remove_section);
    AddSectionOptions(command, options.remove_section);
}

void AddRestart(CLI::App &app, CommandOptions &options) {
    CLI::App &command = AddCommand(app, options, "restart", "Have the declared ports take effect",
                                   kRestartExamples);
    AddFlag(command, "--firewall", options.restart.firewall,
            "Reload the firewall, and the relay daemon if it runs");
    AddFlag(command, "--relay", options.restart.relay, "Reload the relay daemon if it runs");
    AddDryRun(command, options.restart.dry_run);
}

UsageProblem ProblemOfSet(const CLI::App &command, const SetOptions &set) {
    for (const TextOption &option : kTextOptions) {
        if (command.count(option.name) != 0 && (set.*option.text).empty()) {
            return {std::string(option.name) + " is empty", ""};
        }
    }
    if (set.port_forward && set.no_port_forward) {
        return {"--port-forward and --no-port-forward exclude each other", ""};
    }
    return ProblemOfFolder(set.folder);
}

}  // namespace

void AddSectionCommands(CLI::App &app, CommandOptions &options) {
    AddSet(app, options);
    AddSetPorts(app, options);
    AddRemoveSection(app, options);
    AddRestart(app, options);
}

bool ChangesSections(const CLI::App &command) {
    const std::string &name = command.get_name();
    return name == "set" || name == "set-ports" || name == "remove-section" || name == "restart";
}

std::vector<std::string *> SectionTexts(CommandOptions &options) {
    std::vector<std::string *> texts = {&options.set_ports.ports};
    for (SectionOptions *section : std::initializer_list<SectionOptions *>{
             &options.set, &options.set_ports, &options.remove_section}) {
        texts.insert(texts.end(), {&section->file, &section->section});
    }
    std::transform(std::begin(kTextOptions), std::end(kTextOptions), std::back_inserter(texts),
                   [&](const TextOption &option) { return &(options.set.*option.text); });
    return texts;
}

UsageProblem ProblemOfSectionCommand(const CLI::App &command, const CommandOptions &options) {
    const std::string &name = command.get_name();
    return name == "set"              ? ProblemOfSet(command, options.set)
           : name == "set-ports"      ? ProblemOfFolder(options.set_ports.folder)
           : name == "remove-section" ? ProblemOfFolder(options.remove_section.folder)
                                      : UsageProblem();  // restart changes no file
}

}  // namespace tavo::tool
