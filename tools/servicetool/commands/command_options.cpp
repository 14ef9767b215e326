#include "commands/command_options.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "commands/command_words.h"
#include "commands/file_options.h"
#include "commands/option_kinds.h"
#include "commands/section_options.h"
#include "input/input_file.h"
#include "output/output_file.h"
#include "output/text.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

constexpr char kListExamples[] = R"(Examples:
  servicetool list                       every service of the appliance
  servicetool list --package             those of packages only
  servicetool list --no-legend | wc -l   how many there are
  servicetool list --json | jq -r '.results[].name')";

constexpr char kShowExamples[] = R"(Examples:
  servicetool show ntp                   the service ntp, in whatever file it is
  servicetool show ./mypackage.sc        all services of a file
  servicetool show --json ntp | jq '.results[0].ports')";

constexpr char kLintExamples[] = R"(Examples:
  servicetool lint mypackage.sc
  servicetool lint --strict *.sc && echo fit to ship
  generate-services | servicetool lint -)";

constexpr char kServicesExamples[] = R"(Examples:
  servicetool services                   every service that the firewall can offer
  servicetool services --supported       those that this model supports
  servicetool services ssh ftp           these two
  servicetool services --json ssh | jq '.results[0].ports')";

constexpr char kCheckExamples[] = R"(Examples:
  servicetool check 8080/tcp && echo free
  servicetool check 80,443/tcp 6000:6010
  servicetool check 5222/tcp --skip chat   is it free for the service chat itself
  servicetool check 5000 --source setting,socket
  servicetool check --file mypackage.sc)";

constexpr char kSuggestExamples[] = R"(Examples:
  servicetool suggest                    a free port
  servicetool suggest 3 --proto tcp      three, free for TCP
  servicetool suggest 10 --block --near 8000
  servicetool suggest --json | jq '.results[0]')";

constexpr char kWhyExamples[] = R"(Examples:
  servicetool why 8080                   who has port 8080, for TCP and for UDP
  servicetool why 80/tcp 443/tcp
  servicetool why --json 53/udp | jq -r '.results[].verdict')";

constexpr char kPortsExamples[] = R"(Examples:
  servicetool ports                      every port that is declared or held
  servicetool ports --held               what processes hold right now
  servicetool ports --conflicts          ports that two have a claim to
  servicetool ports --map                all of them in a picture
  servicetool ports --svg ports.svg      the picture for a browser)";

constexpr char kCleanExamples[] = R"(Examples:
  servicetool clean --dry-run            what was left behind
  servicetool clean
  servicetool clean --json | jq -r '.results[] | select(.state == "kept").path')";

constexpr unsigned int kMostSuggestions = 1000;

// "forward, service, setting or socket"
std::string SourceNames() {
    std::string names;
    for (const PortSource &source : kPortSources) {
        const bool last = &source == std::end(kPortSources) - 1;
        names += names.empty() ? "" : last ? " or " : ", ";
        names += source.name;
    }
    return names;
}

bool IsSource(const std::string &name) {
    return std::any_of(std::begin(kPortSources), std::end(kPortSources),
                       [&name](const PortSource &source) { return source.name == name; });
}

void AddNoLegend(CLI::App &command, bool &no_legend, const char *purpose = "Leave the header out") {
    AddFlag(command, "--no-legend", no_legend, purpose);
}

void AddList(CLI::App &app, CommandOptions &options) {
    CLI::App &command = AddCommand(
        app, options, "list", "List the services that the service files declare", kListExamples);
    AddFlag(command, "--system", options.list.system, "Only those of the system");
    AddFlag(command, "--package", options.list.package, "Only those of packages");
    AddNoLegend(command, options.list.no_legend);
}

void AddShow(CLI::App &app, CommandOptions &options) {
    AddCommand(app, options, "show", "Show everything that a service or a service file says",
               kShowExamples)
        .add_option("NAME|FILE", options.show_target,
                    "A service by its name, or a file; - is standard input")
        ->option_text(" ")
        ->required();
}

void AddLint(CLI::App &app, CommandOptions &options) {
    CLI::App &command = AddCommand(app, options, "lint",
                                   "Find everything that is wrong in service files", kLintExamples);
    AddTexts(command, "FILE", options.lint.files, "...", "Service files; - is standard input")
        ->required();
    AddFlag(command, "--strict", options.lint.strict, "Fail on warnings, too");
}

