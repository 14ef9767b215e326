// servicetool clean. Holds the lock for changes, so no other servicetool makes a change meanwhile.
#include "change/installed_file.h"
#include "change/leftovers.h"
#include "commands/commands.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

struct Kind {
    std::string_view name;   // for JSON
    std::string_view words;  // for people, before the name of the original
};

// In the order of LeftoverKind.
constexpr Kind kKinds[] = {
    {"private-folder", "private folder of servicetool"},
    {"updated-file", "copy of the replaced file "},
    {"removed-file", "copy of the removed file "},
    {"staged-file", "file to be installed as "},
    {"store", "copy of "},
    {"writer-folder", "folder of a writer"},
};
static_assert(std::size(kKinds) == static_cast<std::size_t>(LeftoverKind::kWriterFolder) + 1);

const Kind &KindOf(const Leftover &leftover) {
    return kKinds[static_cast<std::size_t>(leftover.kind)];
}

// "/etc/services.d.tmp.812: copy of /etc/services.d by process 812"
std::string LineOf(const Leftover &leftover) {
    const std::string maker = leftover.pid ? " by process " + std::to_string(*leftover.pid) : "";
    return Escaped(leftover.path) + ": " + std::string(KindOf(leftover).words) +
           Escaped(leftover.original) + maker;
}

// Removes the leftover, if that is possible. Returns its state for JSON.
const char *Treat(const Leftover &leftover, bool dry_run, Report &report) {
    if (!leftover.keep.empty()) {
        report.AddWarning(leftover.path, "left-behind", leftover.keep, leftover.fix, Status::kNo);
        return "kept";
    }
    if (leftover.user) {
        report.Print(LineOf(leftover) + ": may be in use by process " +
                     std::to_string(*leftover.user) + '\n');
        return "in_use";
    }
    if (dry_run) {
        report.Print(LineOf(leftover) + '\n');
        return "left";
    }
    const std::string problem = RemoveLeftover(leftover);
    if (!problem.empty()) {
        report.AddError(leftover.path, "failed", "cannot be removed: " + problem);
        return "failed";
    }
    report.PrintDone(LineOf(leftover) + ": removed");
    return "removed";
}

void Clean(const Arguments &arguments, Report &report) {
    const bool dry_run = arguments.Has("--dry-run");
    Descriptor lock;
    if (!dry_run && !LockChanges(lock, "", ", so nothing was removed", report)) {
        return;
    }
    const Leftovers found = FindLeftovers();
    for (const Leftover &leftover : found.all) {
        const char *state = Treat(leftover, dry_run, report);
        report.AddResult({{"path", Utf8Text(leftover.path)},
                          {"kind", KindOf(leftover).name},
                          {"original", TextOrNull(leftover.original)},
                          {"pid", leftover.pid},
                          {"state", state},
                          {"reason", TextOrNull(leftover.keep)}});
    }
    for (const auto &[folder, problem] : found.unread) {
        report.AddError(folder, "unreadable", problem);
    }
    if (found.all.empty() && found.unread.empty()) {
        report.Print("there are no leftovers\n");
    } else if (dry_run) {
        report.Print("dry run: nothing was removed\n");
    }
}

constexpr Option kOptions[] = {kDryRun};

}  // namespace

constinit const Command kCleanCommand = {
    .name = "clean",
    .summary = "Remove leftovers of killed programs",
    .options = kOptions,
    .examples = R"(Examples:
  servicetool clean --dry-run            list the leftovers
  servicetool clean
  servicetool clean --json | jq -r '.results[] | select(.state == "kept").path')",
    .run = Clean,
};

}  // namespace tavo::tool
