// servicetool clean. Holds the lock for changes, so no other servicetool makes a change meanwhile.
#include "change/installed_file.h"
#include "change/leftovers.h"
#include "commands/commands.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

class Cleaning {
  public:
    Cleaning(bool dry_run, Report &report) : dry_run_(dry_run), report_(report) {}

    void Run();

  private:
    void Treat(const Leftover &leftover);
    void TellUnread(const Leftovers &found);
    void Add(const Leftover &leftover, const char *state);
    void Print(const Leftover &leftover, const std::string &state);

    bool dry_run_;
    Report &report_;
};

void Cleaning::Run() {
    const Leftovers found = FindLeftovers();
    for (const Leftover &leftover : found.all) {
        Treat(leftover);
    }
    TellUnread(found);
    if (found.all.empty() && found.unread.empty()) {
        report_.Print("there are no leftovers\n");
    } else if (dry_run_) {
        report_.Print("dry run: nothing was removed\n");
    }
}

void Cleaning::Treat(const Leftover &leftover) {
    if (!leftover.keep.empty()) {
        report_.Tell({.file = leftover.path,
                      .severity = Severity::kWarning,
                      .rule = "left-behind",
                      .message = leftover.keep,
                      .fix = leftover.fix,
                      .source = {}});
        report_.Raise(Status::kNo);
        Add(leftover, "kept");
    } else if (leftover.user) {
        Print(leftover, "may be in use by process " + std::to_string(*leftover.user));
        Add(leftover, "in_use");
    } else if (dry_run_) {
        Print(leftover, "");
        Add(leftover, "left");
    } else if (const std::string problem = RemoveLeftover(leftover); !problem.empty()) {
        report_.TellError(leftover.path, "failed", "cannot be removed: " + problem);
        report_.Raise(Status::kFailed);
        Add(leftover, "failed");
    } else {
        report_.PrintDone(Escaped(leftover.path) + ": " + Escaped(KindText(leftover)) +
                          ": removed");
        Add(leftover, "removed");
    }
}

void Cleaning::TellUnread(const Leftovers &found) {
    for (const auto &[folder, problem] : found.unread) {
        report_.TellError(folder, "unreadable", problem);
        report_.Raise(Status::kFailed);
    }
}

void Cleaning::Print(const Leftover &leftover, const std::string &state) {
    report_.Print(Escaped(leftover.path) + ": " + Escaped(KindText(leftover)) +
                  (state.empty() ? "" : ": " + state) + '\n');
}

void Cleaning::Add(const Leftover &leftover, const char *state) {
    report_.AddResult({{"path", Utf8Text(leftover.path)},
                       {"kind", KindName(leftover.kind)},
                       {"original", TextOrNull(leftover.original)},
                       {"pid", leftover.pid},
                       {"state", state},
                       {"reason", TextOrNull(leftover.keep)}});
}

void Clean(bool dry_run, Report &report) {
    ChangeLock lock;
    if (!dry_run && !lock.Take()) {
        TellNoLock(lock, "", ", so nothing was removed", report);
        return;
    }
    Cleaning(dry_run, report).Run();
}

constexpr Option kOptions[] = {kDryRun};

constexpr char kExamples[] = R"(Examples:
  servicetool clean --dry-run            list the leftovers
  servicetool clean
  servicetool clean --json | jq -r '.results[] | select(.state == "kept").path')";

}  // namespace

constinit const Command kCleanCommand = {
    .name = "clean",
    .summary = "Remove leftovers of killed programs",
    .operands = {},
    .options = kOptions,
    .examples = kExamples,
    .run = [](const Arguments &arguments,
              Report &report) { Clean(arguments.Has("--dry-run"), report); },
};

}  // namespace tavo::tool
