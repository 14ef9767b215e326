// Completion in bash and zsh, with the services of a private appliance.
#include <gmock/gmock.h>

#include <sstream>

#include "service_folders.h"
#include "servicetool_run.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> LinesOf(const std::string &text) {
    std::istringstream lines(text);
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) {
            found.push_back(line);
        }
    }
    return found;
}

// The completions that bash offers for the last of `words`.
std::vector<std::string> Completions(const std::vector<std::string> &words,
                                     const std::string &folder = "/") {
    std::vector<std::string> command = {"bash",
                                        "-c",
                                        "source '" SERVICETOOL_COMPLETION
                                        "/servicetool' || exit\n"
                                        "cd \"$1\"; shift\n"
                                        "COMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1))\n"
                                        "_servicetool; printf '%s\\n' \"${COMPREPLY[@]}\"",
                                        "bash",
                                        folder,
                                        "servicetool"};
    command.insert(command.end(), words.begin(), words.end());
    const ProgramResult result = RunProgram(command);
    EXPECT_THAT(result.err, IsEmpty());
    return LinesOf(result.out);
}

TEST(BashCompletion, OffersCommands) {
    EXPECT_THAT(Completions({""}),
                ElementsAre("list", "show", "lint", "services", "check", "suggest", "why", "ports",
                            "install", "update", "remove", "set", "set-ports", "remove-section",
                            "restart", "clean"));
    EXPECT_THAT(Completions({"li"}), ElementsAre("list", "lint"));
    EXPECT_THAT(Completions({"--json", "s"}),
                ElementsAre("show", "services", "suggest", "set", "set-ports"));
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
    EXPECT_THAT(Completions({"services", "--s"}), ElementsAre("--supported"));
    EXPECT_THAT(Completions({"check", "80", "--s"}), ElementsAre("--skip", "--source"));
    EXPECT_THAT(Completions({"check", "--skip", "a", "--f"}), ElementsAre("--file"));
    EXPECT_THAT(Completions({"suggest", "--"}),
                testing::UnorderedElementsAre("--help", "--json", "--verbose", "--near", "--proto",
                                              "--block"));
    EXPECT_THAT(Completions({"why", "--"}),
                testing::UnorderedElementsAre("--help", "--json", "--verbose", "--no-legend"));
    EXPECT_THAT(
        Completions({"ports", "--"}),
        testing::UnorderedElementsAre("--help", "--json", "--verbose", "--declared", "--held",
                                      "--conflicts", "--map", "--svg", "--no-legend"));
    EXPECT_THAT(Completions({"set", "--"}),
                testing::UnorderedElementsAre(
                    "--help", "--json", "--verbose", "--system", "--package", "--dry-run",
                    "--title", "--desc", "--title-key", "--desc-key", "--dst-ports", "--src-ports",
                    "--port-forward", "--no-port-forward", "--no-restart"));
    EXPECT_THAT(Completions({"set-ports", "--s"}),
                testing::UnorderedElementsAre("--system", "--src"));
    EXPECT_THAT(Completions({"install", "--"}),
                testing::UnorderedElementsAre("--help", "--json", "--verbose", "--system",
                                              "--package", "--dry-run", "--as", "--force"));
    EXPECT_THAT(Completions({"update", "--f"}), ElementsAre("--force"));
    EXPECT_THAT(Completions({"remove", "--"}),
                testing::UnorderedElementsAre("--help", "--json", "--verbose", "--system",
                                              "--package", "--dry-run"));
    EXPECT_THAT(Completions({"remove-section", "--n"}), ElementsAre("--no-restart"));
    EXPECT_THAT(Completions({"restart", "--"}),
                testing::UnorderedElementsAre("--help", "--json", "--verbose", "--firewall",
                                              "--relay", "--dry-run"));
}

TEST(BashCompletion, OffersWhatAnOptionTakes) {
    EXPECT_THAT(Completions({"check", "80", "--source", "s"}),
                ElementsAre("service", "setting", "socket"));
    EXPECT_THAT(Completions({"check", "80", "--source", "socket,f"}),
                ElementsAre("socket,forward"));
    EXPECT_THAT(Completions({"check", "80", "--source", "=", "f"}), ElementsAre("forward"));
    EXPECT_THAT(Completions({"check", "80", "--source", "="}),
                ElementsAre("forward", "service", "setting", "socket"));
    EXPECT_THAT(Completions({"check", "--source", "socket", ""}), IsEmpty());
    EXPECT_THAT(Completions({"suggest", "--proto", "t"}), ElementsAre("tcp", "tcp,udp"));
    EXPECT_THAT(Completions({"suggest", "--near", ""}), IsEmpty());
    EXPECT_THAT(Completions({"suggest", ""}), IsEmpty());
}

