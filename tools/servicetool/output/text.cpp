// UTF-8 is decoded by libunistring and not by the C library, so that the result does not depend on
// the locale. Only the width of a character comes from libc, in the locale C.UTF-8.
#include "output/text.h"

#include <locale.h>
#include <unictype.h>
#include <unistr.h>
#include <wchar.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "config_lines.h"

namespace tavo::tool {
namespace {

constexpr std::size_t kMessageBytes = 60;
constexpr char kByteEscape[] = "\\x%02x";

// "\\x1b": a code as `format` prints it.
std::string HexEscape(const char *format, char32_t code) {
    char escape[sizeof("\\U0010ffff")];
    std::snprintf(escape, sizeof(escape), format, static_cast<unsigned int>(code));
    return escape;
}

// The escaped form of a character that is not printed as it is.
std::string EscapeOf(const Character &character) {
    // Characters with an escape of their own, and its letters.
    constexpr std::u32string_view kNamed = U"\n\t\r\\";
    constexpr std::string_view kLetters = "ntr\\";
    if (const std::size_t at = kNamed.find(character.code); at != std::u32string_view::npos) {
        return {'\\', kLetters[at]};
    }
    if (!character.valid || character.code < 0x80) {
        return HexEscape(kByteEscape, character.code);
    }
    return HexEscape(character.code > 0xFFFF ? "\\U%08x" : "\\u%04x", character.code);
}

// Printable ASCII characters have one column each. Most texts contain no others and are measured
// without libc.
bool IsPrintableAscii(char c) {
    return c >= ' ' && c <= '~';
}

// The longest prefix with at most `most` columns.
struct Prefix {
    std::size_t size = 0;
    std::size_t columns = 0;
};

Prefix PrefixOf(std::string_view escaped, std::size_t most) {
    // If the locale is missing, uselocale(0) changes nothing and each character has one column.
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t previous = uselocale(utf8);
    Prefix prefix;
    while (prefix.size < escaped.size()) {
        const Character character = FirstCharacter(escaped.substr(prefix.size));
        const int width = wcwidth(static_cast<wchar_t>(character.code));
        const std::size_t columns =
            prefix.columns + (width < 0 ? 1 : static_cast<std::size_t>(width));
        if (columns > most) {
            break;
        }
        prefix = {prefix.size + character.size, columns};
    }
    uselocale(previous);
    return prefix;
}

// The text with each character replaced by escape(character), unless that is empty.
template <typename Escape>
std::string Converted(std::string_view text, Escape escape) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const Character character = FirstCharacter(text);
        const std::string escaped = escape(character);
        out += escaped.empty() ? text.substr(0, character.size) : escaped;
        text.remove_prefix(character.size);
    }
    return out;
}

}  // namespace

Character FirstCharacter(std::string_view text) {
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(text.data());
    ucs4_t code = 0;
    const int size = u8_mbtoucr(&code, bytes, text.size());
    return size > 0 ? Character{static_cast<std::size_t>(size), code, true}
                    : Character{1, bytes[0], false};
}

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The joiners U+200C and U+200D are kept, because Persian words and emoji need them. Variation
// selectors are kept, because they only select the form of a character.
bool IsControl(char32_t code) {
    const bool joiner = code == 0x200C || code == 0x200D;
    const bool selector = code >= 0xFE00 && code <= 0xFE0F;
    const bool annotation = code >= 0xFFF9 && code <= 0xFFFB;  // marks the text between the lines
    constexpr std::uint32_t kControls =
        UC_CATEGORY_MASK_Cc | UC_CATEGORY_MASK_Zl | UC_CATEGORY_MASK_Zp;
    return annotation || uc_is_general_category_withtable(code, kControls) ||
           (uc_is_property_default_ignorable_code_point(code) && !joiner && !selector);
}

bool IsPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return IsPrintableAscii(c) && c != '\\'; });
}

std::string Escaped(std::string_view text) {
    if (IsPlain(text)) {
        return std::string(text);
    }
    return Converted(text, [](const Character &character) {
        const char32_t code = character.code;
        const bool kept = character.valid && code != '\\' && !IsControl(code);
        return kept ? "" : EscapeOf(character);
    });
}

std::size_t DisplayWidth(std::string_view escaped) {
    const bool plain = std::all_of(escaped.begin(), escaped.end(), IsPrintableAscii);
    return plain ? escaped.size() : PrefixOf(escaped, std::string_view::npos).columns;
}

std::string_view FirstColumns(std::string_view escaped, std::size_t width) {
    return escaped.substr(0, PrefixOf(escaped, width).size);
}

std::string Shortened(std::string_view text) {
    if (text.size() <= kMessageBytes) {
        return std::string(text);
    }
    std::size_t end = kMessageBytes;
    while (end > 0 && IsContinuation(text[end])) {
        --end;
    }
    return std::string(text.substr(0, end)).append(kCut);
}

std::string Quoted(std::string_view text) {
    return '"' + Shortened(text) + '"';
}

std::string Utf8Text(std::string_view text) {
    return Converted(text, [](const Character &character) {
        return character.valid ? "" : HexEscape(kByteEscape, character.code);
    });
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), Lowered);
    return lower;
}

std::string LowerFirst(std::string_view message) {
    std::string text(message.substr(0, message.size() - (message.ends_with('.') ? 1 : 0)));
    const bool acronym = text.size() > 1 && Lowered(text[1]) != text[1];
    if (!text.empty() && !acronym) {
        text[0] = Lowered(text[0]);
    }
    return text;
}

std::string Counted(std::size_t n, std::string_view thing) {
    return std::to_string(n) + ' ' + std::string(thing) + (n == 1 ? "" : "s");
}

std::string Replaced(std::string text, std::string_view from, std::string_view to) {
    std::size_t at = from.empty() ? std::string::npos : text.find(from);
    while (at != std::string::npos) {
        text.replace(at, from.size(), to);
        at = text.find(from, at + to.size());
    }
    return text;
}

bool Holds(const std::vector<std::string> &texts, std::string_view text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

}  // namespace tavo::tool
