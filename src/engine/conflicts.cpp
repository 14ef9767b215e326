// The ranges of all questions are sorted, so that the conflicts of each declaration are found by
// binary search. If a source fails for one declarer, the failure is recorded for the questions that
// do not skip it; all other declarers are still compared.
#include "engine/conflicts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/system_files.h"
#include "engine/port_range.h"
#include "support/failure.h"

namespace tavo {
namespace {

bool Skips(const PortQuestion &question, const char *name) {
    return name != nullptr &&
           std::any_of(question.skipped.begin(), question.skipped.end(),
                       [name](const char *skipped) { return std::strcmp(skipped, name) == 0; });
}

bool ComesBefore(const char *a, const char *b) {
    return std::strcmp(a, b) < 0;
}

bool IsAlone(const Range &range, int port) {
    return range.low == port && range.high == port;
}

// Clears the error state, so that a failure is reported with its own error code.
void ForgetError() {
    TLIBCErrSetEx(0, nullptr, 0);
}

// The port of a service file, in either order.
Range RangeOf(const TAVO_SERVICE_CONF_PORT &port) {
    const auto [low, high] = std::minmax({port.nPortStart, LastPort(port)});
    return {static_cast<int>(low), static_cast<int>(high)};
}

bool AnyHeld(const Range &range, const PortSet &held) {
    int port = range.low;
    while (port <= range.high && !held[static_cast<std::size_t>(port)]) {
        ++port;
    }
    return port <= range.high;
}

}  // namespace

bool PortConflicts::Find(std::span<const PortQuestion> questions) {
    questions_ = questions;
    if (!OrderQuestions()) {
        TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
        return false;
    }
    AddReserved();
    static constexpr struct {
        int flag;
        void (PortConflicts::*read)();
    } kSources[] = {
        {TAVO_PORT_CHECK_PORT_FORWARD, &PortConflicts::ReadRules},
        {TAVO_PORT_CHECK_FW_SERVICE, &PortConflicts::ReadServices},
        {TAVO_PORT_CHECK_SYS_KEY, &PortConflicts::ReadSettings},
        {TAVO_PORT_CHECK_RUNTIME, &PortConflicts::ReadSockets},
    };
    for (const auto &source : kSources) {
        if ((wanted_ & source.flag) != 0) {
            (this->*source.read)();
        }
    }
    if (out_of_memory_) {
        TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
    }
    return !out_of_memory_;
}

const char *PortConflicts::Keep(const char *text) {
    const char *copy = text == nullptr ? nullptr : texts_.Keep(text);
    out_of_memory_ = out_of_memory_ || (text != nullptr && copy == nullptr);
    return copy;
}

bool PortConflicts::OrderQuestions() {
    for (std::size_t question = 0; question < questions_.size(); ++question) {
        wanted_ |= questions_[question].sources;
        GrowingArray<Range> ranges;
        if (!ranges.AppendAll(questions_[question].ports) ||
            !skipped_names_.AppendAll(questions_[question].skipped)) {
            return false;
        }
        MergeRanges(ranges);
        for (const Range &range : ranges) {
            if (!asked_.Append({range, question}) || !index_.Add(range, question)) {
                return false;
            }
        }
    }
    std::sort(skipped_names_.begin(), skipped_names_.end(), ComesBefore);
    index_.Sort();
    return true;
}

// Whether the question uses the source and does not skip the name.
bool PortConflicts::Concerns(std::size_t question, int source, const char *name) const {
    return (questions_[question].sources & source) != 0 && !Skips(questions_[question], name);
}

void PortConflicts::AddTaken(const TakenPorts &taken) {
    if (!taken_.Append(taken)) {
        out_of_memory_ = true;
    }
}

void PortConflicts::AddFailure(const SourceFailure &failure) {
    if (failure.code == TLIBC_ERR_NO_MEMORY || !failures_.Append(failure)) {
        out_of_memory_ = true;
    }
}

// Records the failure of one declarer for every question about its protocols that does not skip it.
void PortConflicts::AddFailureForAll(SourceFailure failure, uint32_t protocols) {
    for (std::size_t question = 0; question < questions_.size(); ++question) {
        if (Concerns(question, failure.source, failure.declarer.name) &&
            (questions_[question].protocols & protocols) != 0) {
            failure.question = question;
            AddFailure(failure);
        }
    }
}

void PortConflicts::AddReserved() {
    for (std::size_t question = 0; question < questions_.size(); ++question) {
        const PortQuestion &asked = questions_[question];
        if (std::any_of(asked.ports.begin(), asked.ports.end(),
                        [](const Range &range) { return IsAlone(range, kReservedPort); })) {
            AddTaken({question,
                      TAVO_PORT_CHECK_DEFAULT,
                      {kReservedPort, kReservedPort},
                      asked.protocols,
                      {}});
        }
    }
}

void PortConflicts::AddDeclared(const Range &range, int source, uint32_t protocols,
                                const PortDeclarer &declarer) {
    index_.ForEachOverlap(range, [&](const Range &asked, std::size_t number) {
        const PortQuestion &question = questions_[number];
        if ((question.protocols & protocols) == 0 || !Concerns(number, source, declarer.name)) {
            return;
        }
        const bool service = source == TAVO_PORT_CHECK_FW_SERVICE;
        AddTaken({number,
                  source,
                  {std::max(asked.low, range.low), std::min(asked.high, range.high)},
                  service ? question.protocols & protocols : protocols,
                  declarer});
    });
}

void PortConflicts::CompareText(const char *ports, int source, uint32_t protocols,
                                const PortDeclarer &declarer, const char *key) {
    GrowingArray<Range> ranges;
    const int read = TextRanges(TAVO_HERE, ports, kDeclaredRangeSeparator).ReadAll(ranges);
    for (const Range &range : ranges) {
        AddDeclared(range, source, protocols, declarer);
    }
    if (read < 0) {
        AddFailureForAll({.source = source,
                          .kind = SourceFailure::Kind::kBadPorts,
                          .code = TLIBCErrGet(),
                          .declarer = declarer,
                          .key = key,
                          .text = Keep(ports)},
                         protocols);
    }
}

// ---- Port-forwarding rules ----

void PortConflicts::ReadRules() {
    using Step = ForwardingRules::Step;
    ForwardingRules rules;
    ForwardingRule rule{};
    ForgetError();
    Step step = rules.Next(rule);
    for (; step != Step::kEnd; step = rules.Next(rule)) {
        if (step == Step::kFailed) {
            if (rules.FailedSection() == nullptr || TLIBCErrGet() != TLIBC_ERR_BAD_PARAMETER) {
                break;
            }
            // An empty section.
            rule = {.section = rules.FailedSection()};
        }
        CompareRule(rule, rules.Path());
    }
    // If the path contains a link loop or is too long, the file may still exist.
    const int error = rules.LookError();
    if (step == Step::kFailed || (error != 0 && error != ENOENT && error != ENOTDIR)) {
        AddFailureForAll({
            .source = TAVO_PORT_CHECK_PORT_FORWARD,
            .code = TLIBCErrGet(),
            .error = error,
            .declarer = {nullptr, nullptr, rules.Path(), Keep(rules.FailedSection())},
        });
    }
}

void PortConflicts::CompareRule(const ForwardingRule &rule, const char *file) {
    PortDeclarer declarer = {Keep(rule.service), Keep(rule.title), file, Keep(rule.section)};
    if (const char *missing = rule.MissingKey()) {
        AddFailureForAll({
            .source = TAVO_PORT_CHECK_PORT_FORWARD,
            .kind = SourceFailure::Kind::kMissingKey,
            .code = TLIBC_ERR_BAD_PARAMETER,
            .declarer = declarer,
            .key = missing,
        });
        return;
    }
    declarer.protocol = Keep(rule.protocol);
    declarer.router_ports = Keep(rule.router_ports);
    declarer.appliance_ports = Keep(rule.appliance_ports);
    CompareText(rule.appliance_ports, TAVO_PORT_CHECK_PORT_FORWARD, TAVO_PROTO_BOTH, declarer,
                kRuleAppliancePorts);
    CompareText(rule.router_ports, TAVO_PORT_CHECK_PORT_FORWARD, TAVO_PROTO_BOTH, declarer,
                kRuleRouterPorts);
}

// ---- Firewall services ----

// Records a failure for each built-in service that was left out, whatever the reason, because
// built-in services declare ports. Anything else that could not be read may be any service.
void PortConflicts::AddOmissions(const ReadingReport &report) {
    const unsigned int fault = report.Fault();
    bool of_row = false;
    bool of_file = false;
    for (const LeftOut &omission : report.Omissions()) {
        if (omission.row == nullptr) {
            of_file = of_file || omission.reading.Fault() != 0;
            continue;
        }
        of_row = of_row || omission.reading.Fault() == fault;
        AddFailureForAll({.source = TAVO_PORT_CHECK_FW_SERVICE,
                          .kind = SourceFailure::Kind::kLeftOut,
                          .code = omission.reading.Fault(),
                          .declarer = {.name = omission.row->szName}});
    }
    if (fault != 0 && (of_file || !of_row)) {
        AddFailureForAll({.source = TAVO_PORT_CHECK_FW_SERVICE, .code = fault});
    }
}

void PortConflicts::ReadServices() {
    ForgetError();
    const auto compare = [](void *self, const ServiceFileRecord &file) {
        const auto *section = file.conf->pSections;
        for (; section != nullptr; section = section->pNext) {
            static_cast<PortConflicts *>(self)->CompareSection(*section, file.path);
        }
    };
    const FileVisitor visitor = {compare, this};
    services_ = ReadDeclaredServices(&visitor);
    AddOmissions(services_->report);
    const auto *service = services_->built_in.get();
    for (; service != nullptr; service = service->pNext) {
        for (int i = 0; i < TLIBCSzListCount(service->pDstPortList); ++i) {
            CompareText(TLIBCSzListGet(service->pDstPortList, i), TAVO_PORT_CHECK_FW_SERVICE,
                        service->nDstProtocol, {.name = service->szName}, nullptr);
        }
    }
}

// Whether a question skips the service, and no service of this name was read before.
bool PortConflicts::IsSkippedFirst(const char *service) const {
    return std::binary_search(skipped_names_.begin(), skipped_names_.end(), service, ComesBefore) &&
           std::none_of(skipped_ports_.begin(), skipped_ports_.end(),
                        [service](const SkippedPort &port) {
                            return std::strcmp(port.service, service) == 0;
                        });
}

// An appliance has thousands of sections, so only the texts of those that conflict are kept.
void PortConflicts::CompareSection(const TAVO_SERVICE_CONF_SECTION &section, const char *file) {
    const bool skipped = IsSkippedFirst(section.szName);
    const char *name = skipped ? Keep(section.szName) : nullptr;
    for (const auto *port = section.pDstPorts; port != nullptr; port = port->pNext) {
        const Range range = RangeOf(*port);
        if (skipped && !skipped_ports_.Append({name, range, port->nProtocol})) {
            out_of_memory_ = true;
        }
        if (index_.HasOverlap(range)) {
            name = name == nullptr ? Keep(section.szName) : name;
            AddDeclared(range, TAVO_PORT_CHECK_FW_SERVICE, port->nProtocol,
                        {.name = name, .file = file, .entry = name});
        }
    }
}

// ---- Settings of the system ----

void PortConflicts::ReadSettings() {
    const HeldFile held(kSettingsFile);
    for (const ServiceSetting &setting : kServiceSettings) {
        const OwnedRanges ports(TLIBPortRangeCreate());
        if (ports == nullptr) {
            out_of_memory_ = true;
            return;
        }
        const bool passive = std::strcmp(setting.key, kFtpLowPortKey) == 0;
        const PortDeclarer declarer = {setting.service, nullptr, kSettingsFile,
                                       passive ? kFtpHighPortKey : setting.key};
        ForgetError();
        if (GetServicePort(setting.key, ports.get()) < 0) {
            AddFailureForAll({
                .source = TAVO_PORT_CHECK_SYS_KEY,
                .code = TLIBCErrGet(),
                .declarer = declarer,
            });
        } else if (const TAVO_SERVICE_CONF_PORT *port = ports->pRanges) {
            const int number = static_cast<int>(port->nPortStart);
            AddDeclared({number, number}, TAVO_PORT_CHECK_SYS_KEY, TAVO_PROTO_BOTH, declarer);
        }
    }
}

// ---- Sockets ----

void PortConflicts::ReadSockets() {
    for (const TAVO_PROTO_TYPE_MAPPING &protocol : gProtoTypeMapping) {
        if (std::any_of(questions_.begin(), questions_.end(), [&](const PortQuestion &question) {
                return (question.sources & TAVO_PORT_CHECK_RUNTIME) != 0 &&
                       (question.protocols & static_cast<uint32_t>(protocol.nProto)) != 0;
            })) {
            ReadSocketsOf(protocol);
        }
    }
    for (const Asked &asked : asked_) {
        if (IsAlone(asked.range, 0) && Concerns(asked.question, TAVO_PORT_CHECK_RUNTIME, nullptr)) {
            AddFailure({.question = asked.question,
                        .source = TAVO_PORT_CHECK_RUNTIME,
                        .kind = SourceFailure::Kind::kPortZero,
                        .code = TLIBC_ERR_BAD_PARAMETER});
        }
    }
}

void PortConflicts::ReadSocketsOf(const TAVO_PROTO_TYPE_MAPPING &protocol) {
    const auto bit = static_cast<uint32_t>(protocol.nProto);
    PortSet held;
    ForgetError();
    if (!AddHeldPorts(protocol.nProto == TAVO_PROTO_TCP, held)) {
        AddFailureForAll({.source = TAVO_PORT_CHECK_RUNTIME, .code = TLIBCErrGet()}, bit);
        return;
    }
    for (std::size_t question = 0; question < questions_.size(); ++question) {
        if (Concerns(question, TAVO_PORT_CHECK_RUNTIME, nullptr) &&
            (questions_[question].protocols & bit) != 0) {
            CompareSockets(question, bit, held);
        }
    }
}

// A socket on a port of a skipped service is assumed to belong to that service.
void PortConflicts::CompareSockets(std::size_t question, uint32_t protocol, const PortSet &held) {
    const auto [first, end] =
        std::equal_range(asked_.begin(), asked_.end(), Asked{{}, question},
                         [](const Asked &a, const Asked &b) { return a.question < b.question; });
    if (std::none_of(first, end,
                     [&held](const Asked &asked) { return AnyHeld(asked.range, held); })) {
        return;
    }
    PortSet skipped;
    if (!questions_[question].skipped.empty() && !AddSkippedPorts(question, protocol, skipped)) {
        return;
    }
    const PortSet left = held & ~skipped;
    std::for_each(first, end, [&](const Asked &asked) { AddRows(asked, protocol, left); });
}

// Adds one record for each run of adjacent held ports.
void PortConflicts::AddRows(const Asked &asked, uint32_t protocol, const PortSet &held) {
    const auto is_held = [&held](int port) { return held[static_cast<std::size_t>(port)]; };
    for (int port = asked.range.low; port <= asked.range.high; ++port) {
        if (!is_held(port)) {
            continue;
        }
        const int first = port;
        while (port < asked.range.high && is_held(port + 1)) {
            ++port;
        }
        AddTaken({asked.question, TAVO_PORT_CHECK_RUNTIME, {first, port}, protocol, {}});
    }
}

// Returns false if the ports of the services are unknown.
bool PortConflicts::AddSkippedPorts(std::size_t question, uint32_t protocol, PortSet &skipped) {
    if (!services_) {
        ReadServices();
    }
    if (const unsigned int fault = services_->report.Fault()) {
        AddFailure({.question = question, .source = TAVO_PORT_CHECK_RUNTIME, .code = fault});
        return false;
    }
    for (const char *name : questions_[question].skipped) {
        bool of_file = false;
        for (const SkippedPort &port : skipped_ports_) {
            if (std::strcmp(port.service, name) == 0) {
                of_file = true;
                if ((port.protocols & protocol) != 0) {
                    AddPorts(port.range.low, port.range.high, skipped);
                }
            }
        }
        if (!of_file && services_->built_in != nullptr) {
            AddServicePorts(services_->built_in.get(), name, protocol, skipped);
        }
    }
    return true;
}

}  // namespace tavo
