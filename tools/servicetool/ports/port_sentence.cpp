// Sentences consist of clauses about the holders of the port, its declarers, and the rules that
// name it. If there are none of a kind, the clause is omitted; if that is unknown, the sentence
// says so.
#include "ports/port_sentence.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "output/text.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

using Texts = std::vector<std::string>;

// The most names of a kind in a sentence; JSON contains all of them.
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
Texts ProcessTexts(const std::vector<const HoldingProcess *> &processes) {
    Texts texts;
    for (const HoldingProcess *process : processes) {
        const std::string name = process->name.empty() ? "a process" : Shortened(process->name);
        texts.push_back(name + " (pid " + std::to_string(process->pid) + ')');
    }
    return texts;
}

std::string PlaceText(const Declaration &claim) {
    const Declarer &declarer = *claim.declarer;
    return claim.source == kSettingSource ? declarer.entry + " in " + declarer.file
                                          : Shortened(declarer.place);
}

std::string DeclarerText(const Declaration &claim) {
    const std::string name = InQuotes(claim.declarer->name);
    if (claim.source == kSettingSource) {
        return name + " (" + PlaceText(claim) + ')';
    }
    return claim.declarer->file.empty() ? "built-in " + name : name + " in " + PlaceText(claim);
}

// Another place where a service declares the port, with its name there if it is different.
std::string OtherPlaceText(const Declaration &claim, const Declaration &first) {
    const std::string place = PlaceText(claim);
    return claim.declarer->name == first.declarer->name
               ? place
               : InQuotes(claim.declarer->name) + ", " + place;
}

// One text for each service: "built-in 'ftp' (also ftpport in /etc/tavoinfo.conf)".
Texts DeclarerTexts(const std::vector<Declaration> &claims) {
    std::vector<const Declaration *> firsts;
    std::vector<Texts> places;
    for (const Declaration &claim : claims) {
        const auto first =
            std::find_if(firsts.begin(), firsts.end(), [&claim](const Declaration *known) {
                return known->declarer->service == claim.declarer->service;
            });
        if (first == firsts.end()) {
            firsts.push_back(&claim);
            places.emplace_back();
        } else {
            places[static_cast<std::size_t>(first - firsts.begin())].push_back(
                OtherPlaceText(claim, **first));
        }
    }
    Texts texts;
    for (std::size_t i = 0; i < firsts.size(); ++i) {
        texts.push_back(DeclarerText(*firsts[i]) +
                        (places[i].empty() ? "" : " (also " + FirstOf(places[i]) + ')'));
    }
    return texts;
}

std::string RuleText(const Declarer &rule) {
    return "forwarding rule " + Shortened(rule.entry) +
           (rule.name.empty() ? "" : " for " + InQuotes(rule.name));
}

// Includes the protocol and the ports: the port may be the router's, and the protocol may differ.
std::string DetailedRuleText(const Declaration &claim) {
    return RuleText(*claim.declarer) + " (" + Shortened(claim.declarer->detail) + ')';
}

// The name of a source, and the question that is open if it cannot be read.
struct SourceWords {
    std::string_view source;
    std::string_view name;
    std::string_view question;
};

constexpr std::string_view kDeclaredQuestion = "whether a service declares it";

constexpr SourceWords kSourceWords[] = {
    {kServiceSource, "the firewall services", kDeclaredQuestion},
    {kSettingSource, "the settings", kDeclaredQuestion},
    {kForwardSource, "the forwarding rules", "whether a rule names it"},
    {kSocketSource, "the sockets", "whether somebody holds it"},
};

class Sentence {
  public:
    Sentence(const PortAccount &account, bool as_root);

    std::string Text() const;

  private:
    bool HasFailed(std::string_view source) const;
    bool IsListenedTo() const;

    std::string HeldClause(std::string_view link) const;
    std::string DeclaredClause() const;
    std::string RuleClause() const;
    std::string Joined(const Texts &clauses) const;
    std::string StrangersClause() const;
    std::string Kinship() const;
    std::string OtherHolders() const;
    std::string Doubts() const;
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
    std::string doubts_;
};

Sentence::Sentence(const PortAccount &account, bool as_root)
    : account_(account),
      as_root_(as_root),
      holders_(ProcessTexts(account.holders)),
      declarers_(DeclarerTexts(account.declared)) {
    for (const Declaration &claim : account.forwarded) {
        rules_.push_back(RuleText(*claim.declarer));
    }
    doubts_ = Doubts();
}

bool Sentence::HasFailed(std::string_view source) const {
    return std::find(account_.failed.begin(), account_.failed.end(), source) !=
           account_.failed.end();
}

bool Sentence::IsListenedTo() const {
    return std::any_of(account_.held.begin(), account_.held.end(), [](const HeldSocket &socket) {
        return socket.process != nullptr && Listens(socket);
    });
}

// `link` is between the names of the holders and the verb.
std::string Sentence::HeldClause(std::string_view link) const {
    const bool one = holders_.size() == 1;
    const std::string deed = IsListenedTo() ? one ? "listens on it" : "listen on it"
                             : one          ? "uses it for a connection"
                                            : "use it for connections";
    return FirstOf(holders_) + std::string(link) + deed;
}

