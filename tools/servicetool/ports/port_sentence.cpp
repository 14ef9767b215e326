// Sentences consist of clauses about the holders of the port, its declarers, and the rules that
// name it. If there are none of a kind, the clause is omitted; if that is unknown, the sentence
// says so.
#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "output/text.h"
#include "ports/port_claims.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

using Texts = std::vector<std::string>;

// The most names of a kind in a sentence; JSON contains all of them.
constexpr std::size_t kMostNames = 3;

std::string InQuotes(std::string_view name) {
    return '\'' + Shortened(name) + '\'';
}

// The texts of elements: "a, b, c and 2 more".
template <typename Elements, typename Convert>
std::string FirstOf(const Elements &elements, Convert text_of) {
    const std::size_t shown = elements.size() > kMostNames + 1 ? kMostNames : elements.size();
    Texts texts;
    for (std::size_t i = 0; i < shown; ++i) {
        texts.push_back(text_of(elements[i]));
    }
    if (shown < elements.size()) {
        texts.push_back(std::to_string(elements.size() - shown) + " more");
    }
    return Enumerated(texts);
}

// "nginx (pid 812)".
std::string ProcessText(const HoldingProcess *process) {
    return (process->name.empty() ? "a process" : Shortened(process->name)) + " (pid " +
           std::to_string(process->pid) + ')';
}

std::string ShortPlace(const PortClaim &claim) {
    return Shortened(FullPlaceText(claim.source, *claim.declarer));
}

std::string DeclarerText(const PortClaim &claim) {
    const std::string name = InQuotes(claim.declarer->name);
    if (claim.source == TAVO_PORT_CHECK_SYS_KEY) {
        return name + " (" + ShortPlace(claim) + ')';
    }
    return claim.declarer->file == nullptr ? "built-in " + name : name + " in " + ShortPlace(claim);
}

// A service with all its declarations: "built-in 'ftp' (also ftpport in /etc/tavoinfo.conf)", with
// its name there if it is different.
std::string ServiceText(const ClaimList &service) {
    const PortClaim &first = *service.front();
    const auto other_place = [&first](const PortClaim *claim) {
        const std::string_view name = claim->declarer->name;
        const std::string place = ShortPlace(*claim);
        return name == first.declarer->name ? place : InQuotes(name) + ", " + place;
    };
    const std::span others = std::span(service).subspan(1);
    return DeclarerText(first) +
           (others.empty() ? "" : " (also " + FirstOf(others, other_place) + ')');
}

// The claims of each service.
std::vector<ClaimList> ByService(const ClaimList &claims) {
    std::vector<ClaimList> services;
    for (const PortClaim *claim : claims) {
        const auto known = std::ranges::find_if(services, [claim](const ClaimList &service) {
            return ServiceName(*service.front()->declarer) == ServiceName(*claim->declarer);
        });
        if (known == services.end()) {
            services.push_back({claim});
        } else {
            known->push_back(claim);
        }
    }
    return services;
}

std::string RuleText(const PortClaim *claim) {
    const PortDeclarer &rule = *claim->declarer;
    const std::string_view name = OrEmpty(rule.name);
    return "forwarding rule " + Shortened(rule.entry) +
           (name.empty() ? "" : " for " + InQuotes(name));
}

// Includes the protocol and the ports: the port may be the router's, and the protocol may differ.
std::string DetailedRuleText(const PortClaim *claim) {
    const PortDeclarer &rule = *claim->declarer;
    const std::string detail = std::string(rule.protocol) + ", " + rule.router_ports +
                               " of the router to " + rule.appliance_ports;
    return RuleText(claim) + " (" + Shortened(detail) + ')';
}

// The name of a source, and the question that is open if it cannot be read.
struct SourceWords {
    int source;
    std::string_view name;
    std::string_view question;
};

constexpr std::string_view kDeclaredQuestion = "whether a service declares it";

constexpr SourceWords kSourceWords[] = {
    {TAVO_PORT_CHECK_FW_SERVICE, "the firewall services", kDeclaredQuestion},
    {TAVO_PORT_CHECK_SYS_KEY, "the settings", kDeclaredQuestion},
    {TAVO_PORT_CHECK_PORT_FORWARD, "the forwarding rules", "whether a rule names it"},
    {TAVO_PORT_CHECK_RUNTIME, "the sockets", "whether somebody holds it"},
};

class Sentence {
  public:
    Sentence(const PortAccount &account, bool as_root)
        : account_(account), as_root_(as_root), services_(ByService(account.declared)) {}

    std::string Text() const {
        const auto &[number, protocol] = account_.target;
        const std::string port = std::to_string(number) + '/' + ProtocolsText(protocol);
        const PortVerdict verdict = account_.Verdict();
        if (verdict == PortVerdict::kFree) {
            return port + " is free: nobody declares it and nobody listens";
        }
        const std::string doubts = Doubts();
        if (verdict == PortVerdict::kUnknown && !account_.has_unknown_holder) {
            return port + ": " + doubts;
        }
        return port +
               (verdict == PortVerdict::kTaken ? WhoHasIt() + OtherHolders() : HeldByUnknown()) +
               (doubts.empty() ? "" : "; " + doubts);
    }

  private:
    bool HasFailed(int sources) const { return (account_.failed & sources) != 0; }

