// Sentences are put together from clauses about those who hold the port, who declare it, and the
// rules that name it. Whoever is not there leaves no clause, and where it cannot be known that
// somebody is not there, that is said instead.
#include "port_sentence.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "port_sources.h"
#include "protocols.h"
#include "text.h"

namespace tavo {
namespace {

using Texts = std::vector<std::string>;

// How many of a kind are named where there are many; JSON has them all.
constexpr std::size_t kMostNames = 3;

std::string InQuotes(const std::string &name) {
    return '\'' + Shortened(name) + '\'';
}

// "a", "a and b", "a, b and c".
std::string Enumerated(const Texts &texts) {
    std::string text;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        text += i == 0 ? "" : i + 1 < texts.size() ? ", " : " and ";
        text += texts[i];
    }
    return text;
}

// "a, b, c and 2 more".
std::string FirstOf(Texts texts) {
    if (texts.size() > kMostNames + 1) {
        const std::size_t more = texts.size() - kMostNames;
        texts.resize(kMostNames);
        texts.push_back(std::to_string(more) + " more");
    }
    return Enumerated(texts);
}

// "nginx (pid 812)".
std::string ProcessText(const HoldingProcess &process) {
    const std::string name = process.name.empty() ? "a process" : Shortened(process.name);
    return name + " (pid " + std::to_string(process.pid) + ')';
}

std::string DeclarerText(const DeclaredClaim &claim) {
    const PortHolder &holder = claim.holder;
    if (holder.name.empty()) {
        return "a service that cannot be named";
    }
    if (claim.source == kSettingSource) {
        return InQuotes(holder.name) + " (" + holder.entry + " in " + holder.file + ')';
    }
    return holder.file.empty() ? "built-in " + InQuotes(holder.name)
                               : InQuotes(holder.name) + " in " + Shortened(holder.place);
}

std::string RuleText(const PortHolder &rule) {
    if (rule.entry.empty()) {
        return "a forwarding rule that cannot be named";
    }
    return "forwarding rule " + Shortened(rule.entry) +
           (rule.name.empty() ? "" : " for " + InQuotes(rule.name));
}

class Sentence {
  public:
    Sentence(const PortAccount &account, bool as_root);

    std::string Text() const;

  private:
    bool HasFailed(std::string_view source) const;
    bool MayBeDeclared() const;

    std::string HeldClause() const;
    std::string DeclaredClause() const;
    std::string RuleClause() const;
    std::string Kinship() const;
    std::string OtherHolders() const;
    std::string WhoeverHolds() const;
    std::string Remedy() const;

    std::string Taken() const;
    std::string DeclaredOnly() const;
    std::string HeldOnly() const;
    std::string ForwardedOnly() const;
    std::string WhoHasIt() const;
    std::string CannotTell() const;

