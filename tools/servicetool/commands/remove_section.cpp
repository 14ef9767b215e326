// servicetool remove-section. The change declares no ports, so it needs no port check.
#include "change/section_target.h"
#include "commands/commands.h"
#include "lint/file_remarks.h"

namespace tavo::tool {
namespace {

// Also removes the firewall's record of the service. The library first copies the stores that the
// change affects, and restores them if a later step fails: the service files, the firewall's files
// and the rules of port forwarding.
constexpr std::uint32_t kTouched =
    TAVO_PORT_CHECK_FW_RULES | TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE;

void RemoveSection(const Arguments &arguments, Report &report) {
    const SectionOptions options = SectionOf(arguments);
    SectionTarget target;
    if (!FindSection(options, Missing::kRefuse, target, report)) {
        return;
    }
    Change plan = ChangeOf("remove-section", target, options,
                           WithoutSection(target.file.text, target.section));
    plan.listeners = ListenersOf(Listener::kFirewall, options);
    const std::string what = plan.after ? "remove section [" + target.section + ']' +
                                              LinkRemark(target.file.path, OfLink::kTarget)
                                        : "remove it with section [" + target.section +
                                              "], its last service" +
                                              LinkRemark(target.file.path, OfLink::kItself);
    TAVO_SERVICE_CONF_SET_PARAM param = ParamOf(target, options);
    param.nWriteMode = TAVO_WRITE_MODE_REMOVE;
    param.nCheckFlags = kTouched;
    ChangeReport change(std::move(plan), report);
    if (change.Begin(what)) {
        change.Do([&](ChangeOutcome &outcome) { return tavo::RemoveSection(&param, outcome); });
    }
}

constexpr Operand kOperands[] = {kTargetFile, kTargetSection};

constexpr Option kOptions[] = {kSystemFile, kPackageFile, kNoRestart, kDryRun};

constexpr char kExamples[] = R"(Examples:
  servicetool remove-section mypackage.sc web
  servicetool remove-section mypackage.sc web --dry-run)";

}  // namespace

constinit const Command kRemoveSectionCommand = {
    .name = "remove-section",
    .summary = "Remove a section from an installed file",
    .operands = kOperands,
    .options = kOptions,
    .examples = kExamples,
    .run = RemoveSection,
    .change = ChangeAskedFor,
};

}  // namespace tavo::tool
