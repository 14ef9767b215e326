#include "change_report.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "input_file.h"
#include "installed_file.h"
#include "library_log.h"
#include "text.h"

namespace tavo {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kUnchanged[] = "nothing was changed";

// What the error codes of the library mean to somebody who changes a file.
struct ErrorCode {
    unsigned int code;
    std::string_view words;
};

constexpr unsigned int kCannotUse = 0x900;

constexpr ErrorCode kErrorCodes[] = {
    {0xD00, "the library does not take it"},
    {0x200, "out of memory"},
    {0x600, "a path is no folder or regular file"},
    {0x700, "a file does not exist"},
    {kCannotUse, "a file cannot be opened or used"},
    {0x2800, "a file cannot be renamed"},
    {0x3B00, "a file cannot be copied"},
    {0x3C00, "a folder cannot be made"},
    {0xBF00, "it is too long"},
};

// What keeps a file from being replaced; empty where nothing is seen.
std::string FolderProblem(const std::string &path) {
    const std::string folder = path.substr(0, path.rfind('/'));
    struct statvfs system {};
    if (access(folder.c_str(), W_OK) != 0) {
        return ErrorText(errno);
    }
    const bool full = statvfs(folder.c_str(), &system) == 0 && system.f_bavail == 0;
    return full ? ErrorText(ENOSPC) : "";
}

std::string CodeText(unsigned int code) {
    const auto known = std::find_if(std::begin(kErrorCodes), std::end(kErrorCodes),
                                    [code](const ErrorCode &one) { return one.code == code; });
    return known == std::end(kErrorCodes) ? "the library does not say why"
                                          : std::string(known->words);
}

// Why a call failed: the last that the library logged, and what led to it; else what its error code
// says. A file that could not be written is not logged, though what was read before may be.
std::string ReasonOf(std::vector<std::string> lines, unsigned int code, const std::string &path) {
    const std::string problem = code == kCannotUse ? FolderProblem(path) : "";
    if (!problem.empty()) {
        return "the folder: " + problem;
    }
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    if (lines.empty()) {
        return CodeText(code);
    }
    return (lines.size() > 1 ? lines[lines.size() - 2] + "; " : "") + lines.back();
}

std::string_view WhatWasDone(const Change &change) {
    return !change.before ? "installed" : change.after ? "changed" : "removed";
}

Json NamesOf(const std::vector<Hearing> &hearings, bool told) {
    Json names = Json::array();
    for (const Hearing &hearing : hearings) {
        if (hearing.told == told) {
            names.push_back(ListenerName(hearing.listener));
        }
    }
    return names;
}

}  // namespace

ChangeReport::ChangeReport(Change change, Report &report)
    : change_(std::move(change)),
      report_(report),
      diff_(UnifiedDiff(change_.before, change_.after, change_.path)) {}

void ChangeReport::Add(const std::string &section, const PortQuery &query,
                       const PortAnswer &answer) {
    const PortVerdict verdict = answer.Verdict();
    taken_ |= verdict == PortVerdict::kTaken;
    unknown_ |= verdict == PortVerdict::kUnknown;
    if (verdict != PortVerdict::kFree) {
        verdicts_ += Escaped(change_.path) + ": [" + Escaped(section) + "] " +
                     VerdictText(query, answer) + '\n';
    }
    table_.Add(answer.conflicts, section);
    for (const PortConflict &conflict : answer.conflicts) {
        conflicts_.emplace_back(section, conflict);
    }
}

void ChangeReport::Refuse(std::string rule, const std::string &message, std::string fix,
                          Status status) {
    report_.TellError(change_.path, std::move(rule), message + ", so " + kUnchanged,
                      std::move(fix));
    report_.Raise(status);
    AddResult();
}

