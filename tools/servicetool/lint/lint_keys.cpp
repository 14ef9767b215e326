#include "lint/lint_rules.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <utility>

#include "model/service_file_keys.h"
#include "output/text.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

// The library compares this many bytes of port_forward. The value only means yes or no, so a longer
// one is a warning, not an error.
constexpr std::size_t kForwardBytes = 31;

// The last characters of a text after cutting it to `limit` bytes.
std::string EndOfCut(std::string_view text, std::size_t limit) {
    constexpr std::size_t kShown = 12;
    const std::string_view kept = text.substr(0, limit);
    std::size_t begin = kept.size() - std::min(kShown, kept.size());
    while (begin < kept.size() && IsContinuation(kept[begin])) {
        ++begin;
    }
    return "\"..." + std::string(kept.substr(begin)) + '"';
}

// Reports the first control character and the first invalid UTF-8 of a value.
void CheckCharacters(const ConfigLine &line, Findings &findings) {
    bool control_found = false;
    bool broken_found = false;
    for (std::string_view rest = line.value; !rest.empty();) {
        const Character character = FirstCharacter(rest);
        const std::string_view spot = rest.substr(0, character.size);
        if (!character.valid && !std::exchange(broken_found, true)) {
            findings.Add(Rule("broken-utf-8"), spot,
                         std::string(line.name) + " contains a byte that is not UTF-8");
        } else if (character.valid && IsControl(character.code) &&
                   !std::exchange(control_found, true)) {
            findings.Add(Rule("control-byte"), spot,
                         std::string(line.name) + " contains a control character");
        }
        rest.remove_prefix(character.size);
    }
}

// Reports quotes that are read as part of the value but probably should enclose it.
void CheckQuotes(const ConfigLine &line, Findings &findings) {
    const std::string_view raw = line.raw_value;
    if (raw.empty() || line.value.data() != raw.data()) {
        return;
    }
    if (raw.front() == '"') {
        findings.Add(Rule("quotes"), raw.substr(0, 1),
                     "the opening quote has no closing one at the end of the line and is read as "
                     "part of the value",
                     "end the line with a quote, or remove this one");
    } else if (raw.back() == '"') {
        findings.Add(Rule("quotes"), raw.substr(raw.size() - 1),
                     "the closing quote has no opening one and is read as part of the value",
                     "start the value with a quote, or remove this one");
    } else if (raw.size() >= 2 && raw.front() == '\'' && raw.back() == '\'') {
        findings.Add(Rule("quotes"), raw.substr(0, 1),
                     "single quotes are read as part of the value", "use double quotes");
    }
}

void CheckTrailingComment(const ConfigLine &line, Findings &findings) {
    const std::string_view value = line.raw_value;
    if (line.value.data() != value.data()) {
        return;  // in quotes, so it is intended
    }
    for (std::size_t i = 1; i < value.size(); ++i) {
        if ((value[i] == '#' || value[i] == ';') && IsBlank(value[i - 1])) {
            findings.Add(Rule("trailing-comment"), value.substr(i, 1),
                         "what looks like a comment is read as part of the value",
                         "put the comment on a line of its own, or the value in quotes");
            return;
        }
    }
}

void CheckNotEmpty(const ConfigLine &line, Findings &findings) {
    if (TrimBlanks(line.value).empty()) {
        findings.Add(
            Rule("empty-text"), line.value,
            std::string(line.name) + (line.value.empty() ? " is empty" : " contains only blanks"));
    }
}

// Splits a reference at its first two colons, as the library does.
std::vector<std::string_view> ReferenceParts(std::string_view reference) {
    std::vector<std::string_view> parts;
    std::size_t colon;
    while (parts.size() < 2 && (colon = reference.find(':')) != std::string_view::npos) {
        parts.push_back(TrimBlanks(reference.substr(0, colon)));
        reference.remove_prefix(colon + 1);
    }
    parts.push_back(TrimBlanks(reference));
    return parts;
}

void CheckReferencePart(std::string_view part, std::string_view what, std::size_t size,
                        const ConfigLine &line, Findings &findings) {
    const std::string name = "the " + std::string(what) + " of " + std::string(line.name);
    if (part.empty()) {
        findings.Add(Rule("reference"), part, name + " is empty");
    }
    CheckLength(part, name, size, findings);
}

void CheckReference(const ConfigLine &line, Findings &findings) {
    CheckCharacters(line, findings);
    const std::vector<std::string_view> parts = ReferenceParts(line.value);
    const std::string_view key = parts.back();
    if (parts.size() == 1) {
        const std::string_view text = line.name == kKeyTitleKey ? kKeyTitle : kKeyDesc;
        findings.Add(Rule("reference"), line.value,
                     std::string(line.name) + " without a colon has no effect: " +
                         std::string(text) + " takes its place",
                     "write SECTION:KEY or SOURCE:SECTION:KEY");
        return;
    }
    if (parts.size() == 3) {
        CheckReferencePart(parts[0], "source", TAVO_SERVICE_CONF_SOURCE_SIZE, line, findings);
    }
    CheckReferencePart(parts[parts.size() - 2], "section", TAVO_SERVICE_CONF_SECTION_SIZE, line,
                       findings);
    CheckReferencePart(key, "key", TAVO_SERVICE_CONF_KEY_SIZE, line, findings);
    const std::size_t colon = key.find(':');
    if (colon != std::string_view::npos) {
        findings.Add(Rule("reference"), key.substr(colon, 1),
                     "this colon is read as part of the key: a reference has three parts at most");
    }
}

