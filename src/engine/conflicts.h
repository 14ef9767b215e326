// Which of the ports that somebody asks for are taken, and by whom: any number of questions,
// answered with one reading of each source.
//
// This is the engine for callers inside the appliance's own tools. TLIBIsPortConflict reads the
// same sources one question at a time and gives a yes, a no and a list of ports.
#ifndef TAVO_SRC_ENGINE_CONFLICTS_H
#define TAVO_SRC_ENGINE_CONFLICTS_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "engine/call_catalogue.h"
#include "engine/conflict_sources.h"
#include "engine/text_ranges.h"
#include "engine/used_ports.h"
#include "support/growing_array.h"
#include "support/kept_texts.h"

namespace tavo {

struct PortQuestion {
    std::span<const Range> ports;          // as they were named, each from 0 to 65535 and in order
    uint32_t protocols;                    // bits of TAVO_PROTO_*
    std::span<const char *const> skipped;  // the names to leave out of the comparison
    int sources;                           // bits of TAVO_PORT_CHECK_*
};

// One that declares ports. A text that there is not is null.
struct PortDeclarer {
    const char *name = nullptr;   // by which a question can skip it; a rule may have none
    const char *title = nullptr;  // of a rule
    const char *file = nullptr;
    const char *entry = nullptr;  // of the file: a section or a key

    // Of a rule that has all its keys.
    const char *protocol = nullptr;
    const char *router_ports = nullptr;
    const char *appliance_ports = nullptr;

    bool operator==(const PortDeclarer &) const = default;  // whether the texts are the same copies
};

// Ports of a question that are taken.
struct TakenPorts {
    std::size_t question;
    int source;             // one of TAVO_PORT_CHECK_*; _DEFAULT for the reserved port
    Range range;            // what question and declaration have in common
    uint32_t protocols;     // rules and settings take their ports for both
    PortDeclarer declarer;  // all null for sockets and the reserved port
};

// A source that could not be read or compared with a question: ports of it may be taken.
struct SourceFailure {
    enum class Kind {
        kUnreadable,  // `code` and `error` say why, `declarer` what
        kMissingKey,  // a rule without the key `text`
        kBadPorts,    // `text` is no list of ports; `key` is the key of the rule
        kLeftOut,     // a built-in service is missing from the catalogue
        kPortZero,    // sockets cannot be asked for port 0 alone
    };

    std::size_t question = 0;
    int source = 0;  // one of TAVO_PORT_CHECK_*
    Kind kind = Kind::kUnreadable;
    unsigned int code = 0;  // error code
    int error = 0;          // errno of a file that could not be looked for; else 0
    PortDeclarer declarer = {};
    const char *key = nullptr;
    const char *text = nullptr;
};

class PortConflicts {
  public:
    // Answers the questions, whose texts are not looked at afterwards. Call it once. Returns false when out
    // of memory: the records are incomplete then, and nothing may be taken for free.
    bool Find(std::span<const PortQuestion> questions);

    // In the order of the sources: rules, services, settings, sockets, each in its own order.
    std::span<const TakenPorts> Taken() const { return {taken_.begin(), taken_.Count()}; }
    std::span<const SourceFailure> Failures() const {
        return {failures_.begin(), failures_.Count()};
    }

    // The catalogue that was compared with; null when no question took it.
    const ServiceCatalogue *Services() const { return services_; }

  private:
    // A range of a question, and the highest port of it and all before it.
    struct Asked {
        Range range;
        std::size_t question;
        int highest;
    };

    // Copies a text for a record; null stays null.
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
    const ServiceCatalogue &Catalogue();
    void AddOmissions(const ServiceCatalogue &catalogue);
    void ReadServices();
    void ReadSettings();
    void ReadSockets();
    void ReadSocketsOf(const TAVO_PROTO_TYPE_MAPPING &protocol);
    void CompareSockets(std::size_t question, uint32_t protocol, const PortSet &held);
    void AddRows(const Asked &asked, uint32_t protocol, const PortSet &held);
    bool AddSkippedPorts(std::size_t question, uint32_t protocol, SkippedPorts &skipped);

    std::span<const PortQuestion> questions_;
    GrowingArray<Asked> asked_;    // by question; those of one neither overlap nor touch
    GrowingArray<Asked> ordered_;  // the same in ascending order
    int wanted_ = 0;               // the sources of all questions
    bool out_of_memory_ = false;
    CallCatalogue catalogue_;
    const ServiceCatalogue *services_ = nullptr;  // null until they have been read
    KeptTexts texts_;
    GrowingArray<TakenPorts> taken_;
    GrowingArray<SourceFailure> failures_;
};

}  // namespace tavo

#endif
