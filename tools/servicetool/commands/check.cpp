// servicetool check. All questions are answered together, with one reading of each source. Ports of
// which a source could not be read are never reported as free.
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "commands/commands.h"
#include "output/text.h"
#include "ports/check_file.h"
#include "ports/conflict_output.h"
#include "ports/port_sources.h"
#include "ports/protocols.h"

namespace tavo::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kEverySource = TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE |
                             TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME;

// The sources of these names, `all` where there are none.
int FlagsOf(const std::vector<std::string> &names, int all) {
    int flags = 0;
    for (const PortSource &source : kPortSources) {
        if (Holds(names, source.name)) {
            flags |= source.flag;
        }
    }
    return names.empty() ? all : flags;
}

// The library cuts the names that it is to leave out at blanks, so one that holds a blank cannot be
// asked for.
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

// Nothing is asked before every question is understood.
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
    Json json = {{"query", QueryText(query)}, {"verdict", VerdictName(answer.Verdict())}};
    json["conflicts"] = Json::array();
    for (const PortConflict &conflict : answer.conflicts) {
        json["conflicts"].push_back(ConflictJson(conflict));
    }
    json["failed_sources"] = answer.failed;
    return json;
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
        report.AddResult(AnswerJson(query, answer));
    }
    report.Print(table.Text(!options.no_legend, report.Columns()));
    report.Print(verdicts);
}

}  // namespace

void Check(const CheckOptions &options, Report &report) {
    if (!CheckSkippedNames(options.skip, report)) {
        return;
    }
    if (options.files.empty()) {
        CheckPorts(options, report);
        return;
    }
    PortSources sources(FlagsOf(options.sources, kSourcesOfFiles), report);
    // What an install will say can be told only where the same is asked.
    const bool as_library = options.skip.empty() && options.sources.empty();
    CheckFiles({options.files, options.skip, as_library, !options.no_legend}, sources, report);
}

}  // namespace tavo::tool