bool ChangeReport::RefusesPorts() {
    report_.Print(table_.Text(true, report_.Columns()) + verdicts_);
    if (change_.force || (!taken_ && !unknown_)) {
        return false;
    }
    if (taken_) {
        Refuse("taken", "its ports are taken", "ask servicetool suggest for ports that are free",
               unknown_ ? Status::kFailed : Status::kNo);
    } else {
        Refuse("unknown", "it cannot be told whether its ports are free", "", Status::kFailed);
    }
    return true;
}

void ChangeReport::PrintPlan(const std::string &what) {
    if (!what.empty()) {
        report_.Print(Escaped(change_.path) + ": " + what + '\n');
    }
    if (!change_.listeners.empty()) {
        report_.Print("tell " + ListenersText(change_.listeners) + '\n');
    }
    report_.Print(ShownDiff(diff_, report_.Colour()));
}

bool ChangeReport::End(const std::string &text) {
    report_.Print(text + kUnchanged + ", nobody was told\n");
    AddResult();
    return false;
}

bool ChangeReport::Begin(const std::string &what) {
    if (!change_.path.empty() && change_.before == change_.after) {
        return End(Escaped(change_.path) + ": is so already: ");
    }
    if (RefusesPorts()) {
        return false;
    }
    PrintPlan(what);
    return change_.dry_run ? End("dry run: ") : true;
}

void ChangeReport::Do(const std::function<int()> &call) {
    TLIBCErrSetEx(0, nullptr, 0);
    ChangeLog log;
    const int result = call();
    const unsigned int code = TLIBCErrGet();
    const std::vector<std::string> lines = log.End();
    if (!TellFailure(result, code, lines)) {
        TellListeners(lines);
    }
    AddResult();
}

// The library does not notice every write that fails, so the file itself is asked.
bool ChangeReport::TellFailure(int result, unsigned int code,
                               const std::vector<std::string> &lines) {
    if (change_.path.empty()) {
        return false;
    }
    const FileText now = TextOf(change_.path);
    changed_ = now != change_.before;
    if (result >= 0 && now == change_.after) {
        report_.Print(Escaped(change_.path) + ": " + std::string(WhatWasDone(change_)) + '\n');
        return false;
    }
    const char *state = !changed_              ? "nothing was changed"
                        : now == change_.after ? "but the file is changed all the same"
                                               : "and the file is now something else";
    report_.TellError(change_.path, "failed",
                      "failed: " + ReasonOf(lines, code, change_.path) + "; " + state);
    report_.Raise(Status::kFailed);
    return true;
}

void ChangeReport::TellListeners(const std::vector<std::string> &lines) {
    hearings_ = HearingsOf(change_.listeners, lines);
    std::vector<Listener> told;
    for (const Hearing &hearing : hearings_) {
        if (hearing.told) {
            told.push_back(hearing.listener);
            continue;
        }
        report_.Tell({"",
                      0,
                      0,
                      Severity::kWarning,
                      "not-told",
                      ListenersText({hearing.listener}) + " was not told: " + hearing.reason,
                      "",
                      {}});
        report_.Raise(Status::kFailed);
    }
    if (!told.empty()) {
        report_.Print("told " + ListenersText(told) + '\n');
    }
}

void ChangeReport::AddResult() {
    Json json = {{"operation", change_.operation},
                 {"file", TextOrNull(change_.path.substr(change_.path.rfind('/') + 1))},
                 {"path", TextOrNull(change_.path)},
                 {"section", TextOrNull(change_.section)},
                 {"dry_run", change_.dry_run},
                 {"changed", changed_},
                 {"diff", TextOrNull(diff_)}};
    json["conflicts"] = Json::array();
    for (const auto &[section, conflict] : conflicts_) {
        Json one = {{"section", Utf8Text(section)}};
        one.update(ConflictJson(conflict));
        json["conflicts"].push_back(std::move(one));
    }
    json["told"] = NamesOf(hearings_, true);
    json["not_told"] = NamesOf(hearings_, false);
    report_.AddResult(json);
}

}  // namespace tavo