void CheckPortForward(const ConfigLine &line, Findings &findings) {
    const std::string word = LowerCase(TrimBlanks(line.value));
    const bool forwards = LowerCase(TrimBlanks(line.value.substr(0, kForwardBytes))) == "yes";
    if (word == "no" || (word == "yes" && forwards)) {
        return;
    }
    std::string fix = "write yes or no";
    if (word == "true" || word == "1" || word == "on") {
        fix = "write yes";
    } else if (word == "false" || word == "0" || word == "off") {
        fix = "write no";
    }
    findings.Add(
        Rule("port-forward-value"), line.value,
        Quoted(line.value) + " is neither yes nor no and counts as " + (forwards ? "yes" : "no"),
        fix);
}

void CheckVersion(const ConfigLine &line, Findings &findings) {
    const std::string_view value = line.value;
    // Reads the number as the library does, which keeps 32 bits.
    const long number = std::strtol(std::string(value).c_str(), nullptr, 10);
    const auto kept = static_cast<std::int32_t>(number);
    if (!IsNumber(value) || kept != number) {
        findings.Add(
            Rule("version-number"), value,
            Quoted(value) + " is not a version number and is read as " + std::to_string(kept),
            kept > 0 ? "write " + std::to_string(kept) : "write 1");
    }
}

// The number of single-byte changes, insertions and removals between two words.
std::size_t EditDistance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

void CheckValue(const KeyRule &key, const ConfigLine &line, Findings &findings) {
    CheckQuotes(line, findings);
    CheckTrailingComment(line, findings);
    if (key.check != nullptr) {
        key.check(line, findings);
    }
    if (key.size != 0) {
        CheckCharacters(line, findings);
        CheckLength(line.value, line.name, key.size, findings);
    }
}

void CheckLength(std::string_view part, std::string_view what, std::size_t size,
                 Findings &findings) {
    const std::size_t limit = size - 1;
    if (part.size() > limit) {
        findings.Add(Rule("text-truncated"), part.substr(limit),
                     std::string(what) + " has " + std::to_string(part.size()) +
                         " bytes; it is cut to " + std::to_string(limit) + " and ends in " +
                         EndOfCut(part, limit));
    }
}

const std::array<KeyRule, kKeyCount> kKeyRules = {{
    {kKeyVersion, SectionKind::kGlobal, {}, "", 0, CheckVersion},
    {kKeySupportKey, SectionKind::kGlobal, {}, "", TAVO_SERVICE_CONF_KEY_SIZE, nullptr},
    {kKeyRunKey, SectionKind::kGlobal, {}, "", TAVO_SERVICE_CONF_KEY_SIZE, nullptr},
    {kKeyTitleKey, SectionKind::kService, {}, "", 0, CheckReference},
    {kKeyTitle, SectionKind::kService, Rule("missing-title"), "title=\"TEXT\"",
     TAVO_SERVICE_CONF_TEXT_SIZE, CheckNotEmpty},
    {kKeyDescKey, SectionKind::kService, {}, "", 0, CheckReference},
    {kKeyDesc, SectionKind::kService, Rule("missing-desc"), "desc=\"TEXT\"",
     TAVO_SERVICE_CONF_TEXT_SIZE, CheckNotEmpty},
    {kKeyDescExtra, SectionKind::kService, {}, "", TAVO_SERVICE_CONF_TEXT_SIZE, nullptr},
    {kKeyPortForward, SectionKind::kService, {}, "", 0, CheckPortForward},
    {kKeySrcPorts, SectionKind::kService, {}, "", 0, CheckPorts},
    {kKeyDstPorts, SectionKind::kService, Rule("missing-dst-ports"),
     "dst.ports=\"PORTS/PROTOCOLS\"", 0, CheckPorts},
}};

std::optional<std::size_t> FindKey(SectionKind section, std::string_view name) {
    for (std::size_t i = 0; i < kKeyRules.size(); ++i) {
        if (kKeyRules[i].section == section && kKeyRules[i].name == name) {
            return i;
        }
    }
    return std::nullopt;
}

std::string_view SimilarKey(SectionKind section, std::string_view name) {
    constexpr std::size_t kLongest = 20;
    constexpr std::size_t kFarthest = 2;
    if (name.size() > kLongest) {
        return {};
    }
    const std::string lower = LowerCase(name);
    std::string_view best;
    std::size_t least = kFarthest + 1;
    for (const KeyRule &key : kKeyRules) {
        const std::size_t distance = EditDistance(lower, key.name);
        if (key.section == section && distance < least && 2 * distance <= key.name.size()) {
            least = distance;
            best = key.name;
        }
    }
    return best;
}

}  // namespace tavo::tool
