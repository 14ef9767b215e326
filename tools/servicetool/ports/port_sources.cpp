#include "ports/port_sources.h"

#include <cstdint>
#include <utility>

#include "output/diagnostic.h"
#include "ports/protocols.h"
#include "ports/socket_ports.h"
#include "ports/source_failure.h"

namespace tavo::tool {
namespace {

// Enough to find a few dozen sockets among all ports, on an ordinary appliance within a second.
constexpr SearchLimits kCheckLimits = {512, std::chrono::seconds(3)};

// Every word leaves its settings out of the comparison, so asked with all the others left out, the
// library tells what this one holds.
SkippedNames AllSettingsBut(const ServiceSetting &setting, SkippedNames skipped) {
    for (const ServiceSetting &other : kServiceSettings) {
        if (other.service != setting.service) {
            skipped.emplace_back(other.service);
        }
    }
    return skipped;
}

Declarations DeclaredBy(const ServiceSetting &setting) {
    const std::string key(setting.key);
    return {{{0, kHighestPort},
             TAVO_PROTO_BOTH,
             {std::string(setting.service), kSettingsFile, key, key}}};
}

}  // namespace

struct PortSources::Question {
    const PortQuery &query;
    const PortRanges set;  // of the query
    const SkippedNames &skipped;
    PortAnswer answer = {};

    LibraryAnswer Ask(int flag, std::uint32_t protocols) const {
        return AskLibrary(set, protocols, skipped, flag);
    }

    void AddTaken(std::string_view source, const HeldPorts &held, bool exact = true) {
        for (HeldPorts::Row &row : held.Rows()) {
            answer.conflicts.push_back(
                {row.range, row.protocols, source, std::move(row.holders), exact});
        }
    }