void AddServices(CLI::App &app, CommandOptions &options) {
    CLI::App &command =
        AddCommand(app, options, "services", "List the services that the firewall can offer",
                   kServicesExamples);
    AddTexts(command, "NAME", options.services.names, "...", "Only services of these names");
    AddFlag(command, "--supported", options.services.supported,
            "Only those that this model supports");
    AddNoLegend(command, options.services.no_legend);
}

void AddCheck(CLI::App &app, CommandOptions &options) {
    CheckOptions &check = options.check;
    CLI::App &command = AddCommand(app, options, "check",
                                   "Tell whether ports are taken, and by whom", kCheckExamples);
    AddTexts(command, "PORTS[/PROTOCOLS]", check.ports, "...",
             "Ports and ranges, such as 80,6000:6010/tcp");
    AddTexts(command, "--file", check.files, "FILE...",
             "Check the ports of service files instead; - is standard input");
    AddTexts(command, "--skip", check.skip, "NAME,...", "Pass these services over")
        ->allow_extra_args(false);
    AddTexts(command, "--source", check.sources, "SOURCE,...", "Ask only these: " + SourceNames())
        ->allow_extra_args(false);
    AddNoLegend(command, check.no_legend);
}

void AddSuggest(CLI::App &app, CommandOptions &options) {
    SuggestOptions &suggest = options.suggest;
    CLI::App &command =
        AddCommand(app, options, "suggest", "Suggest ports that are free", kSuggestExamples);
    command.add_option("COUNT", options.suggest_count, "How many, 1 to 1000; else one")
        ->option_text(" ");
    AddText(command, "--near", options.suggest_near, "PORT",
            "Those nearest to this port; else to 8080");
    AddText(command, "--proto", suggest.protocols, "PROTOCOLS",
            "Free for tcp or udp; for both unless given");
    AddFlag(command, "--block", suggest.block, "Ports in a row");
}

void AddWhy(CLI::App &app, CommandOptions &options) {
    CLI::App &command =
        AddCommand(app, options, "why", "Tell who declares and who holds a port", kWhyExamples);
    AddTexts(command, "PORT[/PROTOCOL]", options.why.ports, "...",
             "Ports, such as 8080 or 53/udp; both protocols unless given")
        ->required();
    AddNoLegend(command, options.why.no_legend);
}

void AddPorts(CLI::App &app, CommandOptions &options) {
    PortsOptions &ports = options.ports;
    CLI::App &command = AddCommand(app, options, "ports",
                                   "List all ports that are declared or held", kPortsExamples);
    AddFlag(command, "--declared", ports.declared,
            "Only what services, rules and settings declare");
    AddFlag(command, "--held", ports.held, "Only what processes hold");
    AddFlag(command, "--conflicts", ports.conflicts, "Only ports that two have a claim to");
    AddFlag(command, "--map", ports.map, "Draw a picture of the ports instead");
    AddText(command, "--svg", ports.svg, "FILE",
            "Write the picture to a file; - is standard output");
    AddNoLegend(command, ports.no_legend, "Leave the header or the legend out");
}

void AddClean(CLI::App &app, CommandOptions &options) {
    CLI::App &command = AddCommand(app, options, "clean", "Remove what killed programs left behind",
                                   kCleanExamples);
    AddDryRun(command, options.clean.dry_run);
}

using TextLists = std::vector<std::vector<std::string> *>;

TextLists ListsOf(CommandOptions &options) {
    return {&options.lint.files,  &options.services.names, &options.check.ports,
            &options.check.files, &options.check.skip,     &options.check.sources,
            &options.why.ports};
}

void TakeOffGuards(CommandOptions &options) {
    for (std::string *text : {&options.show_target, &options.suggest.protocols,
                              &options.suggest_count, &options.suggest_near, &options.ports.svg}) {
        *text = Unguarded(*text);
    }
    for (const auto &texts : {FileTexts(options), SectionTexts(options)}) {
        for (std::string *text : texts) {
            *text = Unguarded(*text);
        }
    }
    for (auto *list : ListsOf(options)) {
        std::transform(list->begin(), list->end(), list->begin(), Unguarded);
    }
}

