// The reader finds line ends and then examines the ends of each line; only lines with a = are
// searched further. Line ends and brackets are found with memchr, so that irrelevant data (other
// sections, binary files, endless lines) is skipped at memory speed.
#include "config_lines.h"

namespace tavo {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool HoldsNul(std::string_view text) {
    return text.find('\0') != std::string_view::npos;
}

std::string_view WithoutQuotes(std::string_view value) {
    return IsQuoted(value) ? value.substr(1, value.size() - 2) : value;
}

// Sets the names and values of line.text, or clears them, and returns its kind.
inline ConfigLineKind Classify(ConfigLine &line) {
    const std::string_view trimmed = TrimBlanks(line.text);
    const char first = trimmed.empty() ? '\0' : trimmed.front();
    const bool comment = first == '#' || first == ';';
    if (first == '[' && trimmed.back() == ']') {
        line.name = trimmed.substr(1, trimmed.size() - 2);
        line.raw_value = line.value = {};
        return ConfigLineKind::kSection;
    }
    const std::size_t equals = comment ? 0 : trimmed.find('=');
    if (equals != 0 && equals != std::string_view::npos) {
        line.name = TrimEnd({trimmed.data(), equals});
        line.raw_value = TrimStart({trimmed.data() + equals + 1, trimmed.size() - equals - 1});
        line.value = WithoutQuotes(line.raw_value);
        return ConfigLineKind::kKeyValue;
    }
    line.name = line.raw_value = line.value = {};
    return trimmed.empty() ? ConfigLineKind::kBlank
           : comment       ? ConfigLineKind::kComment
                           : ConfigLineKind::kOther;
}

// The same for a line of a text that may contain a NUL byte: a line with a NUL byte is not text.
ConfigLineKind ClassifyUnlessNul(ConfigLine &line, bool text_holds_nul) {
    if (text_holds_nul && HoldsNul(line.text)) {
        line.name = line.raw_value = line.value = {};
        return ConfigLineKind::kOther;
    }
    return Classify(line);
}

}  // namespace

ConfigLine ParseConfigLine(std::string_view text) {
    ConfigLine line;
    line.text = text;
    line.kind = ClassifyUnlessNul(line, true);
    return line;
}

ConfigLineReader::ConfigLineReader(std::string_view text)
    : ConfigLineReader(text, HoldsNul(text)) {}

ConfigLineReader::ConfigLineReader(std::string_view text, bool holds_nul)
    : text_(text),
      offset_(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0),
      holds_nul_(holds_nul) {}

ConfigLineReader ConfigLineReader::OfLines(std::string_view lines, bool holds_nul) {
    ConfigLineReader reader(lines, holds_nul);
    reader.offset_ = 0;
    return reader;
}

bool ConfigLineReader::Next(ConfigLine &line) {
    const std::string_view rest = text_.substr(offset_);
    if (rest.empty()) {
        return false;
    }
    const std::size_t newline = rest.find('\n');
    const bool ends = newline != std::string_view::npos;
    const std::string_view text = ends ? rest.substr(0, newline) : rest;
    line.begin = offset_;
    offset_ += ends ? newline + 1 : rest.size();
    line.end = offset_;
    line.text = ends && text.ends_with('\r') ? text.substr(0, text.size() - 1) : text;
    line.number = ++number_;
    line.kind = ClassifyUnlessNul(line, holds_nul_);
    return true;
}

bool ConfigLineReader::NextSection(ConfigLine &line) {
    std::size_t from = offset_;
    for (;;) {
        const std::size_t bracket = text_.find('[', from);
        if (bracket == std::string_view::npos) {
            offset_ = text_.size();
            return false;
        }
        from = bracket + 1;
        if (!MoveToLineOf(bracket)) {
            continue;
        }
        ConfigLine found;
        Next(found);
        if (found.kind == ConfigLineKind::kSection) {
            line = found;
            return true;
        }
        from = offset_;
    }
}

bool ConfigLineReader::MoveToLineOf(std::size_t position) {
    std::size_t begin = position;
    while (begin > offset_ && text_[begin - 1] != '\n' && IsBlank(text_[begin - 1])) {
        --begin;
    }
    if (begin > offset_ && text_[begin - 1] != '\n') {
        return false;
    }
    offset_ = begin;
    return true;
}

}  // namespace tavo
