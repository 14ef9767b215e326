// Checks that help, manual pages and completions describe the options, rules and keys of the
// program.
#include <gmock/gmock.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "lint/lint_rules.h"
#include "output/text.h"
#include "patterns.h"
#include "servicetool_run.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;

const std::string kSource = SERVICETOOL_SOURCE;

std::set<std::string> Matches(const std::string &text, const char *pattern) {
    std::set<std::string> found;
    for (const Groups &match : AllMatches(text, pattern)) {
        found.insert(match[1]);
    }
    return found;
}

// The long options in a help text, without their hyphens.
std::set<std::string> OptionsOfHelp(const std::vector<std::string> &command) {
    std::vector<std::string> arguments = command;
    arguments.push_back("--help");
    return Matches(ServiceTool(arguments).out, "\n  [^ ]*--([a-z-]+) ");
}

// The names of all commands and all values of their options.
std::set<std::string> WordsOfTheRecords() {
    std::set<std::string> words;
    for (const Command *command : Commands()) {
        words.emplace(command->name);
        for (const Option &option : command->options) {
            words.merge(Matches(std::string(option.value.words), "([^ ]+)"));
        }
    }
    return words;
}

std::set<std::string> OptionsOfTheRecords() {
    std::set<std::string> options;
    const auto add = [&options](std::span<const Option> more) {
        for (const Option &option : more) {
            options.insert(option.name + std::strlen("--"));
        }
    };
    add(OptionsOf(nullptr));
    for (const Command *command : Commands()) {
        add(command->options);
    }
    return options;
}

// The names that a page explains: those after .It Cm.
std::set<std::string> NamesExplained(const std::string &page) {
    std::set<std::string> names;
    for (const std::string &line : Matches(page, "\n\\.It Cm ([^\n]+)")) {
        for (const std::string &name : Matches(" " + line, "[ ,]+([^ ,]+)")) {
            names.insert(name);
        }
    }
    return names;
}

// The options of a command with their values, "near" with "port", and its arguments.
struct Usage {
    std::map<std::string, std::string> options;
    std::vector<std::string> arguments;
};

// The usage according to the synopsis of the page, which may have several forms. "Ar" without a
// name is "file ...".
Usage SynopsisOf(const std::string &command, const std::string &page) {
    Usage usage;
    for (const Groups &form :
         AllMatches(page, "\n\\.Nm\n\\.Cm (?:[a-z-]+ \\| )?" + command +
                              "(?: \\|[^\n]*)?((?:\n\\.(?:Op|Ar|Fl)[^\n]*)+)")) {
        for (const Groups &option :
             AllMatches(form[1], "(?:Fl|\\|) -([a-z][a-z-]*)( Ar)?(?: ([a-z]+))?")) {
            usage.options[option[1]] = !option[2].empty() && option[3].empty() ? "file" : option[3];
        }
        for (const Groups &line : AllMatches(form[1], "\n\\.(?:Op )?Ar([^\n]*)")) {
            std::string names = ReplaceMatches(line[1], " Ns Op / Ns Ar ([a-z]+)", "[/$1]");
            names = ReplaceMatches(names, " \\| ", "|");
            for (const Groups &name : AllMatches(names.empty() ? "file" : names, "[a-z][^ ]*")) {
                usage.arguments.push_back(name[0]);
            }
        }
    }
    return usage;
}

Usage UsageOfTheRecord(const Command &command) {
    Usage usage = {{{"json", ""}}, {}};
    for (const Option &option : command.options) {
        usage.options[option.name + std::strlen("--")] = LowerCase(option.value.name);
    }
    for (const Operand &operand : command.operands) {
        usage.arguments.push_back(LowerCase(operand.value.name));
    }
    return usage;
}

TEST(Manual, HasNoFormatError) {
    if (RunProgram({"sh", "-c", "command -v mandoc"}).status != 0) {
        GTEST_SKIP() << "mandoc is not installed";
    }
    for (const std::string page : {"servicetool.1", "tavoserviceconf.3", "tavoserviceconf.5"}) {
        const ProgramResult result =
            RunProgram({"mandoc", "-T", "lint", "-W", "warning", kSource + "/man/" + page});
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.out, IsEmpty());
    }
}

TEST(Help, NamesTheOptionsOfTheRecords) {
    std::set<std::string> named = OptionsOfHelp({});
    for (const Command *command : Commands()) {
        named.merge(OptionsOfHelp({std::string(command->name)}));
    }
    EXPECT_EQ(named, OptionsOfTheRecords());
    EXPECT_THAT(named, testing::Contains("no-legend"));
}

