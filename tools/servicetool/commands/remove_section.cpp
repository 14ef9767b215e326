// servicetool remove-section. The change declares no ports, so it needs no port check.
#include "change/section_target.h"
#include "commands/commands.h"

namespace tavo::tool {
namespace {

// Also removes the firewall's record of the service. The library first copies the stores that the
// change affects, and restores them if a later step fails: the service files, the firewall's files
// and the rules of port forwarding.
constexpr std::uint32_t kTouched =
    TAVO_PORT_CHECK_FW_RULES | TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE;

void RemoveSection(const Arguments &arguments, Report &report) {
    SectionTarget target;
    if (!FindSection(arguments, Missing::kRefuse, target, report)) {
        return;
    }
    // Without its last service, the file is removed.
    Change &change = target.change;
    change.after = TextAfter(change.file.text, [&](const char *path, StepFailure &failure) {
        return RemoveFromFile(path, change.section.c_str(), failure);
    });
    change.what = change.after
                      ? "remove section [" + change.section + ']'
                      : "remove it with section [" + change.section + "], its last service";
    target.param.nWriteMode = TAVO_WRITE_MODE_REMOVE;
    target.param.nCheckFlags = kTouched;
    ChangeSection(target, report, [&](ChangeOutcome &outcome) {
        return tavo::RemoveSection(&target.param, outcome);
    });
}

constexpr Operand kOperands[] = {kTargetFile, kTargetSection};

constexpr Option kOptions[] = {kSystemFile, kPackageFile, kNoRestart, kDryRun};

}  // namespace

constinit const Command kRemoveSectionCommand = {
    .name = "remove-section",
    .summary = "Remove a section from an installed file",
    .operands = kOperands,
    .options = kOptions,
    .examples = R"(Examples:
  servicetool remove-section mypackage.sc web
  servicetool remove-section mypackage.sc web --dry-run)",
    .run = RemoveSection,
    .change = ChangeAskedFor,
};

}  // namespace tavo::tool