TEST_F(ServiceFolders, BashCompletionOffersFirewallServices) {
    WriteFile(kSystem + "a.sc", Section("sshd.admin", "1"));
    EXPECT_THAT(Completions({"services", "ss"}), ElementsAre("ssh", "sshd.admin"));
    EXPECT_THAT(Completions({"services", "--supported", "ftp", "ssh"}),
                ElementsAre("ssh", "sshd.admin"));
    EXPECT_THAT(Completions({"check", "80", "--skip", "ftp,ss"}),
                ElementsAre("ftp,ssh", "ftp,sshd.admin"));
    EXPECT_THAT(Completions({"check", "80", "--skip", "ssh,web"}),
                ElementsAre("ssh,webdav_http", "ssh,webdavs_https"));
    EXPECT_THAT(Completions({"check", "80", "--skip", "sys"}), ElementsAre("syslog_server"));
    EXPECT_THAT(Completions({"services", "sys"}), IsEmpty());
}

TEST(BashCompletion, OffersFilesToCheck) {
    TemporaryFolder folder;
    folder.Write("a b.sc", "");
    EXPECT_THAT(Completions({"check", "--file", "a"}, folder.Path()), ElementsAre("a b.sc"));
    EXPECT_THAT(Completions({"check", "--file", "x", "y", "a"}, folder.Path()),
                ElementsAre("a b.sc"));
    EXPECT_THAT(Completions({"check", "--file", "=", "a"}, folder.Path()), ElementsAre("a b.sc"));
    EXPECT_THAT(Completions({"check", "--file", "x", "--no-legend", "a"}, folder.Path()),
                IsEmpty());
    EXPECT_THAT(Completions({"check", "a"}, folder.Path()), IsEmpty());
}

TEST(BashCompletion, OffersFilesForAPicture) {
    TemporaryFolder folder;
    folder.Write("a b.svg", "");
    EXPECT_THAT(Completions({"ports", "--svg", "a"}, folder.Path()), ElementsAre("a b.svg"));
    EXPECT_THAT(Completions({"ports", "--svg", "x", "a"}, folder.Path()), IsEmpty());
    EXPECT_THAT(Completions({"ports", "a"}, folder.Path()), IsEmpty());
}

TEST(BashCompletion, OffersAFileToInstall) {
    TemporaryFolder folder;
    folder.Write("a b.sc", "");
    for (const std::string command : {"install", "update"}) {
        EXPECT_THAT(Completions({command, "a"}, folder.Path()), ElementsAre("a b.sc"));
        EXPECT_THAT(Completions({command, "--dry-run", "a"}, folder.Path()), ElementsAre("a b.sc"));
        EXPECT_THAT(Completions({command, "--as", "x.sc", "a"}, folder.Path()),
                    ElementsAre("a b.sc"));
        EXPECT_THAT(Completions({command, "x", "a"}, folder.Path()), IsEmpty());
    }
    EXPECT_THAT(Completions({"install", "--as", "a"}, folder.Path()), IsEmpty());
}

