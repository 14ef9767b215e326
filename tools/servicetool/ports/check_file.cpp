// An install checks a file section by section and stops at the first conflict. This check reports
// all conflicts, and those that an install would not detect.
#include "ports/check_file.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "config_lines.h"
#include "lint/lint.h"
#include "output/text.h"
#include "ports/port_sources.h"
#include "ports/section_queries.h"

namespace tavo::tool {
namespace {

constexpr char kInvalid[] = "invalid";

struct CheckedSection {
    SectionQuery wanted;
    PortAnswer answer;

    // Whether an install reports a conflict of the section. If dst.ports names no protocol, it does
    // not check sockets.
    bool StopsInstall() const {
        return std::any_of(answer.conflicts.begin(), answer.conflicts.end(),
                           [this](const PortConflict &conflict) {
                               return conflict.source != kSocketSource || wanted.names_protocols;
                           });
    }
};

// The worst verdict of the sections: kTaken, then kUnknown.
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

// The check of one file in which lint found no error.
class FileCheck {
  public:
    FileCheck(const FileQuestion &question, LintedFile file, Report &report)
        : question_(question), file_(std::move(file)), report_(report) {}

    // Adds the requests of the sections. Returns false after a failure, which is reported.
    bool AddRequests(std::vector<PortRequest> &requests);

    // Consumes one answer per request, from `next` on.
    void Conclude(std::vector<PortAnswer>::iterator &next);

  private:
    void CompareWithInstall();
    void TellOfInstall(std::string message, std::string fix, const ConfigLine &line = {});
    void Print();
    void AddJson();

    const FileQuestion &question_;
    LintedFile file_;
    Report &report_;
    std::vector<CheckedSection> sections_;
    PortVerdict verdict_ = PortVerdict::kUnknown;
};

bool FileCheck::AddRequests(std::vector<PortRequest> &requests) {
    auto queries = QueriesOf(file_.text);
    if (!queries) {
        report_.TellError(file_.name, "failed", "the library does not read it");
        report_.Raise(Status::kFailed);
        return false;
    }
    for (SectionQuery &query : *queries) {
        SkippedNames skipped = question_.skipped;
        skipped.push_back(query.section);
        requests.push_back({query.query, std::move(skipped)});
        sections_.push_back({std::move(query), {}});
    }
    return true;
}

void FileCheck::Conclude(std::vector<PortAnswer>::iterator &next) {
    for (CheckedSection &section : sections_) {
        section.answer = std::move(*next++);
        section.answer.RaiseStatus(report_);
    }
    verdict_ = VerdictOf(sections_);
    if (question_.as_install) {
        CompareWithInstall();
    }
    Print();
    AddJson();
}

// An install stops at the first section with a conflict, and at a [global] without ports, which it
// treats as a section that it cannot check.
void FileCheck::CompareWithInstall() {
    const std::optional<ConfigLine> global = PortlessGlobalLine(file_.text);
    const auto is_checked = [&global](const CheckedSection &section) {
        return !global || section.wanted.line < global->number;
    };
    const bool stops = std::any_of(sections_.begin(), sections_.end(), [&](const auto &section) {
        return is_checked(section) && section.StopsInstall();
    });
    const bool unknown = std::any_of(sections_.begin(), sections_.end(), [](const auto &section) {
        return !section.answer.failed.empty();
    });
    if (global && !stops) {
        TellOfInstall(
            "section [global] has no dst.ports, so an install cannot check the file and reports "
            "no conflict",
            "", *global);
    } else if (verdict_ == PortVerdict::kTaken && !stops && !unknown) {
        TellOfInstall(
            "an install reports no conflict: where dst.ports names no protocol, it asks "
            "for no sockets",
            "name the protocols, as in 80/tcp,udp");
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
        table.Add(section.answer.conflicts, section.wanted.section);
        verdicts += name + '[' + Escaped(section.wanted.section) + "] " +
                    VerdictText(section.wanted.query, section.answer) + '\n';
    }
    report_.Print(table.Text(question_.header, report_.Columns()));
    report_.Print(verdicts);
}

void FileCheck::AddJson() {
    Json sections = Json::EmptyArray();
    Json conflicts = Json::EmptyArray();
    for (const CheckedSection &section : sections_) {
        sections.Append({{"name", Utf8Text(section.wanted.section)},
                         {"query", QueryText(section.wanted.query)},
                         {"verdict", VerdictName(section.answer.Verdict())},
                         {"failed_sources", section.answer.failed}});
        for (const PortConflict &conflict : section.answer.conflicts) {
            Json one = {{"section", Utf8Text(section.wanted.section)}};
            one.Merge(ConflictJson(conflict));
            conflicts.Append(std::move(one));
        }
    }
    report_.AddResult({{"file", Utf8Text(file_.name)},
                       {"verdict", VerdictName(verdict_)},
                       {"sections", std::move(sections)},
                       {"conflicts", std::move(conflicts)}});
}

void TellInvalid(const LintedFile &file, Report &report) {
    report.Raise(Status::kNo);
    report.Print(Escaped(file.name) + ": " + LintVerdict(file.lint) + '\n');
    report.AddResult({{"file", Utf8Text(file.name)},
                      {"verdict", kInvalid},
                      {"sections", Json::EmptyArray()},
                      {"conflicts", Json::EmptyArray()}});
}

}  // namespace

void CheckFiles(const FileQuestion &question, PortSources &sources, Report &report) {
    std::vector<FileCheck> checks;
    std::vector<PortRequest> requests;
    for (const std::string &path : question.paths) {
        LintedFile file;
        if (!LintAndTell(path, file, report)) {
            continue;
        }
        if (file.lint.errors != 0) {
            TellInvalid(file, report);
            continue;
        }
        FileCheck check(question, std::move(file), report);
        if (check.AddRequests(requests)) {
            checks.push_back(std::move(check));
        }
    }
    std::vector<PortAnswer> answers = sources.Ask(requests);
    auto next = answers.begin();
    for (FileCheck &check : checks) {
        check.Conclude(next);
    }
}

}  // namespace tavo::tool
