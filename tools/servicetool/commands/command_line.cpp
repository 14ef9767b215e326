// Reads the words in order, with the options of servicetool up to the command, and with those of
// the command after it. getopt_long is not used, because three rules are different: option names
// cannot be abbreviated, because a later version may add an option with the same prefix; a word
// that looks like an option is not the value of the previous option, because the value was more
// likely forgotten; and -5 is a number, not an option.
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr std::string_view kEndOfOptions = "--";

bool LooksLikeAnOption(std::string_view word) {
    return word.size() > 1 && word.front() == '-';
}

bool IsNegativeNumber(std::string_view word) {
    return LooksLikeAnOption(word) && word[1] >= '0' && word[1] <= '9';
}

class Reader {
  public:
    Reader(int argc, char **argv) : words_(argv, argv + argc), options_(OptionsOf(nullptr)) {}

    CommandLine Read() {
        while (next_ < words_.size()) {
            const std::string &word = words_[next_++];
            if (ended_ || !LooksLikeAnOption(word) || IsNegativeNumber(word)) {
                ReadOperand(word);
            } else if (word == kEndOfOptions) {
                ended_ = true;
            } else if (word.starts_with("--")) {
                ReadOption(word);
            } else {
                ReadLetters(word);
            }
        }
        CheckWhole();
        return std::move(line_);
    }

  private:
    // --NAME or --NAME=VALUE.
    void ReadOption(const std::string &word) {
        const std::size_t equals = word.find('=');
        const bool with_value = equals != std::string::npos;
        const std::string name = word.substr(0, equals);
        const Option *option = FindOption([&](const Option &one) { return one.name == name; });
        if (option == nullptr || (with_value && option->value.name.empty())) {
            RefuseOption(word);
            return;
        }
        open_ = option->repeat == Repeat::kWords ? option : nullptr;
        if (with_value || option->value.name.empty()) {
            line_.arguments.Add(*option, with_value ? word.substr(equals + 1) : "");
        } else {
            ReadValue(*option);
        }
    }

    // Options with letters have no values. Letters after an unknown one are ignored.
    void ReadLetters(const std::string &word) {
        for (const char letter : word.substr(1)) {
            const Option *option =
                FindOption([=](const Option &one) { return one.letter == letter; });
            if (option == nullptr) {
                RefuseOption(word);
                return;
            }
            line_.arguments.Add(*option, "");
            open_ = nullptr;
        }
    }

    // The value is the next word, or the word after "--".
    void ReadValue(const Option &option) {
        if (next_ < words_.size() && words_[next_] == kEndOfOptions) {
            ended_ = true;
            ++next_;
        }
        if (next_ == words_.size() || (!ended_ && LooksLikeAnOption(words_[next_]))) {
            open_ = nullptr;
            unread_ = line_.problem.message.empty() ? next_ : unread_;
            Refuse(std::string(option.name) + " needs a value");
            return;
        }
        line_.arguments.Add(option, words_[next_++]);
    }

    void ReadOperand(const std::string &word) {
        if (line_.command == nullptr) {
            ReadCommand(word);
            return;
        }
        if (open_ != nullptr) {
            line_.arguments.Add(*open_, word);
            return;
        }
        const std::span<const Operand> operands = line_.command->operands;
        if (line_.arguments.Operands().size() < operands.size() ||
            (!operands.empty() && operands.back().TakesMany())) {
            line_.arguments.Add(word);
        } else {
            Refuse("unexpected argument " + Quoted(word));
        }
    }

    void ReadCommand(const std::string &word) {
        const auto commands = Commands();
        const auto command =
            std::find_if(commands.begin(), commands.end(),
                         [&word](const Command *one) { return one->name == word; });
        if (command == commands.end()) {
            Refuse("unknown command " + Quoted(word));
            return;
        }
        line_.command = *command;
        line_.arguments.SetCommand(**command);
        options_ = OptionsOf(*command);
    }

    void RefuseOption(const std::string &word) {
        const bool takes_files = TakesFiles();
        open_ = nullptr;
        if (next_ - 1 == unread_) {
            line_.problem.fix = "write " + words_[unread_ - 1] + '=' + word;
            return;
        }
        const std::string name = word.substr(0, word.find('='));
        if (FindOption([&](const Option &one) { return one.name == name; }) != nullptr) {
            Refuse(name + " takes no value");
            return;
        }
        struct stat status {};
        const bool is_file = takes_files && lstat(word.c_str(), &status) == 0;
        Refuse("unknown option " + Shortened(word), is_file ? "write -- " + word : "");
    }

    // Keeps the first problem only. If `fix` is empty, refers to the help.
    void Refuse(std::string message, std::string fix = {}) {
        if (!line_.problem.message.empty()) {
            return;
        }
        if (fix.empty()) {
            const std::string command(line_.command == nullptr ? "" : line_.command->name);
            fix = "see servicetool " + command + (command.empty() ? "" : " ") + "--help";
        }
        line_.problem = {std::move(message), std::move(fix)};
    }

    // Checks the command line as a whole.
    void CheckWhole() {
        if (line_.command == nullptr) {
            Refuse("a command is missing");
            return;
        }
        if (!line_.problem.message.empty()) {
            return;
        }
        const Command &command = *line_.command;
        const std::size_t given = line_.arguments.Operands().size();
        if (given < command.operands.size() && command.operands[given].IsRequired()) {
            Refuse(std::string(command.operands[given].value.name) + " is required");
            return;
        }
        for (const Option &option : command.options) {
            if (!option.excludes.empty() && line_.arguments.Has(option.name) &&
                line_.arguments.Has(option.excludes)) {
                Refuse(std::string(option.name) + " and " + std::string(option.excludes) +
                       " exclude each other");
            }
        }
        if (command.check != nullptr) {
            UsageProblem problem = command.check(line_.arguments);
            if (!problem.message.empty()) {
                Refuse(std::move(problem.message), std::move(problem.fix));
            }
        }
    }

    // Whether the next word can be a file.
    bool TakesFiles() const {
        if (line_.command == nullptr) {
            return false;
        }
        const auto is_files = [](const Value &value) {
            return value.completion == Completion::kFiles ||
                   value.completion == Completion::kServicesAndFiles;
        };
        const std::span<const Operand> operands = line_.command->operands;
        return (open_ != nullptr && is_files(open_->value)) ||
               std::any_of(operands.begin(), operands.end(),
                           [&](const Operand &operand) { return is_files(operand.value); });
    }

    template <typename Predicate>
    const Option *FindOption(Predicate is_meant) const {
        const auto found = std::find_if(options_.begin(), options_.end(), is_meant);
        return found == options_.end() ? nullptr : &*found;
    }

    std::vector<std::string> words_;
    std::vector<Option> options_;  // of the command, if any
    CommandLine line_;
    const Option *open_ = nullptr;  // an option that takes further words as values
    std::size_t next_ = 1;          // index of the next word
    std::size_t unread_ = 0;        // index of the word that is not the value of an option
    bool ended_ = false;            // the options have ended
};

}  // namespace

CommandLine ReadCommandLine(int argc, char **argv) {
    return Reader(argc, argv).Read();
}

}  // namespace tavo::tool