TEST_F(ServiceFolders, BashCompletionOffersWhatIsInstalled) {
    std::filesystem::create_directory(kPackage + "tmp");
    WriteFile(kSystem + "a.sc", Section("web", "1") + Section("wiki", "2"));
    WriteFile(kPackage + "a$(touch x) b.sc", "");
    for (const std::string command : {"set", "set-ports", "remove", "remove-section"}) {
        EXPECT_THAT(Completions({command, ""}), ElementsAre("a.sc", "a$(touch x) b.sc")) << command;
    }
    EXPECT_THAT(Completions({"update", "--as", "a."}), ElementsAre("a.sc"));
    for (const std::string command : {"set", "set-ports", "remove-section"}) {
        EXPECT_THAT(Completions({command, "a.sc", "w"}), ElementsAre("web", "wiki")) << command;
        EXPECT_THAT(Completions({command, "b.sc", ""}), IsEmpty()) << command;
        EXPECT_THAT(Completions({command, "a.sc", "web", ""}), IsEmpty()) << command;
    }
    EXPECT_THAT(Completions({"remove", "a.sc", ""}), IsEmpty());
    EXPECT_THAT(Completions({"set", "--title", "T", "--port-forward", "a."}), ElementsAre("a.sc"));
    EXPECT_THAT(Completions({"set", "--dst-ports", "a"}), IsEmpty());
    EXPECT_THAT(Completions({"restart", "a"}), IsEmpty());
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

// An interactive shell records each candidate that the completion system accepts for a line.
class ZshCompletion : public ServiceFolders {
  protected:
    void SetUp() override {
        ServiceFolders::SetUp();
        if (RunProgram({"sh", "-c", "command -v zsh"}).status != 0) {
            GTEST_SKIP() << "zsh is not installed";
        }
    }

    static std::vector<std::string> Offered(const std::string &line) {
        TemporaryFolder folder;
        folder.Write("offered", "");
        folder.Write("setup", R"(
            PROMPT=
            fpath=($SCRIPTS $fpath)
            autoload -Uz compinit
            compinit -D -u
            compadd() {
                local -a options=(${@[1,(i)(-|--)]}) offered
                if [[ -z ${(M)options:#-[OAD]*} ]]; then
                    builtin compadd -A offered "$@"
                    (( $#offered )) && print -rl -- $offered >> $FOLDER/offered
                fi
                builtin compadd "$@"
            }
            finish() { exit }
            comppostfuncs=(finish)
            bindkey '^I' complete-word
        )");
        folder.Write("terminal", R"(
            export FOLDER=$1 SCRIPTS=$2
            zmodload zsh/zpty
            zpty shell zsh -f -i
            zpty -w shell "source $FOLDER/setup"
            zpty -w -n shell "$3"$'\t'
            while zpty -r shell; do :; done > /dev/null
        )");
        const ProgramResult result = RunProgram({"zsh", "-f", folder.Path() + "/terminal",
                                                 folder.Path(), SERVICETOOL_COMPLETION, line});
        EXPECT_THAT(result.err, IsEmpty());
        return LinesOf(ReadFile(folder.Path() + "/offered"));
    }
};

TEST_F(ZshCompletion, OffersCommands) {
    EXPECT_THAT(Offered("servicetool "), testing::UnorderedElementsAre(
                                             "list", "show", "lint", "services", "check", "suggest",
                                             "why", "ports", "install", "update", "remove", "set",
                                             "set-ports", "remove-section", "restart", "clean"));
    EXPECT_THAT(Offered("servicetool --json li"), testing::UnorderedElementsAre("list", "lint"));
    EXPECT_THAT(Offered("servicetool x"), IsEmpty());
}

TEST_F(ZshCompletion, OffersTheOptionsOfTheCommand) {
    EXPECT_THAT(Offered("servicetool --v"),
                testing::UnorderedElementsAre("--verbose", "--version"));
    EXPECT_THAT(Offered("servicetool check 80 --s"),
                testing::UnorderedElementsAre("--skip", "--source"));
    EXPECT_THAT(
        Offered("servicetool list --system --"),
        testing::UnorderedElementsAre("--help", "--json", "--verbose", "--package", "--no-legend"));
    EXPECT_THAT(Offered("servicetool remove --system --p"), IsEmpty());
    EXPECT_THAT(Offered("servicetool check --skip a --sk"), ElementsAre("--skip"));
    EXPECT_THAT(Offered("servicetool set --title-"), ElementsAre("--title-key"));
    EXPECT_THAT(Offered("servicetool nope --"), IsEmpty());
}

TEST_F(ZshCompletion, OffersWhatAnOptionTakes) {
    EXPECT_THAT(Offered("servicetool check 80 --source socket,f"), ElementsAre("forward"));
    EXPECT_THAT(Offered("servicetool check 80 --source=s"),
                testing::UnorderedElementsAre("service", "setting", "socket"));
    EXPECT_THAT(Offered("servicetool suggest --proto t"),
                testing::UnorderedElementsAre("tcp", "tcp,udp"));
    EXPECT_THAT(Offered("servicetool check 80 --skip ssh,sys"), ElementsAre("syslog_server"));
    EXPECT_THAT(Offered("servicetool suggest --near "), IsEmpty());
}

TEST_F(ZshCompletion, OffersFiles) {
    TemporaryFolder folder;
    folder.Write("a b.sc", "");
    folder.Write("c.sc", "");
    const std::string here = folder.Path() + '/';
    EXPECT_THAT(Offered("servicetool lint " + here), ElementsAre("a\\ b.sc", "c.sc"));
    EXPECT_THAT(Offered("servicetool install " + here + "c"), ElementsAre("c.sc"));
    EXPECT_THAT(Offered("servicetool check --file " + here + "c.sc " + here + "a"),
                ElementsAre("a\\ b.sc"));
    EXPECT_THAT(Offered("servicetool ports --svg=" + here + "c"), ElementsAre("c.sc"));
}

TEST_F(ZshCompletion, OffersWhatIsInstalled) {
    WriteFile(kSystem + "a.sc", Section("web", "1") + Section("wiki", "2"));
    EXPECT_THAT(Offered("servicetool set "), ElementsAre("a.sc"));
    EXPECT_THAT(Offered("servicetool update --as="), ElementsAre("a.sc"));
    EXPECT_THAT(Offered("servicetool remove-section a.sc w"),
                testing::UnorderedElementsAre("web", "wiki"));
    EXPECT_THAT(Offered("servicetool set-ports a.sc web "), IsEmpty());
    EXPECT_THAT(Offered("servicetool show we"), ElementsAre("web"));
    EXPECT_THAT(Offered("servicetool services wi"), ElementsAre("wiki"));
}

}  // namespace
}  // namespace tavo::test
