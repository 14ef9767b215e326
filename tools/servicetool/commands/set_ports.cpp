// servicetool set-ports.
#include "change/section_target.h"
#include "commands/commands.h"
#include "model/service_file_keys.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

void SetPorts(const Arguments &arguments, Report &report) {
    const bool source = arguments.Has("--src");
    SectionTarget target;
    OwnedPorts ports = ReadPorts(
        arguments.Word(2), source ? TAVO_PORT_DIRECTION_SRC : TAVO_PORT_DIRECTION_DST, report);
    if (ports == nullptr || !FindSection(arguments, Missing::kRefuse, target, report)) {
        return;
    }
    Change &change = target.change;
    change.ports = {{.section = change.section, .query = QueryOf(ports.get())}};
    ports.reset(Reversed(ports.release()));
    const PortText text = RequiredPorts(ports.get());
    const char *key = PortsKey(ports->nDirection);
    change.what = "set " + std::string(key) + " of section [" + change.section + ']';
    change.after = TextAfter(change.file.text, [&](const char *path, StepFailure &failure) {
        return StorePorts(path, change.section.c_str(), key, text.value, failure);
    });
    if (source) {
        change.taken_fix = "use servicetool set --src-ports, which does not compare them";
    }
    ChangeSection(target, report, [&](ChangeOutcome &outcome) {
        return WritePorts(&target.param, ports.get(), outcome);
    });
}

constexpr Operand kOperands[] = {
    kTargetFile,
    kTargetSection,
    {.value = {"PORTS"}, .help = "Ports, such as 80,6000:6010/tcp"},
};

constexpr Option kOptions[] = {
    {.name = "--src", .help = "Set the source ports instead; refused if they are taken"},
    kSystemFile,
    kPackageFile,
    kNoRestart,
    kDryRun,
};

}  // namespace

constinit const Command kSetPortsCommand = {
    .name = "set-ports",
    .summary = "Replace the ports of a section",
    .operands = kOperands,
    .options = kOptions,
    .examples = R"(Examples:
  servicetool set-ports mypackage.sc web 8080,8443/tcp
  servicetool set-ports mypackage.sc web 8081/udp --src
  servicetool set-ports mypackage.sc web 8081/tcp --dry-run)",
    .run = SetPorts,
    .change = ChangeAskedFor,
};

}  // namespace tavo::tool