    const PortAccount &account_;
    bool as_root_;
    Texts holders_;
    Texts declarers_;
    Texts rules_;
};

Sentence::Sentence(const PortAccount &account, bool as_root)
    : account_(account), as_root_(as_root) {
    for (const HoldingProcess &process : account.Holders()) {
        holders_.push_back(ProcessText(process));
    }
    for (const DeclaredClaim &claim : account.declared) {
        declarers_.push_back(DeclarerText(claim));
    }
    for (const DeclaredClaim &claim : account.forwarded) {
        rules_.push_back(RuleText(claim.holder));
    }
}

bool Sentence::HasFailed(std::string_view source) const {
    return std::find(account_.failed.begin(), account_.failed.end(), source) !=
           account_.failed.end();
}

bool Sentence::MayBeDeclared() const {
    return HasFailed(kServiceSource) || HasFailed(kSettingSource);
}

std::string Sentence::HeldClause() const {
    const bool listen =
        std::any_of(account_.held.begin(), account_.held.end(),
                    [](const HeldSocket &socket) { return socket.process && Listens(socket); });
    const bool one = holders_.size() == 1;
    return FirstOf(holders_) + (listen ? one ? " listens on it" : " listen on it"
                                : one  ? " uses it for a connection"
                                       : " use it for connections");
}

std::string Sentence::DeclaredClause() const {
    return FirstOf(declarers_) + (declarers_.size() == 1 ? " declares it" : " declare it");
}

std::string Sentence::RuleClause() const {
    return FirstOf(rules_) + (rules_.size() == 1 ? " names it" : " name it");
}

// Whether those who hold the port belong to those who declare it.
std::string Sentence::Kinship() const {
    if (declarers_.empty() || holders_.empty()) {
        return {};
    }
    Texts strangers;
    for (const HoldingProcess &process : account_.Strangers()) {
        strangers.push_back(ProcessText(process));
    }
    const bool one_service = declarers_.size() == 1;
    if (!strangers.empty()) {
        return "; " + FirstOf(strangers) + (strangers.size() == 1 ? " is" : " are") +
               " not known to belong to " + (one_service ? "it" : "any of them");
    }
    if (account_.HasUnknownHolder()) {
        return {};
    }
    return one_service ? "; that is the same service" : "; that is one of these services";
}

std::string Sentence::Taken() const {
    Texts clauses;
    if (account_.reserved) {
        clauses.emplace_back("the system keeps it for itself");
    }
    if (!holders_.empty()) {
        clauses.push_back(HeldClause());
    }
    if (!declarers_.empty()) {
        clauses.push_back(DeclaredClause());
    }
    if (!rules_.empty()) {
        clauses.push_back(RuleClause());
    }
    return " is taken: " + Enumerated(clauses) + Kinship() + OtherHolders();
}

std::string Sentence::DeclaredOnly() const {
    const std::string declared = " is declared by " + FirstOf(declarers_);
    const std::string named = rules_.empty() ? "" : " and named by " + FirstOf(rules_);
    return declared + named + WhoeverHolds();
}

std::string Sentence::HeldOnly() const {
    return " is held by " + FirstOf(holders_) +
           (MayBeDeclared() ? "; whether a service declares it cannot be told"
                            : ", which no service file declares") +
           OtherHolders();
}

std::string Sentence::ForwardedOnly() const {
    return " is named by " + FirstOf(rules_) +
           (MayBeDeclared() ? "; whether a service declares it cannot be told" : "") +
           WhoeverHolds();
}

// Whether there are more than those who are named.
std::string Sentence::OtherHolders() const {
    if (HasFailed(kSocketSource)) {
        return "; whether somebody holds it cannot be told";
    }
    if (!account_.HasUnknownHolder()) {
        return {};
    }
    return holders_.empty() ? "; who holds it cannot be told" + Remedy()
                            : "; somebody who cannot be looked at holds it, too";
}

// Of a port that no process is known to hold.
std::string Sentence::WhoeverHolds() const {
    const std::string others = OtherHolders();
    return others.empty() ? ", but nobody listens" : others;
}

// Root may look at every process, but the kernel has sockets of its own, and containers theirs.
std::string Sentence::Remedy() const {
    return as_root_ ? ": it is the kernel or out of sight" : ": ask as root";
}

std::string Sentence::CannotTell() const {
    if (account_.HasUnknownHolder()) {
        return " is held, but by whom cannot be told" + Remedy();
    }
    std::string failed;
    for (const std::string_view source : account_.failed) {
        failed += (failed.empty() ? "" : ", ") + std::string(source);
    }
    return ": cannot tell (" + failed + ')';
}

std::string Sentence::WhoHasIt() const {
    const bool declared = !declarers_.empty();
    const bool held = !holders_.empty();
    const bool forwarded = !rules_.empty();
    if (account_.reserved || (held && (declared || forwarded))) {
        return Taken();
    }
    return declared ? DeclaredOnly() : held ? HeldOnly() : ForwardedOnly();
}

std::string Sentence::Text() const {
    const std::string port = std::to_string(account_.port) + '/' + ProtocolsText(account_.protocol);
    switch (account_.Verdict()) {
        case PortVerdict::kFree:
            return port + " is free: nobody declares it and nobody listens";
        case PortVerdict::kUnknown:
            return port + CannotTell();
        default:
            return port + WhoHasIt();
    }
}

}  // namespace

std::string PortSentence(const PortAccount &account, bool as_root) {
    return Sentence(account, as_root).Text();
}

}  // namespace tavo
