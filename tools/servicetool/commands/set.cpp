// servicetool set. Values that are not given are unchanged, so a title can be changed without
// giving the ports.
#include <new>

#include "change/section_target.h"
#include "commands/commands.h"
#include "input/library.h"
#include "output/text.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

// Each of the following functions sets a part of the section to the value of an option. Returns
// false if the value is invalid, which is reported.

bool SetText(const char *option, const std::string &text, TAVO_SERVICE_CONF_STRING &string,
             Report &report) {
    if (text.size() >= sizeof(string.szText) || text.find('\n') != std::string::npos) {
        report.AddUsageError(std::string(option) + " takes one line of at most " +
                             std::to_string(sizeof(string.szText) - 1) + " bytes");
        return false;
    }
    CopyText(string.szText, text);
    return true;
}

// The reference must be unchanged after it is read by the library.
bool SetReference(const char *option, const std::string &text, TAVO_SERVICE_CONF_STRING &string,
                  Report &report) {
    TAVO_SERVICE_CONF_STRING read{};
    ForgetFailure();
    if (TAVOServiceConfServiceStringGet(text.c_str(), &read) < 0) {
        ThrowIfSystemFailed("the reference cannot be read");
    }
    const bool whole = *read.szSection != '\0' && *read.szKey != '\0';
    if (!whole || ReferenceText(read) != text || text.find('\n') != std::string::npos) {
        report.AddUsageError(std::string(option) +
                             " takes SOURCE:SECTION:KEY or SECTION:KEY, not " + Quoted(text));
        return false;
    }
    CopyText(read.szText, string.szText);
    string = read;
    return true;
}

template <unsigned int direction>
bool SetPorts(const char *, const std::string &text, TAVO_SERVICE_CONF_PORT *&ports,
              Report &report) {
    OwnedPorts read = ReadPorts(text, direction, report);
    if (read == nullptr) {
        return false;
    }
    TAVOServiceConfPortsFree(ports);
    ports = read.release();
    return true;
}

// The current section, changed by the options of the command line. Returns null if these are
// invalid, which is reported. If the library cannot read the current section, all required values
// must be given.
OwnedSection NewSection(const Arguments &arguments, SectionTarget &target, Report &report) {
    OwnedSection section = std::move(target.today);
    if (section == nullptr) {
        if (!arguments.Has("--title") || !arguments.Has("--desc") ||
            !arguments.Has("--dst-ports")) {
            report.AddUsageError("section [" + target.change.section + "] " +
                                 (target.present ? "cannot be read as it is" : "is new") +
                                 ", so it needs --title, --desc and --dst-ports");
            return nullptr;
        }
        section = OrThrow(NewRecord<OwnedSection>());
    }
    CopyText(section->szName, target.change.section);
    TAVO_SERVICE_CONF_STRING &title = section->strTitle;
    TAVO_SERVICE_CONF_STRING &desc = section->strDesc;
    if (arguments.Has("--port-forward") || arguments.Has("--no-port-forward")) {
        section->blPortForward = arguments.Has("--port-forward") ? 1 : 0;
    }
    const auto set = [&](const char *option, auto setter, auto &part) {
        const std::string text = arguments.Text(option);
        return text.empty() || setter(option, text, part, report);
    };
    const bool good = set("--title", SetText, title) && set("--desc", SetText, desc) &&
                      set("--title-key", SetReference, title) &&
                      set("--desc-key", SetReference, desc) &&
                      set("--dst-ports", SetPorts<TAVO_PORT_DIRECTION_DST>, section->pDstPorts) &&
                      set("--src-ports", SetPorts<TAVO_PORT_DIRECTION_SRC>, section->pSrcPorts);
    return good ? std::move(section) : nullptr;
}

// The text of the file with all keys of the section set.
FileText WithSection(const FileText &before, const TAVO_SERVICE_CONF_SECTION &section) {
    const PortText dst_ports = RequiredPorts(section.pDstPorts);
    const PortText src_ports = RequiredPorts(section.pSrcPorts);
    return TextAfter(before, [&](const char *path, StepFailure &failure) {
        SectionKeys keys;
        if (!keys.IsMade()) {
            throw std::bad_alloc();
        }
        const bool done = keys.Read(path, section.szName, failure) >= 0 &&
                          keys.Set(section, dst_ports, src_ports, failure) >= 0 &&
                          keys.Store(path, section.szName, failure) >= 0;
        return done ? 0 : -1;
    });
}

std::string WhatIsDone(const SectionTarget &target) {
    const Change &change = target.change;
    const char *what = !change.file.text ? "create it with section ["
                       : target.present  ? "change section ["
                                         : "add section [";
    return what + change.section + ']';
}

void Set(const Arguments &arguments, Report &report) {
    SectionTarget target;
    if (!FindSection(arguments, Missing::kAllow, target, report)) {
        return;
    }
    const OwnedSection section = NewSection(arguments, target, report);
    if (section == nullptr) {
        return;
    }
    Change &change = target.change;
    if (!change.file.text) {
        WarnOfNewName(change.file.name, "write", report);
    }
    change.ports = {{.section = change.section, .query = QueryOf(section->pDstPorts)}};
    section->pDstPorts = Reversed(section->pDstPorts);
    section->pSrcPorts = Reversed(section->pSrcPorts);
    change.what = WhatIsDone(target);
    change.after = WithSection(change.file.text, *section);
    ChangeSection(target, report, [&](ChangeOutcome &outcome) {
        return WriteSection(&target.param, section.get(), outcome);
    });
}

constexpr Operand kOperands[] = {kTargetFile, kTargetSection};

constexpr Option kOptions[] = {
    {.name = "--title", .help = "Title; required for a new service", .value = {"TITLE"}},
    {.name = "--desc", .help = "Description; required for a new service", .value = {"TEXT"}},
    {.name = "--dst-ports",
     .help = "Ports, such as 80,6000:6010/tcp; required for a new service",
     .value = {"PORTS"}},
    {.name = "--src-ports",
     .help = "Ports that its clients connect from; may be taken",
     .value = {"PORTS"}},
    {.name = "--title-key",
     .help = "Place of the title in a string table: [SOURCE:]SECTION:KEY",
     .value = {"REFERENCE"}},
    {.name = "--desc-key", .help = "Place of the description", .value = {"REFERENCE"}},
    {.name = "--port-forward",
     .help = "Allow the router to forward the ports",
     .excludes = "--no-port-forward"},
    {.name = "--no-port-forward", .help = "Do not allow it"},
    kSystemFile,
    kPackageFile,
    kNoRestart,
    kDryRun,
};

UsageProblem ProblemOf(const Arguments &arguments) {
    for (const Option &option : kOptions) {
        if (!option.value.name.empty() && arguments.Has(option.name) &&
            arguments.Text(option.name).empty()) {
            return {std::string(option.name) + " is empty"};
        }
    }
    return {};
}

}  // namespace

constinit const Command kSetCommand = {
    .name = "set",
    .summary = "Write a section of an installed file",
    .operands = kOperands,
    .options = kOptions,
    .examples = R"(Examples:
  servicetool set mypackage.sc web --title Web --desc "The web pages" --dst-ports 8080/tcp
  servicetool set mypackage.sc web --title "My web"   the rest is unchanged
  servicetool set mypackage.sc web --port-forward --dry-run)",
    .check = ProblemOf,
    .run = Set,
    .change = ChangeAskedFor,
};

}  // namespace tavo::tool