std::string Sentence::DeclaredClause() const {
    return FirstOf(declarers_) + (declarers_.size() == 1 ? " declares it" : " declare it");
}

std::string Sentence::RuleClause() const {
    return FirstOf(rules_) + (rules_.size() == 1 ? " names it" : " name it");
}

// The last "and" is distinct from those between names.
std::string Sentence::Joined(const Texts &clauses) const {
    const bool has_lists = holders_.size() > 1 || declarers_.size() > 1 || rules_.size() > 1;
    if (!has_lists || clauses.size() < 2) {
        return Enumerated(clauses);
    }
    std::string text;
    for (std::size_t i = 0; i < clauses.size(); ++i) {
        text += i == 0 ? "" : i + 1 < clauses.size() ? ", " : ", and ";
        text += clauses[i];
    }
    return text;
}

// Subject and verb for the strangers; names them if only some of the holders are strangers.
std::string Sentence::StrangersClause() const {
    const std::size_t strangers = account_.strangers.size();
    if (strangers < holders_.size()) {
        return FirstOf(ProcessTexts(account_.strangers)) +
               (strangers == 1 ? " is not" : " are not");
    }
    return strangers == 1 ? "the program is not" : "none of these programs is";
}

// Whether the holders of the port belong to services that declare it.
std::string Sentence::Kinship() const {
    if (declarers_.empty() || holders_.empty()) {
        return {};
    }
    const bool one_service = declarers_.size() == 1;
    if (!account_.strangers.empty()) {
        return "; " + StrangersClause() + " known to belong to " +
               (one_service ? "that service" : "any of these services");
    }
    const std::string same = one_service ? "the same service" : "one of these services";
    if (account_.same_service) {
        return "; by name, that is " + same;
    }
    return account_.HasUnknownHolder() ? "" : "; whether that is " + same + " is unknown";
}

// Mentions holders that cannot be inspected, if any.
std::string Sentence::OtherHolders() const {
    if (!account_.HasUnknownHolder()) {
        return {};
    }
    return holders_.empty() ? "; its holder is unknown" + Remedy()
                            : "; a process that cannot be inspected also holds it";
}

// The questions that are open because a source failed.
std::string Sentence::Doubts() const {
    Texts questions;
    Texts names;
    for (const SourceWords &words : kSourceWords) {
        if (!HasFailed(words.source)) {
            continue;
        }
        const bool more = words.question == kDeclaredQuestion && !declarers_.empty();
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

// Root can inspect every process, but not the holders of sockets of the kernel or of containers.
std::string Sentence::Remedy() const {
    if (account_.held.front().state == kNoState) {
        return ": the kernel does not report the owner of the socket";
    }
    return as_root_ ? ": it is the kernel or not visible here" : ": ask as root";
}

std::string Sentence::Taken() const {
    Texts clauses;
    if (account_.reserved) {
        clauses.emplace_back("the system keeps it for itself");
    }
    if (!holders_.empty()) {
        clauses.push_back(HeldClause(" "));
    }
    if (!declarers_.empty()) {
        clauses.push_back(DeclaredClause());
    }
    if (!rules_.empty()) {
        clauses.push_back(RuleClause());
    }
    return " is taken: " + Joined(clauses) + Kinship();
}

std::string Sentence::DeclaredOnly() const {
    Texts clauses = {"declared by " + FirstOf(declarers_)};
    if (!rules_.empty()) {
        clauses.push_back("named by " + FirstOf(rules_));
    }
    const bool may_be_held = account_.HasUnknownHolder() || HasFailed(kSocketSource);
    return " is " + Joined(clauses) + (may_be_held ? "" : ", but nobody listens");
}

std::string Sentence::HeldOnly() const {
    const bool may_be_declared = HasFailed(kServiceSource) || HasFailed(kSettingSource);
    return " is held by " + HeldClause(", which ") +
           (may_be_declared ? "" : "; no service file declares it");
}

// A forwarded port without a listener may be correct: a rule names the ports of both sides for both
// protocols.
std::string Sentence::ForwardedOnly() const {
    Texts rules;
    for (const Declaration &claim : account_.forwarded) {
        rules.push_back(DetailedRuleText(claim));
    }
    const bool may_be_held = account_.HasUnknownHolder() || HasFailed(kSocketSource);
    return " is named by " + FirstOf(rules) + (may_be_held ? "" : "; no process holds it");
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

std::string Sentence::CannotTell() const {
    if (!account_.HasUnknownHolder()) {
        return ": " + doubts_;
    }
    const bool bound = account_.held.front().state == kNoState;
    return std::string(bound ? " is in use" : " is held") + ", but its holder is unknown" +
           Remedy() + (doubts_.empty() ? "" : "; " + doubts_);
}

std::string Sentence::Text() const {
    const std::string port = std::to_string(account_.port) + '/' + ProtocolsText(account_.protocol);
    switch (account_.Verdict()) {
        case PortVerdict::kFree:
            return port + " is free: nobody declares it and nobody listens";
        case PortVerdict::kUnknown:
            return port + CannotTell();
        default:
            return port + WhoHasIt() + OtherHolders() + (doubts_.empty() ? "" : "; " + doubts_);
    }
}

}  // namespace

std::string PortSentence(const PortAccount &account, bool as_root) {
    return Sentence(account, as_root).Text();
}

}  // namespace tavo::tool
