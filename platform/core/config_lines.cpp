// A file is read by finding line ends and then looking at the ends of each line; only a line with a
// = is searched further. Line ends and brackets are found with memchr, so that what no one asked
// for (other sections, binary files, endless lines) passes by at the speed of memory.
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

ConfigLineKind ClassifyKeyValue(std::string_view trimmed, ConfigLine &line) {
    const std::size_t equals = trimmed.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        return ConfigLineKind::kOther;
    }
    line.name = TrimBlanks(trimmed.substr(0, equals));
    line.raw_value = TrimBlanks(trimmed.substr(equals + 1));
    line.value = WithoutQuotes(line.raw_value);
    return ConfigLineKind::kKeyValue;
}

// Sets the names and values that line.text holds and gives its kind.
ConfigLineKind Classify(ConfigLine &line) {
    line.name = line.raw_value = line.value = {};
    const std::string_view trimmed = TrimBlanks(line.text);
    if (trimmed.empty()) {
        return ConfigLineKind::kBlank;
    }
    if (trimmed.front() == '#' || trimmed.front() == ';') {
        return ConfigLineKind::kComment;
    }
    if (trimmed.front() == '[' && trimmed.back() == ']') {
        line.name = trimmed.substr(1, trimmed.size() - 2);
        return ConfigLineKind::kSection;
    }
    return ClassifyKeyValue(trimmed, line);
}

}  // namespace

std::string_view TrimBlanks(std::string_view text) {
    const char *begin = text.data();
    const char *end = begin + text.size();
    while (begin != end && IsBlank(*begin)) {
        ++begin;
    }
    while (end != begin && IsBlank(end[-1])) {
        --end;
    }
    return {begin, static_cast<std::size_t>(end - begin)};
}

ConfigLine ParseConfigLine(std::string_view text) {
    ConfigLine line;
    line.text = text;
    line.kind = HoldsNul(text) ? ConfigLineKind::kOther : Classify(line);
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
    if (offset_ == text_.size()) {
        return false;
    }
    const std::size_t newline = text_.find('\n', offset_);
    const bool ends = newline != std::string_view::npos;
    std::size_t text_end = ends ? newline : text_.size();
    line.begin = offset_;
    line.end = ends ? newline + 1 : text_.size();
    if (ends && text_end > offset_ && text_[text_end - 1] == '\r') {
        --text_end;
    }
    line.text = text_.substr(offset_, text_end - offset_);
    line.number = ++number_;
    line.name = line.raw_value = line.value = {};
    line.kind = holds_nul_ && HoldsNul(line.text) ? ConfigLineKind::kOther : Classify(line);
    offset_ = line.end;
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