    void AddFailed(std::string_view source) { answer.failed.push_back(source); }
};

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

PortSources::PortSources(int flags, Report &report) : flags_(flags), report_(report) {}

PortSources::~PortSources() = default;

PortAnswer PortSources::Ask(const PortQuery &query, const SkippedNames &skipped) {
    static constexpr struct {
        int flag;
        void (PortSources::*ask)(Question &);
    } kSteps[] = {
        {TAVO_PORT_CHECK_PORT_FORWARD, &PortSources::AskForward},
        {TAVO_PORT_CHECK_FW_SERVICE, &PortSources::AskServices},
        {TAVO_PORT_CHECK_SYS_KEY, &PortSources::AskSettings},
        {TAVO_PORT_CHECK_RUNTIME, &PortSources::AskSockets},
    };
    Question question = {query, Merged(query.items), skipped};
    if (NamesReservedPort(query.items)) {
        question.answer.conflicts.push_back(
            {{kReservedPort, kReservedPort}, query.protocols, kReservedSource, {}});
    }
    for (const auto &step : kSteps) {
        if ((flags_ & step.flag) != 0) {
            (this->*step.ask)(question);
        }
    }
    return std::move(question.answer);
}

void PortSources::AskForward(Question &question) {
    const LibraryAnswer answer =
        question.Ask(TAVO_PORT_CHECK_PORT_FORWARD, question.query.protocols);
    // The library takes a file that it is kept from seeing for one that is not there.
    const bool barred =
        !Rules().Problem().empty() && !Rules().IsMissing() && TLIBCFileExist(kRuleFile) == 0;
    if (answer.verdict == PortVerdict::kUnknown || barred) {
        question.AddFailed(kForwardSource);
        TellOnce(WhyRulesAreUnknown(Rules(), question.skipped, answer.reason));
        return;
    }
    Diagnostic finding;
    if (FindDisregardedRules(Rules(), finding)) {
        TellOnce(std::move(finding));
    }
    HeldPorts held;
    if (answer.verdict == PortVerdict::kTaken) {
        held.Add(answer.taken, TAVO_PROTO_BOTH, DeclaredBy(Rules()), question.skipped);
    }
    question.AddTaken(kForwardSource, held);
}

void PortSources::AskServices(Question &question) {
    HeldPorts held;
    bool known = ServicesAreKnown(question.skipped);
    for (const std::uint32_t protocol : kProtocols) {
        if ((question.query.protocols & protocol) == 0) {
            continue;
        }
        const LibraryAnswer answer = question.Ask(TAVO_PORT_CHECK_FW_SERVICE, protocol);
        if (answer.verdict == PortVerdict::kUnknown) {
            known = false;
            TellOnce(WhyServicesAreUnknown(Services(), question.skipped, answer.reason));
        } else if (answer.verdict == PortVerdict::kTaken) {
            held.Add(answer.taken, protocol, DeclaredBy(Services()), question.skipped);
        }
    }
    if (!known) {
        question.AddFailed(kServiceSource);
    }
    question.AddTaken(kServiceSource, held);
}

void PortSources::AskSettings(Question &question) {
    Diagnostic finding;
    if (!std::exchange(settings_looked_at_, true) && FindDisregardedSettings(finding)) {
        TellOnce(std::move(finding));
    }
    HeldPorts held;
    bool known = true;
    for (const ServiceSetting &setting : kServiceSettings) {
        if (Skips(question.skipped, std::string(setting.service))) {
            continue;
        }
        const LibraryAnswer answer =
            AskLibrary(question.set, question.query.protocols,
                       AllSettingsBut(setting, question.skipped), TAVO_PORT_CHECK_SYS_KEY);
        if (answer.verdict == PortVerdict::kUnknown) {
            known = false;
            TellOnce(WhySettingIsUnknown(setting, answer.reason));
        }
        held.Add(answer.taken, TAVO_PROTO_BOTH, DeclaredBy(setting), {});
    }
    if (!known) {
        question.AddFailed(kSettingSource);
    }
    question.AddTaken(kSettingSource, held);
}

void PortSources::AskSockets(Question &question) {
    HeldPorts held;
    HeldPorts partly_held;
    bool known = true;
    std::string problem;
    for (const std::uint32_t protocol : kProtocols) {
        if ((question.query.protocols & protocol) != 0) {
            const SocketPorts sockets =
                tool::AskSockets(question.set, protocol, question.skipped, kCheckLimits);
            problem = problem.empty() ? sockets.problem : problem;
            known = known && sockets.known && SocketsAreSeen(protocol, problem);
            held.Add(sockets.held, protocol);
            for (const PortRange &range : sockets.partly_held) {
                partly_held.Add({range}, protocol);
            }
        }
    }
    if (!known) {
        question.AddFailed(kSocketSource);
        TellOnce(WhySocketsAreUnknown(question.set, problem));
    }
    question.AddTaken(kSocketSource, held);
    question.AddTaken(kSocketSource, partly_held, false);
}

std::optional<bool> PortSources::AnyHeldBySockets(const PortRanges &set, std::uint32_t protocols) {
    std::string problem;
    const LibraryAnswer answer = AskLibrary(set, protocols, {}, TAVO_PORT_CHECK_RUNTIME);
    if (answer.verdict != PortVerdict::kUnknown && SocketsAreSeen(protocols, problem)) {
        return answer.verdict == PortVerdict::kTaken;
    }
    problem = problem.empty() ? answer.reason : problem;
    TellOnce(WhySocketsAreUnknown(set, problem));
    report_.Raise(Status::kFailed);
    return {};
}

const RuleFile &PortSources::Rules() {
    if (rules_ == nullptr) {
        rules_ = std::make_unique<RuleFile>();
    }
    return *rules_;
}

// What the services' own list says of a file that cannot be read would be in the words of a command
// that lists them; here it decides whether there is an answer.
const FirewallServices &PortSources::Services() {
    if (!services_) {
        Report unheard(true);
        services_ = ReadFirewallServices(unheard);
        services_complete_ = TellUnreadServiceFiles(*services_, report_);
    }
    return *services_;
}

bool PortSources::SocketsAreSeen(std::uint32_t protocols, std::string &problem) {
    if ((protocols & ~seen_protocols_) != 0 && SeesSockets(protocols, problem)) {
        seen_protocols_ |= protocols;
    }
    return (protocols & ~seen_protocols_) == 0;
}

// The library leaves out what it cannot read and answers for the rest.
bool PortSources::ServicesAreKnown(const SkippedNames &skipped) {
    bool known = true;
    for (const TAVO_FW_SERVICE_REG *row : Services().left_out) {
        if (!Skips(skipped, row->szName)) {
            TellOnce(WhyLeftOut(*row));
            known = false;
        }
    }
    return known && services_complete_;
}

void PortSources::TellOnce(Diagnostic diagnostic) {
    if (told_.insert(DiagnosticText(diagnostic, false, 0)).second) {
        report_.Tell(std::move(diagnostic));
    }
}

}  // namespace tavo::tool
