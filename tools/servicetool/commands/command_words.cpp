#include "commands/command_words.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "ports/port_pieces.h"

namespace tavo::tool {
namespace {

constexpr char kGuard = '\1';
constexpr std::string_view kEndOfOptions = "--";

bool LooksLikeAnOption(const std::string &word) {
    return word.size() > 1 && word.front() == '-';
}

std::string Guarded(const std::string &word, bool options_ended) {
    const bool special = word == "++" || word.starts_with('[') || word.starts_with(kGuard) ||
                         (options_ended && word.starts_with('-'));
    return special ? kGuard + word : word;
}

class Reader {
  public:
    Reader(const std::vector<std::string> &words,
           const std::function<bool(const std::string &)> &takes_value)
        : words_(words), takes_value_(takes_value) {}

    CommandWords Read();

  private:
    void ReadOption(std::size_t at);
    void ReadOptionAlone(std::size_t at);

    const std::vector<std::string> &words_;
    const std::function<bool(const std::string &)> &takes_value_;
    CommandWords result_;
};

CommandWords Reader::Read() {
    bool options_ended = false;
    for (std::size_t i = 0; i < words_.size(); ++i) {
        const std::string &word = words_[i];
        if (word == kEndOfOptions && !options_ended) {
            options_ended = true;
        } else if (LooksLikeAnOption(word) && !options_ended) {
            ReadOption(i);
        } else {
            result_.guarded.push_back(Guarded(word, options_ended));
        }
    }
    return std::move(result_);
}

void Reader::ReadOption(std::size_t at) {
    const std::string &word = words_[at];
    result_.options.push_back(word);
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (!takes_value_(name)) {
        result_.guarded.push_back(word);
    } else if (equals == std::string::npos) {
        ReadOptionAlone(at);
    } else {
        result_.guarded.insert(result_.guarded.end(), {name, kGuard + word.substr(equals + 1)});
    }
}

// The value is the next word, be it behind "--". An option that lacks it is left out, lest CLI11
// helps itself.
void Reader::ReadOptionAlone(std::size_t at) {
    const bool ends = at + 1 < words_.size() && words_[at + 1] == kEndOfOptions;
    const std::size_t value = at + (ends ? 2 : 1);
    if (value < words_.size() && (ends || !LooksLikeAnOption(words_[value]))) {
        result_.guarded.push_back(words_[at]);
    } else if (result_.lacks_value.empty()) {
        result_.lacks_value = words_[at];
        result_.next = value < words_.size() ? words_[value] : "";
    }
}

}  // namespace

CommandWords ReadWords(const std::vector<std::string> &words,
                       const std::function<bool(const std::string &)> &takes_value) {
    return Reader(words, takes_value).Read();
}

std::string Unguarded(const std::string &word) {
    return word.starts_with(kGuard) ? word.substr(1) : word;
}

std::vector<std::string> ListItems(const std::vector<std::string> &words) {
    std::vector<std::string> items;
    for (const std::string &word : words) {
        ForEachPiece(word, [&items](std::string_view item) { items.emplace_back(item); });
    }
    return items;
}

std::optional<unsigned int> NumberUpTo(unsigned int most, const std::string &text) {
    unsigned int number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < 1 || number > most) {
        return std::nullopt;
    }
    return number;
}

}  // namespace tavo::tool
