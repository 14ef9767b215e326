// servicetool remove: remove an installed file with all its services.
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include "change/change_report.h"
#include "change/installed_file.h"
#include "change/leftovers.h"
#include "commands/commands.h"
#include "input/input_file.h"
#include "input/library.h"
#include "input/service_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// Describes the removal with the services that the library reads in the file, which the firewall
// therefore knows.
std::string ServicesText(const std::string &text) {
    const OwnedConf conf = ReadServices(text);
    std::vector<std::string> names;
    for (const auto *section : InFileOrder(conf == nullptr ? nullptr : conf->pSections)) {
        names.push_back('[' + Escaped(section->szName) + ']');
    }
    return names.empty() ? "remove; no service in it can be read"
                         : "remove with " + Enumerated(names);
}

// Checks that a copy for the plugins can be made in /tmp. Without one the library still removes the
// file, but the plugins are not notified of the removed ports.
bool CanBeKept(const InstalledFile &file, ChangeReport &change_report) {
    try {
        PrivateFolder().Make(file.name, *file.text);
        return true;
    } catch (const std::system_error &error) {
        return change_report.Refuse(
            "failed", "no copy can be made for the plugins: " + std::string(error.what()),
            "make sure that /tmp is writable", Status::kFailed);
    }
}

// After the notification the copies are not needed. servicetool clean removes those that fail here.
void RemoveCopies(const std::vector<std::string> &copies, Report &report) {
    for (const std::string &copy : copies) {
        if (unlink(copy.c_str()) != 0 && errno != ENOENT) {
            report.AddError(copy, "failed", "cannot be removed: " + ErrorText(errno));
        }
    }
}

int RemoveAndNotify(const InstalledFile &file, ChangeOutcome &outcome) {
    const TAVO_SERVICE_CONF_SET_PARAM param = tavo::RemovalOf(file.name.c_str(), file.location);
    TAVO_SERVICE_CONF_REMOVE_NOTIFY notify{};
    TemporaryCopy old;
    if (RemoveFile(&param, notify, old, outcome.failure) < 0) {
        return -1;
    }
    NotifyOfRemoval(notify, outcome.notified);
    return 0;
}

// Without the file, completes a removal that was killed after it removed the file and before it
// removed the copy for the plugins: notifies the plugins.
void Remove(const Arguments &arguments, Report &report) {
    const int folders = FoldersOf(arguments);
    Change change = ChangeAskedFor(arguments);
    change.listeners = {Listener::kPlugins, Listener::kRelayDaemon};
    InstalledFile &file = change.file;
    if (!FindInstalledFile(folders, Missing::kAllow, change.dry_run, file, report)) {
        return;
    }
    ChangeReport change_report(change, report);
    if (file.text) {
        change.what = ServicesText(*file.text);
        if (change_report.Begin() && CanBeKept(file, change_report)) {
            change_report.Do(
                [&](ChangeOutcome &outcome) { return RemoveAndNotify(file, outcome); });
        }
        return;
    }
    // The lock is held, so a removal by another servicetool is complete or was killed.
    const std::vector<std::string> copies = CopiesOfRemoved(file.name);
    if (copies.empty()) {
        ReportNotInstalled(file.name, folders, report);
        return;
    }
    const std::string &newest = copies.back();
    change.what =
        "is already removed; only the listeners are notified, with the copy " + Escaped(newest);
    change.notify_only = true;
    if (change_report.Begin()) {
        change_report.Do([&](ChangeOutcome &outcome) {
            NotifyOfRemoval({newest.c_str(), 1, 1}, outcome.notified);
            return 0;
        });
        if (report.Worst() == Status::kOk) {
            RemoveCopies(copies, report);
        }
    }
}

constexpr Operand kOperands[] = {
    {.value = {"FILE", Completion::kInstalledFiles}, .help = "The name of an installed file"},
};

constexpr Option kOptions[] = {kSystemFile, kPackageFile, kDryRun};

}  // namespace

constinit const Command kRemoveCommand = {
    .name = "remove",
    .summary = "Remove an installed service file",
    .operands = kOperands,
    .options = kOptions,
    .examples = R"(Examples:
  servicetool remove mypackage.sc
  servicetool remove --dry-run --package mypackage.sc)",
    .run = Remove,
    .change = ChangeAskedFor,
};

}  // namespace tavo::tool
