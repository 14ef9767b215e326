#include "ports/port_sources.h"

#include <algorithm>
#include <map>
#include <new>

#include "engine/conflicts.h"
#include "input/service_file.h"
#include "output/table.h"
#include "output/text.h"
#include "ports/source_failure.h"

namespace tavo::tool {
namespace {

// The most declarers in a line of a table.
constexpr std::size_t kMostDeclarers = 5;

// The requests in the engine's form; owns what they point to.
class Questions {
  public:
    Questions(const std::vector<PortRequest> &requests, int sources) {
        for (const PortRequest &request : requests) {
            Part part;
            for (const PortRange &range : request.query.items) {
                part.ports.push_back({static_cast<int>(range.first), static_cast<int>(range.last)});
            }
            for (const std::string &name : request.skipped) {
                part.skipped.push_back(name.c_str());
            }
            parts_.push_back(std::move(part));
        }
        for (std::size_t i = 0; i < requests.size(); ++i) {
            questions_.push_back(
                {parts_[i].ports, requests[i].query.protocols, parts_[i].skipped, sources});
        }
    }

    const std::vector<PortQuestion> &All() const { return questions_; }

  private:
    struct Part {
        std::vector<Range> ports;
        std::vector<const char *> skipped;
    };

    std::vector<Part> parts_;
    std::vector<PortQuestion> questions_;
};

// Groups the records of one source for one request by range. A port that is declared as part of
// several ranges is in the row of each.
class Rows {
  public:
    void Add(const TakenPorts &taken) {
        by_range_[RangeOf(taken)][DeclarerOf(taken)] |= taken.protocols;
    }

    void MoveTo(std::string_view source, std::vector<PortConflict> &conflicts) && {
        for (auto &[range, declarers] : by_range_) {
            std::map<std::uint32_t, std::vector<Declarer>> by_protocols;
            for (const auto &[declarer, protocols] : declarers) {
                std::vector<Declarer> &named = by_protocols[protocols];
                if (declarer != Declarer{}) {
                    named.push_back(declarer);
                }
            }
            for (auto &[protocols, named] : by_protocols) {
                conflicts.push_back({range, protocols, source, std::move(named)});
            }
        }
    }

