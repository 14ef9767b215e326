// getopt_long reads the words in order, with the options of servicetool up to the command, and with
// those of the command after it. Three rules are different: option names cannot be abbreviated,
// because a later version may add an option with the same prefix; a word that looks like an option
// is not the value of the previous option, because the value was more likely forgotten; and -5 is a
// number, not an option.
#include <getopt.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "commands/commands.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// Results of getopt_long: letters, these, and kFirstOption plus the index in known_.
constexpr int kOperandCode = 1;
constexpr int kUnknownCode = '?';
constexpr int kNoValueCode = ':';
constexpr int kFirstOption = 256;

constexpr std::string_view kEndOfOptions = "--";

bool LooksLikeAnOption(std::string_view word) {
    return word.size() > 1 && word.front() == '-';
}

bool IsNegativeNumber(std::string_view word) {
    return word.size() > 1 && word[1] >= '0' && word[1] <= '9';
}

bool TakesMany(const Operand &operand) {
    return operand.count == Count::kAny || operand.count == Count::kSome;
}

bool IsNeeded(const Operand &operand) {
    return operand.count == Count::kOne || operand.count == Count::kSome;
}

class Reader {
  public:
    Reader(int argc, char **argv) : argc_(argc), argv_(argv) { KnowOptions(); }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    CommandLine Read();

  private:
    void KnowOptions();
    const Option *OptionOf(int code) const;
    void ReadCode(int code);
    void ReadOption(int code);
    bool ReadValue(const Option &option);
    void ReadOperand(const std::string &word);
    void ReadCommand(const std::string &word);
    void RefuseOption();
    void RefuseWithoutValue(const Option &option);
    void Refuse(std::string message, std::string fix = {});
    void CheckWhole();
    bool TakesFiles() const;

    int argc_;
    char **argv_;
    std::vector<const Option *> known_;
    std::vector<option> table_;  // known_ in the form for getopt_long
    CommandLine line_;
    const Option *open_ = nullptr;  // an option that takes further words as values
    int word_ = 0;                  // index of the current word
    int read_ = 0;                  // index of a word; its remaining letters are ignored
    int unread_ = 0;                // index of the word that is not the value of an option
    bool ended_ = false;            // the options have ended
};

void Reader::KnowOptions() {
    known_.clear();
    for (const Option &option : line_.command == nullptr ? OwnOptions() : CommonOptions()) {
        known_.push_back(&option);
    }
    if (line_.command != nullptr) {
        for (const Option &option : line_.command->options) {
            known_.push_back(&option);
        }
    }
    table_.clear();
    int code = kFirstOption;
    for (const Option *known : known_) {
        const int has_value = known->value.name.empty() ? no_argument : required_argument;
        table_.push_back({known->name + kEndOfOptions.size(), has_value, nullptr, code++});
    }
    table_.push_back({});
}

// The option that getopt_long found, if it is written in full.
const Option *Reader::OptionOf(int code) const {
    if (code < kFirstOption) {
        const auto known = std::find_if(known_.begin(), known_.end(),
                                        [code](const Option *one) { return one->letter == code; });
        return known == known_.end() ? nullptr : *known;
    }
    const Option *known = known_[static_cast<std::size_t>(code - kFirstOption)];
    const std::string_view word = argv_[word_];
    return word.substr(0, word.find('=')) == known->name ? known : nullptr;
}

CommandLine Reader::Read() {
    opterr = 0;
    optind = 0;
    while (!ended_) {
        word_ = std::max(optind, 1);
        const int code = getopt_long(argc_, argv_, "-:hv", table_.data(), nullptr);
        if (code == -1) {
            break;
        }
        if (word_ != read_) {
            ReadCode(code);
        }
    }
    for (; optind < argc_; ++optind) {
        ReadOperand(argv_[optind]);
    }
    CheckWhole();
    return std::move(line_);
}

void Reader::ReadCode(int code) {
    if (code == kOperandCode) {
        ReadOperand(optarg);
    } else if (code == kUnknownCode && IsNegativeNumber(argv_[word_])) {
        read_ = word_;
        ReadOperand(argv_[word_]);
    } else {
        ReadOption(code);
    }
}

void Reader::ReadOption(int code) {
    const bool has_no_value = code == kNoValueCode;
    const Option *option = code == kUnknownCode ? nullptr : OptionOf(has_no_value ? optopt : code);
    if (option == nullptr) {
        if (code != kUnknownCode && optarg != nullptr && optarg == argv_[optind - 1]) {
            --optind;  // getopt_long took it as the value of an abbreviated option
        }
        RefuseOption();
    } else if (has_no_value) {
        RefuseWithoutValue(*option);
    } else if (option->value.name.empty()) {
        line_.arguments.Add(*option, "");
    } else if (ReadValue(*option)) {
        line_.arguments.Add(*option, optarg);
        open_ = option->repeat == Repeat::kWords ? option : nullptr;
        return;
    }
    open_ = nullptr;
}

// The value is part of the option's word, the next word, or the word after "--".
bool Reader::ReadValue(const Option &option) {
    if (optarg != argv_[optind - 1]) {
        return true;
    }
    if (optarg == kEndOfOptions) {
        ended_ = true;
        if (optind == argc_) {
            RefuseWithoutValue(option);
            return false;
        }
        optarg = argv_[optind++];
    } else if (LooksLikeAnOption(optarg)) {
        --optind;
        RefuseWithoutValue(option);
        return false;
    }
    return true;
}

void Reader::ReadOperand(const std::string &word) {
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
        (!operands.empty() && TakesMany(operands.back()))) {
        line_.arguments.Add(word);
    } else {
        Refuse("unexpected argument " + Quoted(word));
    }
}

void Reader::ReadCommand(const std::string &word) {
    const auto commands = Commands();
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [&word](const Command *one) { return one->name == word; });
    if (command == commands.end()) {
        Refuse("unknown command " + Quoted(word));
        return;
    }
    line_.command = *command;
    line_.arguments.SetCommand(**command);
    KnowOptions();
}

void Reader::RefuseOption() {
    read_ = word_;
    const std::string word = argv_[word_];
    if (word_ == unread_) {
        line_.problem.fix = "write " + std::string(argv_[word_ - 1]) + '=' + word;
        return;
    }
    const std::string name = word.substr(0, word.find('='));
    const auto is_known = [&name](const Option *known) { return known->name == name; };
    if (std::any_of(known_.begin(), known_.end(), is_known)) {
        Refuse(name + " takes no value");
        return;
    }
    struct stat status {};
    const bool is_file = TakesFiles() && lstat(word.c_str(), &status) == 0;
    Refuse("unknown option " + Shortened(word), is_file ? "write -- " + word : "");
}

void Reader::RefuseWithoutValue(const Option &option) {
    if (line_.problem.message.empty()) {
        unread_ = optind;
    }
    Refuse(std::string(option.name) + " needs a value");
}

// Keeps the first problem only. If `fix` is empty, refers to the help.
void Reader::Refuse(std::string message, std::string fix) {
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
void Reader::CheckWhole() {
    if (line_.command == nullptr) {
        Refuse("a command is missing");
        return;
    }
    if (!line_.problem.message.empty()) {
        return;
    }
    const Command &command = *line_.command;
    const std::size_t given = line_.arguments.Operands().size();
    if (given < command.operands.size() && IsNeeded(command.operands[given])) {
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
bool Reader::TakesFiles() const {
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

}  // namespace

CommandLine ReadCommandLine(int argc, char **argv) {
    return Reader(argc, argv).Read();
}

}  // namespace tavo::tool
