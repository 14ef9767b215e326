// servicetool check. Reads each source once for all queries. If a source cannot be read, ports are
// not reported as free.
#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include "commands/commands.h"
#include "output/text.h"
#include "ports/check_file.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

struct CheckOptions {
    std::vector<std::string> ports;    // PORTS[/PROTOCOLS]
    std::vector<std::string> files;    // service files to check instead of ports
    std::vector<std::string> skip;     // service names
    std::vector<std::string> sources;  // names of sources; all if empty
    bool no_legend = false;
};

// The flags of the named sources; `all` if there are no names.
int FlagsOf(const std::vector<std::string> &names, int all) {
    int flags = 0;
    for (const PortSource &source : kPortSources) {
        if (Holds(names, source.name)) {
            flags |= source.flag;
        }
    }
    return names.empty() ? all : flags;
}

// The library splits the list of names to skip at blanks, so a name cannot contain one.
bool CheckSkippedNames(const SkippedNames &skipped, Report &report) {
    for (const std::string &name : skipped) {
        if (name.find(' ') != std::string::npos) {
            report.TellUsage("no name to skip holds a blank, as " + Quoted(name) + " does",
                             "put commas between names");
            return false;
        }
    }
    return true;
}

// Parses all queries before any source is read.
bool ReadRequests(const CheckOptions &options, std::vector<PortRequest> &requests, Report &report) {
    for (const std::string &text : options.ports) {
        PortQuery query;
        QueryProblem problem;
        if (!ReadPortQuery(text, query, problem)) {
            report.TellUsage(Quoted(text) + ", column " + std::to_string(problem.column) + ": " +
                                 problem.message,
                             problem.fix);
            return false;
        }
        requests.push_back({std::move(query), options.skip});
    }
    return true;
}

Json AnswerJson(const PortQuery &query, const PortAnswer &answer) {
    return {{"query", QueryText(query)},
            {"verdict", VerdictName(answer.Verdict())},
            {"conflicts", Json::ArrayOf(answer.conflicts, ConflictJson)},
            {"failed_sources", answer.failed}};
}

void CheckPorts(const CheckOptions &options, Report &report) {
    std::vector<PortRequest> requests;
    if (!ReadRequests(options, requests, report)) {
        return;
    }
    PortSources sources(FlagsOf(options.sources, kEverySource), report);
    ConflictTable table;
    std::string verdicts;
    const std::vector<PortAnswer> answers = sources.Ask(requests);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const PortQuery &query = requests[i].query;
        const PortAnswer &answer = answers[i];
        answer.RaiseStatus(report);
        table.Add(answer.conflicts);
        verdicts += VerdictText(query, answer) + '\n';
        if (report.PrintsJson()) {
            report.AddResult(AnswerJson(query, answer));
        }
    }
    report.Print(table.Text(!options.no_legend, report.Columns()));
    report.Print(verdicts);
}

void Check(const CheckOptions &options, Report &report) {
    if (!CheckSkippedNames(options.skip, report)) {
        return;
    }
    if (options.files.empty()) {
        CheckPorts(options, report);
        return;
    }
    PortSources sources(FlagsOf(options.sources, kSourcesOfFiles), report);
    // The answer of an install is only known if the query is the same.
    const bool as_library = options.skip.empty() && options.sources.empty();
    CheckFiles({options.files, options.skip, as_library, !options.no_legend}, sources, report);
}

constexpr std::string_view kSourceNames = "forward service setting socket";
static_assert(std::all_of(std::begin(kPortSources), std::end(kPortSources),
                          [](const PortSource &source) {
                              return kSourceNames.find(source.name) != std::string_view::npos;
                          }));

bool IsSource(const std::string &name) {
    return std::any_of(std::begin(kPortSources), std::end(kPortSources),
                       [&name](const PortSource &source) { return source.name == name; });
}

constexpr Operand kOperands[] = {
    {.value = {"PORTS[/PROTOCOLS]"},
     .help = "Ports and ranges, such as 80,6000:6010/tcp",
     .count = Count::kAny},
};

constexpr Option kOptions[] = {
    {.name = "--file",
     .help = "Check the ports of service files instead; - is standard input",
     .value = {"FILE", Completion::kFiles},
     .repeat = Repeat::kWords},
    {.name = "--skip",
     .help = "Ignore these services",
     .value = {"NAME", Completion::kSkippableNames},
     .repeat = Repeat::kItems},
    {.name = "--source",
     .help = "Only these sources: forward, service, setting, socket",
     .value = {"SOURCE", Completion::kWordList, kSourceNames},
     .repeat = Repeat::kItems},
    kNoLegend,
};

constexpr char kExamples[] = R"(Examples:
  servicetool check 8080/tcp && echo free
  servicetool check 80,443/tcp 6000:6010
  servicetool check 5222/tcp --skip chat   is it free for the service chat itself
  servicetool check 5000 --source setting,socket
  servicetool check --file mypackage.sc)";

CheckOptions OptionsOf(const Arguments &arguments) {
    return {.ports = arguments.Operands(),
            .files = arguments.Texts("--file"),
            .skip = arguments.Texts("--skip"),
            .sources = arguments.Texts("--source"),
            .no_legend = arguments.Has("--no-legend")};
}

UsageProblem ProblemOf(const Arguments &arguments) {
    const CheckOptions check = OptionsOf(arguments);
    for (const auto *names : {&check.ports, &check.files, &check.skip, &check.sources}) {
        if (const UsageProblem problem = ProblemOfEmptyName(*names); !problem.message.empty()) {
            return problem;
        }
    }
    if (check.ports.empty() && check.files.empty()) {
        return {"PORTS or --file is required"};
    }
    if (!check.ports.empty() && !check.files.empty()) {
        return {"PORTS and --file exclude each other"};
    }
    for (const std::string &source : check.sources) {
        if (!IsSource(source)) {
            return {"unknown source " + Quoted(source),
                    "write forward, service, setting or socket"};
        }
    }
    return ProblemOfNames(check.files);
}

}  // namespace

constinit const Command kCheckCommand = {
    .name = "check",
    .summary = "Report whether ports are taken, and by whom",
    .operands = kOperands,
    .options = kOptions,
    .examples = kExamples,
    .check = ProblemOf,
    .run = [](const Arguments &arguments, Report &report) { Check(OptionsOf(arguments), report); },
};

}  // namespace tavo::tool