    bool MayBeHeld() const {
        return account_.has_unknown_holder || HasFailed(TAVO_PORT_CHECK_RUNTIME);
    }

    // `link` is between the names of the holders and the verb.
    std::string HeldClause(std::string_view link) const {
        const bool one = account_.holders.size() == 1;
        const std::string deed = account_.is_listened_to ? one ? "listens on it" : "listen on it"
                                 : one                   ? "uses it for a connection"
                                                         : "use it for connections";
        return FirstOf(account_.holders, ProcessText) + std::string(link) + deed;
    }

    // The last "and" is distinct from those between names.
    std::string Joined(const Texts &clauses) const {
        const bool has_lists =
            account_.holders.size() > 1 || services_.size() > 1 || account_.forwarded.size() > 1;
        return Enumerated(clauses, has_lists ? ", and " : " and ");
    }

    // Subject and verb for the strangers; names them if only some of the holders are strangers.
    std::string StrangersClause() const {
        const std::size_t strangers = account_.strangers.size();
        if (strangers < account_.holders.size()) {
            return FirstOf(account_.strangers, ProcessText) +
                   (strangers == 1 ? " is not" : " are not");
        }
        return strangers == 1 ? "the program is not" : "none of these programs is";
    }

    // Whether the holders of the port belong to services that declare it.
    std::string Kinship() const {
        if (services_.empty() || account_.holders.empty()) {
            return {};
        }
        const bool one_service = services_.size() == 1;
        if (!account_.strangers.empty()) {
            return "; " + StrangersClause() + " known to belong to " +
                   (one_service ? "that service" : "any of these services");
        }
        const std::string same = one_service ? "the same service" : "one of these services";
        if (account_.same_service) {
            return "; by name, that is " + same;
        }
        return account_.has_unknown_holder ? "" : "; whether that is " + same + " is unknown";
    }

    // Mentions holders that cannot be inspected, if any.
    std::string OtherHolders() const {
        if (!account_.has_unknown_holder) {
            return {};
        }
        return account_.holders.empty() ? "; its holder is unknown" + Remedy()
                                        : "; a process that cannot be inspected also holds it";
    }

    // The questions that are open because a source failed.
    std::string Doubts() const {
        Texts questions;
        Texts names;
        for (const SourceWords &words : kSourceWords) {
            if (!HasFailed(words.source)) {
                continue;
            }
            const bool more = words.question == kDeclaredQuestion && !services_.empty();
            const std::string question(more ? "whether others declare it" : words.question);
            names.emplace_back(words.name);
            if (!Holds(questions, question)) {
                questions.push_back(question);
            }
        }
        return names.empty() ? ""
                             : Enumerated(questions) + " is unknown because " + Enumerated(names) +
                                   " cannot be read";
    }

    // Root can inspect every process, but not the holders of sockets of the kernel or of
    // containers.
    std::string Remedy() const {
        if (account_.held.front()->state == kNoState) {
            return ": the kernel does not report the owner of the socket";
        }
        return as_root_ ? ": it is the kernel or not visible here" : ": ask as root";
    }

    std::string Taken() const {
        Texts clauses;
        if (account_.IsReserved()) {
            clauses.emplace_back("the system keeps it for itself");
        }
        if (!account_.holders.empty()) {
            clauses.push_back(HeldClause(" "));
        }
        if (!services_.empty()) {
            clauses.push_back(FirstOf(services_, ServiceText) +
                              (services_.size() == 1 ? " declares it" : " declare it"));
        }
        if (!account_.forwarded.empty()) {
            clauses.push_back(FirstOf(account_.forwarded, RuleText) +
                              (account_.forwarded.size() == 1 ? " names it" : " name it"));
        }
        return " is taken: " + Joined(clauses) + Kinship();
    }

    std::string DeclaredOnly() const {
        Texts clauses = {"declared by " + FirstOf(services_, ServiceText)};
        if (!account_.forwarded.empty()) {
            clauses.push_back("named by " + FirstOf(account_.forwarded, RuleText));
        }
        return " is " + Joined(clauses) + (MayBeHeld() ? "" : ", but nobody listens");
    }

    std::string WhoHasIt() const {
        const bool held = !account_.holders.empty();
        const bool named = !services_.empty() || !account_.forwarded.empty();
        if (account_.IsReserved() || (held && named)) {
            return Taken();
        }
        if (!services_.empty()) {
            return DeclaredOnly();
        }
        if (held) {
            const bool may_be_declared =
                HasFailed(TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY);
            return " is held by " + HeldClause(", which ") +
                   (may_be_declared ? "" : "; no service file declares it");
        }
        // A forwarded port without a listener may be correct: a rule names the ports of both sides
        // for both protocols.
        return " is named by " + FirstOf(account_.forwarded, DetailedRuleText) +
               (MayBeHeld() ? "" : "; no process holds it");
    }

    std::string HeldByUnknown() const {
        const bool bound = account_.held.front()->state == kNoState;
        return std::string(bound ? " is in use" : " is held") + ", but its holder is unknown" +
               Remedy();
    }

    const PortAccount &account_;
    bool as_root_;
    std::vector<ClaimList> services_;  // those that declare the port
};

}  // namespace

std::string PortSentence(const PortAccount &account, bool as_root) {
    return Sentence(account, as_root).Text();
}

}  // namespace tavo::tool
