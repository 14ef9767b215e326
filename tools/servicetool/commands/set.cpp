// servicetool set. Values that are not given are unchanged, so a title can be changed without
// giving the ports.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "change/section_target.h"
#include "commands/commands.h"
#include "input/library_failure.h"
#include "lint/file_remarks.h"
#include "output/text.h"
#include "ports/section_queries.h"

namespace tavo::tool {
namespace {

template <std::size_t Size>
bool Fits(const std::string &text, const char (&)[Size]) {
    return text.size() < Size && text.find('\n') == std::string::npos;
}

template <std::size_t Size>
void Fill(char (&field)[Size], const std::string &text) {
    std::fill(std::begin(field), std::end(field), '\0');
    std::copy(text.begin(), text.end(), field);
}

// Builds the new section from the current one and the options of the command line.
class NewSection {
  public:
    NewSection(const Arguments &arguments, const SectionTarget &target, Report &report)
        : arguments_(arguments), target_(target), report_(report) {}

    // Returns null if the command line is invalid, which is reported.
    OwnedSection Make();

  private:
    bool IsComplete();
    bool SetText(const char *option, TAVO_SERVICE_CONF_STRING &string);
    bool SetReference(const char *option, TAVO_SERVICE_CONF_STRING &string);
    bool SetPorts(const char *option, unsigned int direction, TAVO_SERVICE_CONF_PORT *&ports);

    const Arguments &arguments_;
    const SectionTarget &target_;
    Report &report_;
};

OwnedSection StartFrom(const OwnedSection &today, const std::string &name) {
    TAVO_SERVICE_CONF_SECTION *copy = nullptr;
    if (today != nullptr) {
        TAVOServiceComposeSectionInfo(today.get(), &copy);
    } else {
        copy = static_cast<TAVO_SERVICE_CONF_SECTION *>(std::calloc(1, sizeof(*copy)));
    }
    OwnedSection section = OrThrow(OwnedSection(copy));
    Fill(section->szName, name);
    return section;
}

OwnedSection NewSection::Make() {
    if (!IsComplete()) {
        return nullptr;
    }
    OwnedSection section = StartFrom(target_.today, target_.section);
    const bool good = SetText("--title", section->strTitle) &&
                      SetText("--desc", section->strDesc) &&
                      SetReference("--title-key", section->strTitle) &&
                      SetReference("--desc-key", section->strDesc) &&
                      SetPorts("--dst-ports", TAVO_PORT_DIRECTION_DST, section->pDstPorts) &&
                      SetPorts("--src-ports", TAVO_PORT_DIRECTION_SRC, section->pSrcPorts);
    if (arguments_.Has("--port-forward") || arguments_.Has("--no-port-forward")) {
        section->blPortForward = arguments_.Has("--port-forward") ? 1 : 0;
    }
    return good ? std::move(section) : nullptr;
}

// If the library cannot read the current section, all required values must be given.
bool NewSection::IsComplete() {
    const bool all =
        arguments_.Has("--title") && arguments_.Has("--desc") && arguments_.Has("--dst-ports");
    if (target_.today == nullptr && !all) {
        report_.TellUsage("section [" + target_.section + "] " +
                              (target_.present ? "cannot be read as it is" : "is new") +
                              ", so it needs --title, --desc and --dst-ports",
                          "");
        return false;
    }
    return true;
}

bool NewSection::SetText(const char *option, TAVO_SERVICE_CONF_STRING &string) {
    const std::string text = arguments_.Text(option);
    if (!Fits(text, string.szText)) {
        report_.TellUsage(std::string(option) + " takes one line of at most " +
                              std::to_string(sizeof(string.szText) - 1) + " bytes",
                          "");
        return false;
    }
    if (!text.empty()) {
        Fill(string.szText, text);
    }
    return true;
}

// The reference must be unchanged after it is read by the library.
bool NewSection::SetReference(const char *option, TAVO_SERVICE_CONF_STRING &string) {
    const std::string text = arguments_.Text(option);
    if (text.empty()) {
        return true;
    }
    TAVO_SERVICE_CONF_STRING read{};
    ForgetFailure();
    if (TAVOServiceConfServiceStringGet(text.c_str(), &read) < 0) {
        ThrowIfSystemFailed("the reference cannot be read");
    }
    const bool whole = *read.szSection != '\0' && *read.szKey != '\0';
    if (!whole || ReferenceText(read) != text || text.find('\n') != std::string::npos) {
        report_.TellUsage(
            std::string(option) + " takes SOURCE:SECTION:KEY or SECTION:KEY, not " + Quoted(text),
            "");
        return false;
    }
    std::memcpy(string.szSource, read.szSource, sizeof(read.szSource));
    std::memcpy(string.szSection, read.szSection, sizeof(read.szSection));
    std::memcpy(string.szKey, read.szKey, sizeof(read.szKey));
    return true;
}

bool NewSection::SetPorts(const char *option, unsigned int direction,
                          TAVO_SERVICE_CONF_PORT *&ports) {
    const std::string text = arguments_.Text(option);
    if (text.empty()) {
        return true;
    }
    OwnedPorts read = ReadPorts(text, direction, report_);
    if (read == nullptr) {
        return false;
    }
    TAVOServiceConfPortsFree(ports);
    ports = read.release();
    return true;
}

std::string WhatIsDone(const SectionTarget &target) {
    const char *what = !target.file.text ? "make it, with section ["
                       : target.present  ? "change section ["
                                         : "add section [";
    return what + target.section + ']' + LinkRemark(target.file.path, OfLink::kTarget);
}

void Set(const Arguments &arguments, Report &report) {
    const SectionOptions options = SectionOf(arguments);
    SectionTarget target;
    if (!FindSection(options, Missing::kAllow, target, report)) {
        return;
    }
    const OwnedSection section = NewSection(arguments, target, report).Make();
    if (section == nullptr) {
        return;
    }
    if (!target.file.text) {
        WarnOfNewName(target.file.name, "write", report);
    }
    const PortQuery query = QueryOf(section->pDstPorts);
    section->pDstPorts = Reversed(section->pDstPorts);
    section->pSrcPorts = Reversed(section->pSrcPorts);
    const TAVO_SERVICE_CONF_SET_PARAM param = ParamOf(target, options);
    Change plan = ChangeOf("set", target, options, WithSection(target.file.text, *section));
    plan.listeners = ListenersOf(Listener::kRouterTool, options);
    ChangeReport change(std::move(plan), report);
    if (CheckSection(target, query, change, report) && change.Begin(WhatIsDone(target))) {
        change.Do(
            [&](ChangeOutcome &outcome) { return WriteSection(&param, section.get(), outcome); });
    }
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

constexpr char kExamples[] = R"(Examples:
  servicetool set mypackage.sc web --title Web --desc "The web pages" --dst-ports 8080/tcp
  servicetool set mypackage.sc web --title "My web"   the rest is unchanged
  servicetool set mypackage.sc web --port-forward --dry-run)";

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
    .examples = kExamples,
    .check = ProblemOf,
    .run = Set,
    .change = ChangeAskedFor,
};

}  // namespace tavo::tool