UsageProblem ProblemOfFiles(const std::vector<std::string> &files) {
    if (std::count(files.begin(), files.end(), kStandardInput) > 1) {
        return {"standard input is named twice", ""};
    }
    return {};
}

UsageProblem ProblemOfCheck(const CheckOptions &check) {
    if (check.ports.empty() && check.files.empty()) {
        return {"PORTS or --file is required", ""};
    }
    if (!check.ports.empty() && !check.files.empty()) {
        return {"PORTS and --file exclude each other", ""};
    }
    for (const std::string &source : check.sources) {
        if (!IsSource(source)) {
            return {"unknown source " + Quoted(source), "write " + SourceNames()};
        }
    }
    return ProblemOfFiles(check.files);
}

UsageProblem TakeSuggest(const CLI::App &command, CommandOptions &options) {
    const auto count = NumberUpTo(kMostSuggestions, options.suggest_count);
    if (!count) {
        return {"COUNT is a number from 1 to " + std::to_string(kMostSuggestions) + ", not " +
                    Quoted(options.suggest_count),
                ""};
    }
    options.suggest.count = *count;
    if (command.count("--near") != 0) {
        const auto port = NumberUpTo(kHighestPort, options.suggest_near);
        if (!port) {
            return {"--near takes a port from 1 to " + std::to_string(kHighestPort) + ", not " +
                        Quoted(options.suggest_near),
                    ""};
        }
        options.suggest.near = *port;
    }
    if (command.count("--proto") != 0 && options.suggest.protocols.empty()) {
        return {"--proto takes tcp, udp or tcp,udp", ""};
    }
    return {};
}

// Standard output holds one thing, by whatever name it is asked for.
UsageProblem TakePorts(const CLI::App &command, CommandOptions &options) {
    PortsOptions &ports = options.ports;
    if (command.count("--svg") != 0 && ports.svg.empty()) {
        return {"--svg needs the name of a file", ""};
    }
    if (!IsStandardOutput(ports.svg)) {
        return {};
    }
    if (options.json || ports.map) {
        return {"--svg " + Escaped(ports.svg) + " and " + (options.json ? "--json" : "--map") +
                    " exclude each other",
                "name another file for the picture"};
    }
    ports.svg = kStandardOutput;
    return {};
}

}  // namespace

void AddCommands(CLI::App &app, CommandOptions &options) {
    AddCommonOptions(app, options);
    AddList(app, options);
    AddShow(app, options);
    AddLint(app, options);
    AddServices(app, options);
    AddCheck(app, options);
    AddSuggest(app, options);
    AddWhy(app, options);
    AddPorts(app, options);
    AddFileCommands(app, options);
    AddSectionCommands(app, options);
    AddClean(app, options);
}

bool TakesValue(const CLI::App &app, const std::string &option) {
    const auto commands = app.get_subcommands([](const CLI::App *) { return true; });
    return std::any_of(commands.begin(), commands.end(), [&option](const CLI::App *command) {
        const CLI::Option *known = command->get_option_no_throw(option);
        return known != nullptr && known->get_items_expected_max() != 0;
    });
}

UsageProblem TakeAsMeant(const CLI::App &command, CommandOptions &options) {
    TakeOffGuards(options);
    options.check.skip = ListItems(options.check.skip);
    options.check.sources = ListItems(options.check.sources);
    const TextLists lists = ListsOf(options);
    const std::string &name = command.get_name();
    if ((name == "show" && options.show_target.empty()) ||
        std::any_of(lists.begin(), lists.end(),
                    [](const auto *list) { return Holds(*list, ""); })) {
        return {"a name is empty", ""};
    }
    if (ChangesSections(command)) {
        return ProblemOfSectionCommand(command, options);
    }
    return name == "check"         ? ProblemOfCheck(options.check)
           : name == "suggest"     ? TakeSuggest(command, options)
           : name == "ports"       ? TakePorts(command, options)
           : ChangesFiles(command) ? ProblemOfFileCommand(command, options)
                                   : ProblemOfFiles(options.lint.files);
}

}  // namespace tavo::tool
