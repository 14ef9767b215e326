#include "ports/port_sources.h"

#include <map>
#include <new>
#include <utility>

#include "engine/conflicts.h"
#include "input/library_log.h"
#include "input/service_file.h"
#include "output/diagnostic.h"
#include "ports/source_failure.h"

namespace tavo::tool {
namespace {

// The requests as the engine takes them, with what they point to.
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

std::string_view SourceName(int flag) {
    for (const PortSource &source : kPortSources) {
        if (source.flag == flag) {
            return source.name;
        }
    }
    return kReservedSource;
}

// "built-in", "system/FILE" or "package/FILE".
std::string FolderAndName(const std::string &path) {
    for (const ServiceFolder &folder : ServiceFolders(kEveryServiceFolder)) {
        if (path.starts_with(folder.path)) {
            return std::string(folder.name) + path.substr(folder.path.size());
        }
    }
    return "built-in";
}

// One that declares the ports; for sockets and the reserved port none does.
PortHolder HolderOf(const TakenPorts &taken) {
    const PortDeclarer &declarer = taken.declarer;
    const auto text = [](const char *part) { return std::string(part == nullptr ? "" : part); };
    PortHolder holder = {text(declarer.name), text(declarer.file), text(declarer.entry), ""};
    switch (taken.source) {
        case TAVO_PORT_CHECK_PORT_FORWARD:
            holder.place = "rule " + holder.entry +
                           (text(declarer.title).empty() ? "" : ", " + text(declarer.title));
            break;
        case TAVO_PORT_CHECK_FW_SERVICE:
            holder.place = FolderAndName(holder.file);
            break;
        default:
            holder.place = holder.entry;
            break;
    }
    return holder;
}

// Groups what one source has of one request into rows: a port that several declare as part of
// different ranges has a row for each range.
class Rows {
  public:
    void Add(const TakenPorts &taken) {
        const PortRange range = {static_cast<std::uint32_t>(taken.range.nLow),
                                 static_cast<std::uint32_t>(taken.range.nHigh)};
        by_range_[range][HolderOf(taken)] |= taken.protocols;
    }

    void MoveTo(std::string_view source, std::vector<PortConflict> &conflicts) && {
        for (auto &[range, holders] : by_range_) {
            std::map<std::uint32_t, std::vector<PortHolder>> by_protocols;
            for (const auto &[holder, protocols] : holders) {
                std::vector<PortHolder> &named = by_protocols[protocols];
                if (holder != PortHolder{}) {
                    named.push_back(holder);
                }
            }
            for (auto &[protocols, named] : by_protocols) {
                conflicts.push_back({range, protocols, source, std::move(named)});
            }
        }
    }

  private:
    std::map<PortRange, std::map<PortHolder, std::uint32_t>> by_range_;
};

// The records come by source, so each source's rows are complete when the next one begins.
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

}  // namespace

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
    if (requests.empty()) {
        return {};
    }
    const Questions questions(requests, flags_);
    PortConflicts found;
    if (!found.Find(questions.All())) {
        throw std::bad_alloc();
    }
    std::vector<PortAnswer> answers(requests.size());
    AddConflicts(found.Taken(), answers);
    AddFailures(found, answers);
    return answers;
}

void PortSources::AddFailures(const PortConflicts &found, std::vector<PortAnswer> &answers) {
    for (const PortSource &source : kPortSources) {
        if ((flags_ & source.flag) != 0) {
            AddFailures(source, found, answers);
        }
    }
}

// Of the rules, only the first failure of each request is reported: a file with one mistake in
// every rule is one problem.
void PortSources::AddFailures(const PortSource &source, const PortConflicts &found,
                              std::vector<PortAnswer> &answers) {
    const bool rules = source.flag == TAVO_PORT_CHECK_PORT_FORWARD;
    const bool files_known = source.flag != TAVO_PORT_CHECK_FW_SERVICE ||
                             TellUnreadServiceFiles(*found.Services(), report_);
    bool failed = false;
    for (PortAnswer &answer : answers) {
        if (!files_known) {
            answer.failed.push_back(source.name);
        }
    }
    if (source.flag == TAVO_PORT_CHECK_SYS_KEY) {
        TellIgnoredLines(source);
    }
    for (const SourceFailure &failure : found.Failures()) {
        if (failure.source != source.flag) {
            continue;
        }
        failed = true;
        PortAnswer &answer = answers[failure.question];
        const bool first = answer.failed.empty() || answer.failed.back() != source.name;
        if (first) {
            answer.failed.push_back(source.name);
        }
        // What a file that was reported already leaves unknown is not reported again.
        if ((first || !rules) &&
            (files_known || failure.kind != SourceFailure::Kind::kUnreadable)) {
            TellOnce(WhyUnknown(failure));
        }
    }
    if (rules && !failed) {
        TellIgnoredLines(source);
    }
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

}  // namespace tavo::tool
