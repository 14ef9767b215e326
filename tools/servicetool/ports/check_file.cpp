// The library answers for a file as a whole, with the first collision that it meets. The author of
// the file wants all of them, so the sections are asked for one by one in the library's manner, and
// its own answer, which is what an install on an appliance goes by, is laid beside.
#include "ports/check_file.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "change/linted_file.h"
#include "config_lines.h"
#include "input/input_file.h"
#include "output/text.h"
#include "ports/conflict_output.h"
#include "ports/section_queries.h"

namespace tavo::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kInvalid[] = "invalid";

struct CheckedSection {
    std::string name;
    PortQuery query;
    PortAnswer answer;
};

// What an install would be told.
int LibraryVerdictOn(const std::string &text) {
    const MemoryFile file(text);
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int verdict = TLIBIsConfPortConflict(file.Path().c_str(), &conflicts);
    TAVOServiceConfPortsFree(conflicts);
    return verdict;
}

// The worst one: what is taken is so, whatever else cannot be told.
PortVerdict VerdictOf(const std::vector<CheckedSection> &sections) {
    const auto any = [&sections](PortVerdict verdict) {
        return std::any_of(sections.begin(), sections.end(), [verdict](const auto &section) {
            return section.answer.Verdict() == verdict;
        });
    };
    return any(PortVerdict::kTaken)     ? PortVerdict::kTaken
           : any(PortVerdict::kUnknown) ? PortVerdict::kUnknown
                                        : PortVerdict::kFree;
}

class FileCheck {
  public:
    FileCheck(const FileQuestion &question, LintedFile file, Report &report)
        : question_(question),
          file_(std::move(file)),
          global_(GlobalLine(file_.text)),
          report_(report) {}

    void Run(PortSources &sources);

  private:
    void TellInvalid();
    void AskFor(SectionQuery question, PortSources &sources);
    void CompareWithLibrary(int verdict);
    void TellOfInstall(std::string message, std::string fix, const ConfigLine &line = {});
    void Print();
    void AddJson();

    const FileQuestion &question_;
    LintedFile file_;
    std::optional<ConfigLine> global_;
    Report &report_;
    std::vector<CheckedSection> sections_;
    PortVerdict verdict_ = PortVerdict::kUnknown;
};

void FileCheck::Run(PortSources &sources) {
    if (file_.lint.errors != 0) {
        TellInvalid();
        return;
    }
    const auto queries = QueriesOf(file_.text);
    if (!queries) {
        report_.TellError(file_.name, "failed", "the library does not read it");
        report_.Raise(Status::kFailed);
        return;
    }
    for (const SectionQuery &query : *queries) {
        AskFor(query, sources);
    }
    verdict_ = VerdictOf(sections_);
    if (question_.as_library) {
        CompareWithLibrary(LibraryVerdictOn(file_.text));
    }
    Print();
    AddJson();
}

void FileCheck::TellInvalid() {
    report_.Raise(Status::kNo);
    report_.Print(Escaped(file_.name) + ": " + LintVerdict(file_.lint) + '\n');
    report_.AddResult({{"file", Utf8Text(file_.name)},
                       {"verdict", kInvalid},
                       {"sections", Json::array()},
                       {"conflicts", Json::array()}});
}

void FileCheck::AskFor(SectionQuery question, PortSources &sources) {
    SkippedNames skipped = question_.skipped;
    skipped.push_back(question.section);
    PortAnswer answer = sources.Ask(question.query, skipped);
    answer.RaiseStatus(report_);
    sections_.push_back(
        {std::move(question.section), std::move(question.query), std::move(answer)});
}

// Where the library sees something else than the sections show, whoever installs the file will be
// told something else, too.
void FileCheck::CompareWithLibrary(int verdict) {
    const bool taken = verdict_ == PortVerdict::kTaken;
    if (verdict < 0 && global_) {
        TellOfInstall(
            "section [global] has no dst.ports, so an install cannot check the file and reports "
            "no conflict",
            "", *global_);
    } else if (verdict < 0) {
        report_.TellError(file_.name, "failed", "the library cannot check the file as a whole");
        report_.Raise(Status::kFailed);
    } else if (verdict == 0 && taken) {
        TellOfInstall(
            "an install reports no conflict: where dst.ports names no protocol, it asks "
            "for no sockets",
            "name the protocols, as in 80/tcp,udp");
    } else if (verdict > 0 && !taken) {
        TellOfInstall("an install reports a conflict that no section of the file has", "ask again");
    }
}

void FileCheck::TellOfInstall(std::string message, std::string fix, const ConfigLine &line) {
    const std::size_t column = line.number == 0 ? 0 : line.ColumnOf(line.name);
    report_.Tell({file_.name, line.number, column, Severity::kWarning, "install-check",
                  std::move(message), std::move(fix),
                  line.number == 0 ? SourceLine{} : AroundSpot(line.text, column - 1)});
}

void FileCheck::Print() {
    ConflictTable table(ConflictTable::Sections::kYes);
    std::string verdicts;
    const std::string name = Escaped(file_.name) + ": ";
    for (const CheckedSection &section : sections_) {
        table.Add(section.answer.conflicts, section.name);
        verdicts += name + '[' + Escaped(section.name) + "] " +
                    VerdictText(section.query, section.answer) + '\n';
    }
    report_.Print(table.Text(question_.header, report_.Columns()));
    report_.Print(verdicts);
}

void FileCheck::AddJson() {
    Json json = {{"file", Utf8Text(file_.name)}, {"verdict", VerdictName(verdict_)}};
    json["sections"] = Json::array();
    json["conflicts"] = Json::array();
    for (const CheckedSection &section : sections_) {
        json["sections"].push_back({{"name", Utf8Text(section.name)},
                                    {"query", QueryText(section.query)},
                                    {"verdict", VerdictName(section.answer.Verdict())},
                                    {"failed_sources", section.answer.failed}});
        for (const PortConflict &conflict : section.answer.conflicts) {
            Json one = {{"section", Utf8Text(section.name)}};
            one.update(ConflictJson(conflict));
            json["conflicts"].push_back(std::move(one));
        }
    }
    report_.AddResult(json);
}

}  // namespace

void CheckFile(const FileQuestion &question, PortSources &sources, Report &report) {
    LintedFile file;
    if (LintAndTell(question.path, file, report)) {
        FileCheck(question, std::move(file), report).Run(sources);
    }
}

}  // namespace tavo::tool