TEST(Manual, ExplainsTheCommandsAndOptionsOfTheRecords) {
    const std::string page = ReadFile(kSource + "/man/servicetool.1");
    EXPECT_EQ(Matches(page, "\n\\.It (?:Fl [a-z] , |Fl )-([a-z-]+)"), OptionsOfTheRecords());
    const std::set<std::string> explained = NamesExplained(page);
    for (const Command *command : Commands()) {
        EXPECT_THAT(explained, testing::Contains(command->name));
    }
}

TEST(Manual, HasTheSynopsisOfEachRecord) {
    const std::string page = ReadFile(kSource + "/man/servicetool.1");
    for (const Command *command : Commands()) {
        const Usage synopsis = SynopsisOf(std::string(command->name), page);
        const Usage record = UsageOfTheRecord(*command);
        EXPECT_EQ(synopsis.options, record.options) << command->name;
        EXPECT_EQ(synopsis.arguments, record.arguments) << command->name;
    }
}

TEST(Manual, NamesTheCommandsOfEachOption) {
    const std::string page = ReadFile(kSource + "/man/servicetool.1");
    std::map<std::string, std::set<std::string>> named;
    for (const Groups &entry : AllMatches(page, "\n\\.It Fl -([a-z-]+)[^\n]*\n\\.Pq Cm ([^\n]+)")) {
        named[entry[1]] = Matches(entry[2], "([a-z-]+)");
    }
    EXPECT_GT(named.size(), 20U);
    for (const auto &[option, commands] : named) {
        std::set<std::string> expected;
        for (const Command *command : Commands()) {
            if (UsageOfTheRecord(*command).options.contains(option)) {
                expected.emplace(command->name);
            }
        }
        EXPECT_EQ(commands, expected) << option;
    }
}

TEST(Manual, ExplainsEveryRuleOfLint) {
    std::set<std::string> rules;
    for (const LintRule &rule : kLintRules) {
        rules.insert(std::string(rule.name));
    }
    EXPECT_THAT(NamesExplained(ReadFile(kSource + "/man/servicetool.1")), IsSupersetOf(rules));
}

TEST(Manual, ExplainsEveryKeyOfJson) {
    const std::string text =
        "[a]\ntitle=a\ndesc=b\ndst.ports=x\n[b]\ntitle=a\ndesc=b\ndst.ports=1\n";
    const std::string documents = ServiceTool({"show", "--json", "-"}, text).out +
                                  ServiceTool({"lint", "--json", "-"}, text).out;
    std::set<std::string> keys = Matches(documents, "\"([a-z_]+)\":");
    for (const char *key :
         {"schema", "ok", "results", "diagnostics", "start", "end", "protocols"}) {
        EXPECT_EQ(keys.erase(key), 1U) << key;
        EXPECT_THAT(ReadFile(kSource + "/man/servicetool.1"), HasSubstr(key));
    }
    EXPECT_THAT(NamesExplained(ReadFile(kSource + "/man/servicetool.1")), IsSupersetOf(keys));
}

TEST(Manual, ExplainsEveryKeyOfServiceFiles) {
    std::set<std::string> keys;
    for (const KeyRule &key : kKeyRules) {
        keys.insert(std::string(key.name));
    }
    EXPECT_EQ(NamesExplained(ReadFile(kSource + "/man/tavoserviceconf.5")), keys);
}

TEST(Manual, ShowsGoodServiceFiles) {
    const std::string page = ReadFile(kSource + "/man/tavoserviceconf.5");
    const std::set<std::string> examples =
        Matches(page, "\n\\.Bd -literal -offset indent\n([^]*?)\\.Ed\n");
    EXPECT_EQ(examples.size(), 2U);
    for (const std::string &example : examples) {
        const ProgramResult result = ServiceTool({"lint", "--strict", "-"}, example);
        EXPECT_EQ(result.status, 0) << example << result.err;
    }
}

TEST(Completion, KnowsWhatTheRecordsSay) {
    for (const std::string name : {"servicetool", "_servicetool"}) {
        const std::string script = ReadFile(SERVICETOOL_COMPLETION "/" + name);
        EXPECT_EQ(Matches(script, "[^a-z]--([a-z][a-z-]*)"), OptionsOfTheRecords()) << name;
        for (const std::string &word : WordsOfTheRecords()) {
            EXPECT_TRUE(HasMatch(script, "[^a-z-]" + word + "[^a-z-]")) << name << ": " << word;
        }
    }
}

TEST(Completion, IsWellFormed) {
    EXPECT_EQ(RunProgram({"bash", "-n", SERVICETOOL_COMPLETION "/servicetool"}).status, 0);
    if (RunProgram({"sh", "-c", "command -v zsh"}).status != 0) {
        GTEST_SKIP() << "zsh is not installed";
    }
    const ProgramResult result = RunProgram({"zsh", "-n", SERVICETOOL_COMPLETION "/_servicetool"});
    EXPECT_EQ(result.status, 0) << result.err;
}

}  // namespace
}  // namespace tavo::test
