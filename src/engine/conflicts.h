// Finds the taken ports among those of any number of questions, and their declarers, with one
// reading of each source.
//
// This is the engine for the appliance's own tools. TLIBIsPortConflict reads the same sources one
// question at a time and returns yes or no and a list of ports.
#ifndef TAVO_SRC_ENGINE_CONFLICTS_H
#define TAVO_SRC_ENGINE_CONFLICTS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "catalogue/firewall_service.h"
#include "engine/conflict_sources.h"
#include "engine/text_ranges.h"
#include "engine/used_ports.h"
#include "support/growing_array.h"

namespace tavo {

struct PortQuestion {
    std::span<const Range> ports;  // as named in the question, each from 0 to 65535, low to high
    uint32_t protocols;            // bits of TAVO_PROTO_*
    std::span<const char *const> skipped;  // names to exclude from the comparison
    int sources;                           // bits of TAVO_PORT_CHECK_*
};

// A declarer of ports. Missing texts are null.
struct PortDeclarer {
    const char *name = nullptr;   // the name to skip it by; a rule may have none
    const char *title = nullptr;  // for rules
    const char *file = nullptr;
    const char *entry = nullptr;  // the section or key in the file

    // For rules that have all their keys.
    const char *protocol = nullptr;
    const char *router_ports = nullptr;
    const char *appliance_ports = nullptr;

    bool operator==(const PortDeclarer &) const = default;  // compares addresses of texts
};

// Ports of a question that are taken.
struct TakenPorts {
    std::size_t question;
    int source;             // one of TAVO_PORT_CHECK_*; _DEFAULT for the reserved port
    Range range;            // overlap of question and declaration
    uint32_t protocols;     // always both for rules and settings
    PortDeclarer declarer;  // all null for sockets and the reserved port
};

// A source that could not be read or compared with a question, so that some of its ports may be
// taken.
struct SourceFailure {
    enum class Kind {
        kUnreadable,  // `code` and `error`: the reason, `declarer`: what is unreadable
        kMissingKey,  // a rule without the key `text`
        kBadPorts,    // `text` is not a valid port list; `key` is the key of the rule
        kLeftOut,     // a built-in service is missing from the catalogue
        kPortZero,    // sockets cannot be checked for port 0 alone
    };

    std::size_t question = 0;
    int source = 0;  // one of TAVO_PORT_CHECK_*
    Kind kind = Kind::kUnreadable;
    unsigned int code = 0;  // error code
    int error = 0;          // errno of the check for the file; else 0
    PortDeclarer declarer = {};
    const char *key = nullptr;
    const char *text = nullptr;
};

class PortConflicts {
  public:
    // Answers the questions. Their texts are not used after the call. May be called once only.
    // Returns false when out of memory; the records are then incomplete, and no port may be assumed
    // to be free.
    bool Find(std::span<const PortQuestion> questions);

    // In the order of the sources (rules, services, settings, sockets), within a source in its own
    // order.
    std::span<const TakenPorts> Taken() const { return {taken_.begin(), taken_.Count()}; }
    std::span<const SourceFailure> Failures() const {
        return {failures_.begin(), failures_.Count()};
    }

    // What was read of the services; null if no question used them.
    const ReadingReport *Services() const { return services_ ? &services_->report : nullptr; }

  private:
    // A range of a question.
    struct Asked {
        Range range;
        std::size_t question;
    };

    // A port of a service that a question skips.
    struct SkippedPort {
        const char *service;
        Range range;
        uint32_t protocols;
    };

    // Copies a text for a record; null for null.
    const char *Keep(const char *text);

    bool OrderQuestions();
    bool Concerns(std::size_t question, int source, const char *name) const;
    void AddTaken(const TakenPorts &taken);
    void AddFailure(const SourceFailure &failure);
    void AddFailureForAll(SourceFailure failure, uint32_t protocols = TAVO_PROTO_BOTH);
    void AddReserved();
    void AddDeclared(const Range &range, int source, uint32_t protocols,
                     const PortDeclarer &declarer);
    void CompareText(const char *ports, int source, uint32_t protocols,
                     const PortDeclarer &declarer, const char *key);
    void ReadRules();
    void CompareRule(const ForwardingRule &rule, const char *file);
    void AddOmissions(const ReadingReport &report);
    void ReadServices();
    bool IsSkippedFirst(const char *service) const;
    void CompareSection(const TAVO_SERVICE_CONF_SECTION &section, const char *file);
    void ReadSettings();
    void ReadSockets();
    void ReadSocketsOf(const TAVO_PROTO_TYPE_MAPPING &protocol);
    void CompareSockets(std::size_t question, uint32_t protocol, const PortSet &held);
    void AddRows(const Asked &asked, uint32_t protocol, const PortSet &held);
    bool AddSkippedPorts(std::size_t question, uint32_t protocol, PortSet &skipped);

    std::span<const PortQuestion> questions_;
    GrowingArray<Asked> asked_;  // by question; the ranges of one never overlap or touch
    RangeIndex index_;           // the same, by question
    int wanted_ = 0;             // the sources of all questions
    bool out_of_memory_ = false;
    std::optional<DeclaredServices> services_;  // without the files
    GrowingArray<const char *> skipped_names_;  // of all questions, sorted
    GrowingArray<SkippedPort> skipped_ports_;   // of services of files, if a question skips them
    KeptTexts texts_;
    GrowingArray<TakenPorts> taken_;
    GrowingArray<SourceFailure> failures_;
};

}  // namespace tavo

#endif
