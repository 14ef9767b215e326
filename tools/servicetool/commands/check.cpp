// servicetool check. Reads each source once for all queries. If a source cannot be read, ports are
// not reported as free.
//
// An install checks a file section by section and stops at the first conflict. The check of a file
// reports all conflicts, and those that an install would not detect.
#include <algorithm>
#include <deque>
#include <iterator>
#include <optional>
#include <utility>

#include "commands/commands.h"
#include "config_lines.h"
#include "lint/lint.h"
#include "output/text.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

// The flags of the sources on the command line; `all` if there are none.
int SourcesOf(const Arguments &arguments, int all) {
    const std::vector<std::string> names = arguments.Texts("--source");
    int flags = 0;
    for (const PortSource &source : kPortSources) {
        flags |= Holds(names, source.name) ? source.flag : 0;
    }
    return names.empty() ? all : flags;
}

// ---- Ports

Json AnswerJson(const PortQuery &query, const PortAnswer &answer) {
    return {{"query", QueryText(query)},
            {"verdict", VerdictName(answer.Verdict())},
            {"conflicts", Json::ArrayOf(answer.conflicts, ConflictJson)},
            {"failed_sources", SourceNames(answer.failed)}};
}

void CheckPorts(const Arguments &arguments, Report &report) {
    std::vector<PortRequest> requests;
    for (const std::string &text : arguments.Operands()) {
        PortRequest &request = requests.emplace_back();
        request.skipped = arguments.Texts("--skip");
        if (const auto problem = ReadPortQuery(text, request.query)) {
            ReportBadQuery(text, *problem, report);
            return;
        }
    }
    PortSources sources(SourcesOf(arguments, kEverySource), report);
    ConflictTable table;
    std::string verdicts;
    const std::vector<PortAnswer> answers = sources.Ask(requests);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const PortQuery &query = requests[i].query;
        const PortAnswer &answer = answers[i];
        answer.RaiseStatus(report);
        table.Add(answer.conflicts);
        verdicts += VerdictText(query, answer) + '\n';
        report.AddResult([&] { return AnswerJson(query, answer); });
    }
    report.Print(table.Text(!arguments.Has("--no-legend"), report.Columns()));
    report.Print(verdicts);
}

// ---- Files

// A file in which lint found no error. The queries point into its text.
struct CheckedFile {
    LintedFile file;
    FileQueries queries;
};

// Whether an install reports a conflict of the section. If dst.ports names no protocol, it does not
// check sockets.
bool StopsInstall(const SectionQuery &section) {
    return std::ranges::any_of(section.answer.conflicts, [&section](const PortConflict &conflict) {
        return conflict.source != TAVO_PORT_CHECK_RUNTIME || section.names_protocols;
    });
}

Json FileJson(const CheckedFile &checked, std::string_view verdict) {
    Json sections = Json::EmptyArray();
    Json conflicts = Json::EmptyArray();
    for (const SectionQuery &section : checked.queries.sections) {
        sections.Append({{"name", Utf8Text(section.section)},
                         {"query", QueryText(section.query)},
                         {"verdict", VerdictName(section.answer.Verdict())},
                         {"failed_sources", SourceNames(section.answer.failed)}});
        for (const PortConflict &conflict : section.answer.conflicts) {
            Json one = {{"section", Utf8Text(section.section)}};
            one.Merge(ConflictJson(conflict));
            conflicts.Append(std::move(one));
        }
    }
    return {{"file", Utf8Text(checked.file.name)},
            {"verdict", verdict},
            {"sections", std::move(sections)},
            {"conflicts", std::move(conflicts)}};
}

// Lints a file, and adds the requests of its sections. A section does not conflict with its own
// installed declaration. Returns false if the file cannot be checked, which is reported.
bool AddRequests(const std::string &path, const SkippedNames &skipped, CheckedFile &checked,
                 std::vector<PortRequest> &requests, Report &report) {
    LintedFile &file = checked.file;
    if (!LintAndReport(path, file, report)) {
        return false;
    }
    if (file.lint.errors != 0) {
        report.Raise(Status::kNo);
        report.Print(Escaped(file.name) + ": " + LintVerdict(file.lint) + '\n');
        report.AddResult([&] { return FileJson(checked, "invalid"); });
        return false;
    }
    checked.queries = QueriesOf(file.text);
    for (const SectionQuery &section : checked.queries.sections) {
        requests.push_back({section.query, skipped});
        requests.back().skipped.push_back(section.section);
    }
    return true;
}

// The worst verdict of the sections.
PortVerdict VerdictOf(const CheckedFile &checked) {
    PortVerdict worst = PortVerdict::kFree;
    for (const SectionQuery &section : checked.queries.sections) {
        worst = std::max(worst, section.answer.Verdict());
    }
    return worst;
}

