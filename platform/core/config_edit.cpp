// Setting keys takes two passes over the text. The first one finds the effective line of each
// wanted key (the last line with that key), the position for new keys, and how the file ends; the
// second one copies the text and changes it at these places. Both are linear in the size of the
// text and the table.
#include "config_edit.h"

#include "config_lines.h"
#include "text_index.h"

namespace tavo {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;

struct WantedKey {
    std::string_view key;
    std::string_view value;
    std::size_t line;  // offset of the effective line, kNowhere for a new key
    bool kept;         // whether that line stays unchanged
};

// The wanted keys in table order, with lookup by name.
class WantedKeys {
  public:
    // Returns false when out of memory.
    bool Fill(const TLIBCSzHash *table) {
        const int count = TLIBCSzHashCount(table);
        keys_.reset(static_cast<WantedKey *>(
            std::calloc(static_cast<std::size_t>(count) + 1, sizeof(WantedKey))));
        if (keys_ == nullptr) {
            return false;
        }
        for (int i = 0; i < count; ++i) {
            const char *key = nullptr;
            const char *value = nullptr;
            TLIBCSzHashEnum(table, i, &key, &value);
            keys_.get()[i] = {key, value, kNowhere, false};
            if (index_.Add(key) == TextIndex::kNone) {
                return false;
            }
        }
        return true;
    }

    // Null if the key is not wanted.
    WantedKey *Find(std::string_view key) const {
        const std::size_t number = index_.Find(key);
        return number == TextIndex::kNone ? nullptr : keys_.get() + number;
    }

    const WantedKey *begin() const { return keys_.get(); }
    const WantedKey *end() const { return keys_.get() + index_.Count(); }

