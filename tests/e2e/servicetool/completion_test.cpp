// Completion in bash, with the services of a private appliance.
#include <gmock/gmock.h>

#include <sstream>

#include "service_folders.h"
#include "servicetool_run.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What bash offers for the last of `words`.
std::vector<std::string> Completions(const std::vector<std::string> &words,
                                     const std::string &folder = "/") {
    std::vector<std::string> command = {"bash",
                                        "-c",
                                        "source " SERVICETOOL_SOURCE
                                        "/tools/servicetool/completion/servicetool || exit\n"
                                        "cd \"$1\"; shift\n"
                                        "COMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1))\n"
                                        "_servicetool; printf '%s\\n' \"${COMPREPLY[@]}\"",
                                        "bash",
                                        folder,
                                        "servicetool"};
    command.insert(command.end(), words.begin(), words.end());
    const ProgramResult result = RunProgram(command);
    EXPECT_THAT(result.err, IsEmpty());
    std::istringstream lines(result.out);
    std::vector<std::string> offered;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) {
            offered.push_back(line);
        }
    }
    return offered;
}

TEST(BashCompletion, OffersCommands) {
    EXPECT_THAT(Completions({""}), ElementsAre("list", "show", "lint"));
    EXPECT_THAT(Completions({"li"}), ElementsAre("list", "lint"));
    EXPECT_THAT(Completions({"--json", "s"}), ElementsAre("show"));
    EXPECT_THAT(Completions({"x"}), IsEmpty());
}

TEST(BashCompletion, OffersTheOptionsOfTheCommand) {
    EXPECT_THAT(Completions({"--v"}), testing::UnorderedElementsAre("--verbose", "--version"));
    EXPECT_THAT(Completions({"list", "--"}),
                testing::UnorderedElementsAre("--help", "--json", "--verbose", "--system",
                                              "--package", "--no-legend"));
    EXPECT_THAT(Completions({"lint", "--s"}), ElementsAre("--strict"));
    EXPECT_THAT(Completions({"show", "--s"}), IsEmpty());
    EXPECT_THAT(Completions({"lint", "--", "--s"}), IsEmpty());
}

TEST_F(ServiceFolders, BashCompletionOffersServicesAndFilesToShow) {
    WriteFile(kSystem + "a.sc", Section("web", "1") + Section("web.admin", "2"));
    TemporaryFolder folder;
    folder.Write("we b.sc", "");
    EXPECT_THAT(Completions({"show", "we"}, folder.Path()),
                ElementsAre("web", "web.admin", "we b.sc"));
}

TEST_F(ServiceFolders, BashCompletionOffersFilesToLint) {
    WriteFile(kSystem + "a.sc", Section("web", "1"));
    TemporaryFolder folder;
    folder.Write("a b.sc", "");
    folder.Write("a$(touch x).sc", "");
    EXPECT_THAT(Completions({"lint", ""}, folder.Path()),
                testing::UnorderedElementsAre("a b.sc", "a$(touch x).sc"));
    EXPECT_THAT(Completions({"lint", "x.sc", "--", "a b"}, folder.Path()), ElementsAre("a b.sc"));
}

}  // namespace
}  // namespace tavo::test