// Reports where the answer of an install is different. It stops at the first section with a
// conflict, and at a [global] without ports, which it treats as a section that it cannot check.
void CompareWithInstall(const CheckedFile &checked, Report &report) {
    const std::optional<ConfigLine> &global = checked.queries.portless_global;
    bool stops = false;
    bool unknown = false;
    for (const SectionQuery &section : checked.queries.sections) {
        const bool is_checked = !global || section.line < global->number;
        stops = stops || (is_checked && StopsInstall(section));
        unknown = unknown || section.answer.failed != 0;
    }
    if (global && !stops) {
        report.Add(AtSpot(*global, global->name,
                          {.file = checked.file.name,
                           .severity = Severity::kWarning,
                           .rule = "install-check",
                           .message = "section [global] has no dst.ports, so an install cannot "
                                      "check the file and reports no conflict"}));
    } else if (VerdictOf(checked) == PortVerdict::kTaken && !stops && !unknown) {
        report.AddWarning(checked.file.name, "install-check",
                          "an install reports no conflict: where dst.ports names no protocol, it "
                          "does not check sockets",
                          "name the protocols, as in 80/tcp,udp", Status::kOk);
    }
}

void PrintFile(const CheckedFile &checked, bool header, Report &report) {
    ConflictTable table(ConflictTable::Sections::kYes);
    std::string verdicts;
    const std::string name = Escaped(checked.file.name) + ": ";
    for (const SectionQuery &section : checked.queries.sections) {
        table.Add(section.answer.conflicts, section.section);
        verdicts += name + '[' + Escaped(section.section) + "] " +
                    VerdictText(section.query, section.answer) + '\n';
    }
    report.Print(table.Text(header, report.Columns()));
    report.Print(verdicts);
}

void CheckFiles(const std::vector<std::string> &paths, const Arguments &arguments, Report &report) {
    const SkippedNames skipped = arguments.Texts("--skip");
    // The answer of an install is only known if the query is the same.
    const bool as_install = skipped.empty() && !arguments.Has("--source");
    std::deque<CheckedFile> files;
    std::vector<PortRequest> requests;
    for (const std::string &path : paths) {
        if (!AddRequests(path, skipped, files.emplace_back(), requests, report)) {
            files.pop_back();
        }
    }
    PortSources sources(SourcesOf(arguments, kSourcesOfFiles), report);
    std::vector<PortAnswer> answers = sources.Ask(requests);
    auto next = answers.begin();
    for (CheckedFile &checked : files) {
        for (SectionQuery &section : checked.queries.sections) {
            section.answer = std::move(*next++);
            section.answer.RaiseStatus(report);
        }
        if (as_install) {
            CompareWithInstall(checked, report);
        }
        PrintFile(checked, !arguments.Has("--no-legend"), report);
        report.AddResult([&] { return FileJson(checked, VerdictName(VerdictOf(checked))); });
    }
}

// The library splits the list of names to skip at blanks, so a name cannot contain one.
void Check(const Arguments &arguments, Report &report) {
    for (const std::string &name : arguments.Texts("--skip")) {
        if (name.find(' ') != std::string::npos) {
            report.AddUsageError("--skip: name " + Quoted(name) + " contains a space",
                                 "put commas between names");
            return;
        }
    }
    const std::vector<std::string> files = arguments.Texts("--file");
    if (files.empty()) {
        CheckPorts(arguments, report);
    } else {
        CheckFiles(files, arguments, report);
    }
}

constexpr std::string_view kSourceNames = "forward service setting socket";
static_assert(std::ranges::all_of(kPortSources, [](const PortSource &source) {
    return kSourceNames.find(source.name) != std::string_view::npos;
}));

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

UsageProblem ProblemOf(const Arguments &arguments) {
    const std::vector<std::string> &ports = arguments.Operands();
    const std::vector<std::string> files = arguments.Texts("--file");
    const std::vector<std::string> sources = arguments.Texts("--source");
    for (const auto &names : {ports, files, arguments.Texts("--skip"), sources}) {
        if (const UsageProblem problem = ProblemOfEmptyName(names); !problem.message.empty()) {
            return problem;
        }
    }
    if (ports.empty() && files.empty()) {
        return {"PORTS or --file is required"};
    }
    if (!ports.empty() && !files.empty()) {
        return {"PORTS and --file exclude each other"};
    }
    for (const std::string &source : sources) {
        if (std::ranges::find(kPortSources, source, &PortSource::name) == std::end(kPortSources)) {
            return {"unknown source " + Quoted(source),
                    "write forward, service, setting or socket"};
        }
    }
    return ProblemOfNames(files);
}

}  // namespace

constinit const Command kCheckCommand = {
    .name = "check",
    .summary = "Report whether ports are taken, and by whom",
    .operands = kOperands,
    .options = kOptions,
    .examples = R"(Examples:
  servicetool check 8080/tcp && echo free
  servicetool check 80,443/tcp 6000:6010
  servicetool check 5222/tcp --skip chat   is it free for the service chat itself
  servicetool check 5000 --source setting,socket
  servicetool check --file mypackage.sc)",
    .check = ProblemOf,
    .run = Check,
};

}  // namespace tavo::tool