  private:
    std::map<PortRange, std::map<Declarer, std::uint32_t>> by_range_;
};

// The records are ordered by source, so the rows of a source are complete when the next one begins.
void AddConflicts(std::span<const TakenPorts> taken, std::vector<PortAnswer> &answers) {
    for (std::size_t i = 0; i < taken.size();) {
        const int source = taken[i].source;
        std::map<std::size_t, Rows> by_question;
        for (; i < taken.size() && taken[i].source == source; ++i) {
            by_question[taken[i].question].Add(taken[i]);
        }
        for (auto &[question, rows] : by_question) {
            std::move(rows).MoveTo(SourceName(source), answers[question].conflicts);
        }
    }
}

Json DeclarerJson(const Declarer &declarer) {
    return {{"name", TextOrNull(declarer.name)},
            {"file", TextOrNull(declarer.file)},
            {"entry", TextOrNull(declarer.entry)}};
}

std::string DeclaredByText(const PortConflict &conflict) {
    if (conflict.source == kSocketSource) {
        return "in use now";
    }
    if (conflict.source == kReservedSource) {
        return "always taken";
    }
    std::string text;
    const std::size_t shown = std::min(conflict.declarers.size(), kMostDeclarers);
    for (std::size_t i = 0; i < shown; ++i) {
        text += (text.empty() ? "" : ", ") + DeclarerText(conflict.declarers[i]);
    }
    const std::size_t more = conflict.declarers.size() - shown;
    return more == 0 ? text : text + " and " + std::to_string(more) + " more";
}

}  // namespace

std::string_view SourceName(int flag) {
    const auto source = std::find_if(std::begin(kPortSources), std::end(kPortSources),
                                     [flag](const PortSource &one) { return one.flag == flag; });
    return source == std::end(kPortSources) ? kReservedSource : source->name;
}

std::string_view VerdictName(PortVerdict verdict) {
    return verdict == PortVerdict::kFree    ? "free"
           : verdict == PortVerdict::kTaken ? "taken"
                                            : "unknown";
}

PortRange RangeOf(const TakenPorts &taken) {
    return {static_cast<std::uint32_t>(taken.range.nLow),
            static_cast<std::uint32_t>(taken.range.nHigh)};
}

// ---- Answers ----

PortVerdict PortAnswer::Verdict() const {
    if (!conflicts.empty()) {
        return PortVerdict::kTaken;
    }
    return failed.empty() ? PortVerdict::kFree : PortVerdict::kUnknown;
}

void PortAnswer::RaiseStatus(Report &report) const {
    if (!conflicts.empty()) {
        report.Raise(Status::kNo);
    }
    if (!failed.empty()) {
        report.Raise(Status::kFailed);
    }
}

std::vector<PortAnswer> PortSources::Ask(const std::vector<PortRequest> &requests) {
    PortConflicts found;
    std::vector<FailedSources> failed = Find(requests, found);
    std::vector<PortAnswer> answers(requests.size());
    AddConflicts(found.Taken(), answers);
    for (std::size_t i = 0; i < answers.size(); ++i) {
        answers[i].failed = std::move(failed[i]);
    }
    return answers;
}

std::vector<FailedSources> PortSources::Find(const std::vector<PortRequest> &requests,
                                             PortConflicts &found) {
    std::vector<FailedSources> failed(requests.size());
    if (requests.empty()) {
        return failed;
    }
    const Questions questions(requests, flags_);
    if (!found.Find(questions.All())) {
        throw std::bad_alloc();
    }
    for (const PortSource &source : kPortSources) {
        if ((flags_ & source.flag) != 0) {
            AddFailures(source, found, failed);
        }
    }
    return failed;
}

// ---- Failures ----

// For the rules, only the first failure of each request is reported: a file with the same mistake
// in every rule is one problem.
void PortSources::AddFailures(const PortSource &source, const PortConflicts &found,
                              std::vector<FailedSources> &failed) {
    const bool rules = source.flag == TAVO_PORT_CHECK_PORT_FORWARD;
    // A service that is left out of a file declares nothing, so it only is a warning.
    const bool files_known =
        source.flag != TAVO_PORT_CHECK_FW_SERVICE ||
        !TellOmissions(found.Services()->report, report_, {}, Severity::kWarning);
    for (FailedSources &sources : failed) {
        if (!files_known) {
            sources.push_back(source.name);
        }
    }
    if (source.flag == TAVO_PORT_CHECK_SYS_KEY) {
        TellIgnoredLines(source);
    }
    bool any = false;
    for (const SourceFailure &failure : found.Failures()) {
        if (failure.source != source.flag) {
            continue;
        }
        any = true;
        FailedSources &sources = failed[failure.question];
        const bool first = sources.empty() || sources.back() != source.name;
        if (first) {
            sources.push_back(source.name);
        }
        // A file that was already reported as unreadable is not reported again.
        if ((first || !rules) &&
            (files_known || failure.kind != SourceFailure::Kind::kUnreadable)) {
            TellOnce(WhyUnknown(failure));
        }
    }
    if (rules && !any) {
        TellIgnoredLines(source);
    }
}

void PortSources::Fail(const SourceFailure &failure, FailedSources &failed) {
    const std::string_view source = SourceName(failure.source);
    if (std::find(failed.begin(), failed.end(), source) == failed.end()) {
        failed.push_back(source);
    }
    TellOnce(WhyUnknown(failure));
}

void PortSources::TellIgnoredLines(const PortSource &source) {
    Diagnostic finding;
    if (FindIgnoredLines(source.flag, finding)) {
        TellOnce(std::move(finding));
    }
}

void PortSources::TellOnce(Diagnostic diagnostic) {
    if (told_.insert(DiagnosticText(diagnostic, false, 0)).second) {
        report_.Tell(std::move(diagnostic));
    }
}

// ---- Output ----

std::string VerdictText(const PortQuery &query, const PortAnswer &answer) {
    const std::string what =
        Shortened(PortsText(query.items)) + '/' + ProtocolsText(query.protocols);
    const PortVerdict verdict = answer.Verdict();
    if (verdict != PortVerdict::kUnknown) {
        return what + " is " + std::string(VerdictName(verdict));
    }
    std::string failed;
    for (const std::string_view source : answer.failed) {
        failed += (failed.empty() ? "" : ", ") + std::string(source);
    }
    return what + ": cannot tell (" + failed + ')';
}

Json ConflictJson(const PortConflict &conflict) {
    return {{"start", conflict.range.first},
            {"end", conflict.range.last},
            {"protocols", ProtocolNames(conflict.protocols)},
            {"source", conflict.source},
            {"declared_by", Json::ArrayOf(conflict.declarers, DeclarerJson)},
            {"exact", true}};
}

void ConflictTable::Add(const std::vector<PortConflict> &conflicts, const std::string &section) {
    for (const PortConflict &conflict : conflicts) {
        Cells cells = {PortsText(conflict.range), ProtocolsText(conflict.protocols),
                       std::string(conflict.source), DeclaredByText(conflict)};
        if (sections_ == Sections::kYes) {
            cells.insert(cells.begin(), section);
        }
        if (known_.insert(cells).second) {
            rows_.push_back(std::move(cells));
        }
    }
}

std::string ConflictTable::Text(bool header, std::size_t columns) const {
    if (rows_.empty()) {
        return {};
    }
    Cells titles = {"PORT", "PROTO", "SOURCE", "DECLARED BY"};
    if (sections_ == Sections::kYes) {
        titles.insert(titles.begin(), "SECTION");
    }
    Table table(std::move(titles));
    for (const Cells &cells : rows_) {
        table.Row(cells);
    }
    return table.Text(header, columns);
}

}  // namespace tavo::tool