  private:
    MallocPtr<WantedKey> keys_;
    TextIndex index_;
};

// The result of the first pass.
struct Layout {
    std::size_t new_keys_at = kNowhere;  // after the last significant line of the section
    std::string_view line_end = "\n";    // the line end of the first line
    bool empty = true;
    bool ends_in_blank_line = false;
};

bool IsBlankOrComment(const ConfigLine &line) {
    return line.kind == ConfigLineKind::kBlank || line.kind == ConfigLineKind::kComment;
}

// LF, CRLF, or nothing if the last line has no line end.
std::string_view LineEndOf(const ConfigLine &line) {
    const char *after = line.text.data() + line.text.size();
    return {after, line.end - line.begin - line.text.size()};
}

// Whether the line stays unchanged when its key is set to the value. A quoted value is the exact
// text to write: if ""x"" were treated as equal to "x", a change between the two texts would be
// lost. Any other value may have been read from this line, without its quotes.
bool IsKept(const ConfigLine &line, std::string_view value, KeptLines kept) {
    const bool read = kept == KeptLines::kSameValue && !IsQuoted(value) && line.value == value;
    return read || line.raw_value == TrimBlanks(value);
}

Layout FindLayout(std::string_view text, std::string_view section, const WantedKeys &wanted,
                  KeptLines kept) {
    Layout layout;
    ConfigLineReader lines(text);
    ConfigLine line;
    bool inside = false;
    while (lines.Next(line)) {
        if (layout.empty && !LineEndOf(line).empty()) {
            layout.line_end = LineEndOf(line);
        }
        layout.empty = false;
        layout.ends_in_blank_line = line.kind == ConfigLineKind::kBlank;
        if (line.kind == ConfigLineKind::kSection) {
            inside = line.name == section;
        }
        if (!inside || IsBlankOrComment(line)) {
            continue;
        }
        layout.new_keys_at = line.end;
        WantedKey *key = line.kind == ConfigLineKind::kKeyValue ? wanted.Find(line.name) : nullptr;
        if (key != nullptr) {
            key->line = line.begin;
            key->kept = IsKept(line, key->value, kept);
        }
    }
    return layout;
}

void AppendKeyValue(const WantedKey &key, std::string_view line_end, TextBuffer &out) {
    out.Append(key.key);
    out.Append("=");
    out.Append(key.value);
    out.Append(line_end);
}

// New keys get lines of their own, even if the last line of the text has no line end.
void AppendNewKeys(const WantedKeys &wanted, std::string_view line_end, TextBuffer &out) {
    for (const WantedKey &key : wanted) {
        if (key.line == kNowhere) {
            if (!out.View().ends_with('\n')) {
                out.Append(line_end);
            }
            AppendKeyValue(key, line_end, out);
        }
    }
}

// Copies a key=value line of the section, with the changes for the wanted keys.
void AppendEditedLine(const ConfigLine &line, std::string_view spelling, const WantedKeys &wanted,
                      OtherKeys others, TextBuffer &out) {
    const WantedKey *key = wanted.Find(line.name);
    if (key == nullptr && others == OtherKeys::kTakeOut) {
        return;
    }
    const bool counts = key != nullptr && key->line == line.begin;
    if (!counts || key->kept) {
        out.Append(spelling);
    } else {
        AppendKeyValue(*key, LineEndOf(line), out);
    }
}

void ChangeSection(std::string_view text, std::string_view section, const WantedKeys &wanted,
                   OtherKeys others, const Layout &layout, TextBuffer &out) {
    ConfigLineReader lines(text);
    ConfigLine line;
    std::size_t copied = 0;
    bool inside = false;
    while (lines.Next(line)) {
        if (line.kind == ConfigLineKind::kSection) {
            inside = line.name == section;
        }
        if (inside && line.kind == ConfigLineKind::kKeyValue) {
            out.Append(text.substr(copied, line.begin - copied));
            AppendEditedLine(line, text.substr(line.begin, line.end - line.begin), wanted, others,
                             out);
            copied = line.end;
        }
        if (line.end == layout.new_keys_at) {
            out.Append(text.substr(copied, line.end - copied));
            AppendNewKeys(wanted, layout.line_end, out);
            copied = line.end;
        }
    }
    out.Append(text.substr(copied));
}

void AppendSection(std::string_view text, std::string_view section, const WantedKeys &wanted,
                   const Layout &layout, TextBuffer &out) {
    out.Append(text);
    if (!layout.empty && !text.ends_with('\n')) {
        out.Append(layout.line_end);
    }
    if (!layout.empty && !layout.ends_in_blank_line) {
        out.Append(layout.line_end);
    }
    out.Append("[");
    out.Append(section);
    out.Append("]");
    out.Append(layout.line_end);
    AppendNewKeys(wanted, layout.line_end, out);
}

// Whether `composed` is exactly one line of that kind and name.
bool ReadsBack(std::string_view composed, ConfigLineKind kind, std::string_view name) {
    const ConfigLine line = ParseConfigLine(composed);
    return composed.find('\n') == std::string_view::npos && line.kind == kind && line.name == name;
}

bool CheckReadsBack(const TextBuffer &composed, ConfigLineKind kind, std::string_view name) {
    if (composed.Failed()) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    return ReadsBack(composed.View(), kind, name) || TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
}

// Checks the lines that will be written.
bool CheckNewLines(const WantedKeys &wanted) {
    TextBuffer composed;
    for (const WantedKey &key : wanted) {
        composed.Clear();
        AppendKeyValue(key, {}, composed);
        if (!key.kept && !CheckReadsBack(composed, ConfigLineKind::kKeyValue, key.key)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool CheckSectionName(std::string_view section) {
    TextBuffer composed;
    composed.Append("[");
    composed.Append(section);
    composed.Append("]");
    return CheckReadsBack(composed, ConfigLineKind::kSection, section);
}

bool SetSectionKeys(std::string_view text, std::string_view section, const TLIBCSzHash *keys,
                    OtherKeys others, MissingSection missing, KeptLines kept, TextBuffer &out) {
    WantedKeys wanted;
    if (!wanted.Fill(keys)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    const Layout layout = FindLayout(text, section, wanted, kept);
    const bool there = layout.new_keys_at != kNowhere;
    if (!there && missing == MissingSection::kRefuse) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    if (!CheckNewLines(wanted)) {
        return false;
    }
    if (there) {
        ChangeSection(text, section, wanted, others, layout, out);
    } else {
        AppendSection(text, section, wanted, layout, out);
    }
    return !out.Failed() || TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
}

// Of each block, the lines up to the last significant one are removed, and the blank lines directly
// after it. Later comments, and what follows them, are kept: `kept_from` moves past them only when
// another significant line is found.
bool TakeOutSection(std::string_view text, std::string_view section, TextBuffer &out) {
    ConfigLineReader lines(text);
    ConfigLine line;
    std::size_t kept_from = 0;
    bool inside = false;
    while (lines.Next(line)) {
        if (line.kind == ConfigLineKind::kSection) {
            inside = line.name == section;
            if (inside) {
                out.Append(text.substr(kept_from, line.begin - kept_from));
            }
        }
        const bool right_after = line.kind == ConfigLineKind::kBlank && kept_from == line.begin;
        if (inside && (right_after || !IsBlankOrComment(line))) {
            kept_from = line.end;
        }
    }
    out.Append(text.substr(kept_from));
    return !out.Failed() || TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
}

}  // namespace tavo
