// servicetool list in the service folders of a private appliance.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "appliance.h"
#include "json_value.h"
#include "service_folders.h"
#include "servicetool_run.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

TEST(ListInTheAppliance, ShowsItsServicesAndNamesItsBrokenFile) {
    const ProgramResult result = ServiceTool({"list"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, StartsWith("NAME "));
    EXPECT_THAT(result.out, HasSubstr("\nntp "));
    EXPECT_THAT(result.out, HasSubstr("\nmail_smtp "));
    EXPECT_THAT(result.err,
                StartsWith(kPackage + "photo-frame.sc:4:2: error: not read as a service file: "
                                      "section [photo_frame] lacks dst.ports "
                                      "[missing-dst-ports]\n    [photo_frame]\n     ^\n"));
}

TEST(LintInTheAppliance, FindsNothingInGoodFiles) {
    for (const auto &entry : std::filesystem::directory_iterator(kSystem)) {
        const ProgramResult result = ServiceTool({"lint", "--strict", entry.path()});
        EXPECT_EQ(result.status, 0) << result.err;
    }
}

TEST_F(ServiceFolders, ListIsATableInTheOrderOfFoldersFilesAndSections) {
    WriteFile(kPackage + "a.sc", Section("pack", "5000", "Package"));
    WriteFile(kSystem + "web.sc", Section("web", "80, 443/tcp", "Web server") +
                                      "port_forward=yes\n" +
                                      Section("admin", "6000:6010,7000/udp,tcp", ""));
    WriteFile(kSystem + "ftp.sc", Section("ftp", "21/TCP", "FTP"));
    const ProgramResult result = ServiceTool({"list"});
    EXPECT_EQ(result.out,
              "NAME   FILE    WHERE    PORTS                   FORWARD  TITLE\n"
              "ftp    ftp.sc  system   21/tcp                  no       FTP\n"
              "web    web.sc  system   80,443/tcp              yes      Web server\n"
              "admin  web.sc  system   6000:6010,7000/tcp,udp  no       -\n"
              "pack   a.sc    package  5000/tcp,udp            no       Package\n");
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ListTakesTheFoldersAskedFor) {
    WriteFile(kSystem + "a.sc", Section("sys", "1"));
    WriteFile(kPackage + "b.sc", Section("pack", "2"));
    const std::string sys = "sys  a.sc  system  1/tcp,udp  no  T\n";
    const std::string pack = "pack  b.sc  package  2/tcp,udp  no  T\n";
    EXPECT_EQ(ServiceTool({"list", "--system", "--no-legend"}).out, sys);
    EXPECT_EQ(ServiceTool({"list", "--package", "--no-legend"}).out, pack);
    EXPECT_THAT(ServiceTool({"list", "--package", "--system"}).out,
                AllOf(HasSubstr("sys "), HasSubstr("pack ")));
}

TEST_F(ServiceFolders, ListOfNothingIsAHeader) {
    EXPECT_EQ(ServiceTool({"list"}).out, "NAME  FILE  WHERE  PORTS  FORWARD  TITLE\n");
    EXPECT_EQ(ServiceTool({"list", "--no-legend"}).out, "");
    EXPECT_EQ(ServiceTool({"list"}).status, 0);
}

TEST_F(ServiceFolders, ListTakesAMissingFolderAsEmpty) {
    WriteFile(kSystem + "a.sc", Section("sys", "1"));
    std::filesystem::remove_all(kPackage);
    const ProgramResult result = ServiceTool({"list"});
    EXPECT_THAT(result.out, HasSubstr("sys "));
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ListReportsAFolderThatCannotBeListed) {
    WriteFile(kSystem + "a.sc", Section("sys", "1"));
    std::filesystem::remove_all(kPackage);
    WriteFile("/usr/local/etc/services.d", "no folder");
    const ProgramResult result = ServiceTool({"list"});
    EXPECT_THAT(result.out, HasSubstr("sys "));
    EXPECT_EQ(result.err, "/usr/local/etc/services.d: error: not a directory [unreadable]\n");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(ServiceTool({"list", "--system"}).status, 0);
}

TEST_F(ServiceFolders, ListReadsWhatTheLibraryReads) {
    std::filesystem::create_directory(kSystem + "folder");
    WriteFile("/tmp/target", Section("linked", "1"));
    std::filesystem::create_symlink("/tmp/target", kSystem + "link.sc");
    WriteFile(kSystem + ".hidden", Section("hidden", "2"));
    WriteFile(kSystem + "no-extension", Section("plain", "3"));
    ASSERT_EQ(mkfifo((kSystem + "pipe").c_str(), 0600), 0);
    const ProgramResult result = ServiceTool({"list", "--no-legend"});
    EXPECT_EQ(result.out,
              "hidden  .hidden       system  2/tcp,udp  no  T\n"
              "linked  link.sc       system  1/tcp,udp  no  T\n"
              "plain   no-extension  system  3/tcp,udp  no  T\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ListSaysWhyAFileCannotBeRead) {
    WriteFile(kSystem + "a.sc", Section("good", "1"));
    WriteFile(kSystem + "bad.sc", Section("bad", "1,x"));
    WriteFile(kSystem + "readme", "Hello\n");
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    std::filesystem::create_symlink("/tmp/pipe", kSystem + "to-pipe");
    std::filesystem::create_symlink("/tmp", kSystem + "to-folder");
    std::filesystem::create_symlink("/tmp/nothing", kSystem + "to-nothing");
    const ProgramResult result = ServiceTool({"list", "--no-legend"});
    EXPECT_EQ(result.out, "good  a.sc  system  1/tcp,udp  no  T\n");
    EXPECT_EQ(result.err,
              kSystem +
                  "bad.sc:4:14: error: not read as a service file: \"x\" is not a port number "
                  "[port-syntax]\n"
                  "    dst.ports=\"1,x\"\n"
                  "                 ^\n" +
                  kSystem +
                  "readme:1:1: error: not read as a service file: the file has no section, so no "
                  "service [no-section]\n"
                  "    Hello\n"
                  "    ^\n"
                  "    fix: start each service with a line [NAME]\n" +
                  kSystem + "to-folder: error: is a folder [unreadable]\n" + kSystem +
                  "to-nothing: error: is a dangling symbolic link [unreadable]\n" + kSystem +
                  "to-pipe: error: is a pipe [unreadable]\n");
    EXPECT_EQ(result.status, 3);
}

TEST_F(ServiceFolders, ListNamesEachServiceThatIsLeftOut) {
    WriteFile(kSystem + "a.sc", "[empty]\n" + Section("good", "1") + Section("b c", "2"));
    const ProgramResult result = ServiceTool({"list", "--no-legend"});
    EXPECT_EQ(result.out, "good  a.sc  system  1/tcp,udp  no  T\n");
    EXPECT_EQ(result.err,
              kSystem +
                  "a.sc:1:2: error: section [empty] is left out: it has no key "
                  "[empty-section]\n    [empty]\n     ^\n" +
                  kSystem +
                  "a.sc:6:3: error: section [b c] is left out: its name contains characters other "
                  "than letters, digits, \"-\", \".\" and \"_\" [section-name]\n"
                  "    [b c]\n      ^\n    fix: write [b-c]\n");
    EXPECT_EQ(result.status, 3);
}

TEST_F(ServiceFolders, ListPrintsJson) {
    WriteFile("/tmp/web.sc",
              "[global]\nversion=2\nsupport_key=s\nrun_key=r\n" + Section("web", "80:90,443/tcp") +
                  "src.ports=1\ntitle_key=a:b:c\ndesc_key=d:e\ndesc_extra=X\nport_forward=yes\n");
    std::filesystem::create_symlink("/tmp/web.sc", kPackage + "web.sc");
    WriteFile(kPackage + "xbad.sc", "");
    const ProgramResult result = ServiceTool({"list", "--json"});
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(result.status, 3);
    const Json document = Json::Parse(result.out);
    EXPECT_EQ(document["ok"], false);
    EXPECT_EQ(document["results"], Json::Parse(R"([{
        "name": "web", "file": "/usr/local/etc/services.d/web.sc", "real_path": "/tmp/web.sc",
        "location": "package", "version": 2, "support_key": "s", "run_key": "r",
        "ports": [{"start": 80, "end": 90, "protocols": ["tcp"]},
                  {"start": 443, "end": 443, "protocols": ["tcp"]}],
        "source_ports": [{"start": 1, "end": 1, "protocols": ["tcp", "udp"]}],
        "forward": true, "title": "T",
        "title_key": {"source": "a", "section": "b", "key": "c"},
        "description": "D", "description_key": {"source": null, "section": "d", "key": "e"},
        "description_extra": "X"}])"));
    ASSERT_THAT(document["diagnostics"], SizeIs(1));
    EXPECT_EQ(document["diagnostics"][0]["file"], kPackage + "xbad.sc");
    EXPECT_EQ(document["diagnostics"][0]["rule"], "no-section");
}

TEST_F(ServiceFolders, ListGivesNullInJsonForWhatIsAbsent) {
    WriteFile(kSystem + "a.sc", Section("a", "1"));
    const Json service = Json::Parse(ServiceTool({"list", "--json"}).out)["results"][0];
    EXPECT_EQ(service["version"], 0);
    EXPECT_THAT(service["source_ports"], IsEmpty());
    EXPECT_EQ(service["forward"], false);
    for (const char *key :
         {"support_key", "run_key", "title_key", "description_key", "description_extra"}) {
        EXPECT_EQ(service[key], nullptr) << key;
    }
}

TEST_F(ServiceFolders, ListEscapesNamesAndTexts) {
    WriteFile(kSystem + "a\n\x1b[31m.sc", Section("a", "1", "T\x1b]0;x\x07\xFF"));
    EXPECT_EQ(ServiceTool({"list", "--no-legend"}).out,
              "a  a\\n\\x1b[31m.sc  system  1/tcp,udp  no  T\\x1b]0;x\\x07\\xff\n");
    const std::string document = ServiceTool({"list", "--json"}).out;
    EXPECT_EQ(document.find_first_of("\x1b\x07\xFF"), std::string::npos);
    EXPECT_EQ(Json::Parse(document)["results"][0]["title"], "T\x1b]0;x\x07\\xff");
}

TEST_F(ServiceFolders, ListCutsTitlesOnANarrowTerminalOnly) {
    WriteFile(kSystem + "a.sc", Section("a", "1", "A title that is rather long"));
    EXPECT_EQ(ServiceToolOnTerminal({"list", "--no-legend"}, 45),
              "a  a.sc  system  1/tcp,udp  no  A title th...\n");
    EXPECT_EQ(ServiceToolOnTerminal({"list", "--no-legend"}, 60),
              "a  a.sc  system  1/tcp,udp  no  A title that is rather long\n");
    EXPECT_EQ(ServiceTool({"list", "--no-legend"}).out,
              "a  a.sc  system  1/tcp,udp  no  A title that is rather long\n");
}

TEST_F(ServiceFolders, ListShowsTheLibrarysLogWhenAsked) {
    WriteFile(kSystem + "bad.sc", "");
    EXPECT_THAT(ServiceTool({"list"}).err, testing::Not(HasSubstr("log: ")));
    EXPECT_THAT(ServiceTool({"list", "-v"}).err,
                testing::ContainsRegex("^log: service_conf_get.cpp:[0-9]+ Failed to "
                                       "TLIBCFileEnumSection /usr/tavo/etc/services.d/bad.sc"));
}

TEST_F(ServiceFolders, ListWritesToTheSystemLogOnlyWhenAsked) {
    WriteFile(kSystem + "silent.sc", "");
    ServiceTool({"list"});
    std::filesystem::remove(kSystem + "silent.sc");
    WriteFile(kSystem + "logged.sc", "");
    ServiceTool({"list", "-v"});
    const std::string log = SystemLogWith("/usr/tavo/etc/services.d/logged.sc");
    EXPECT_THAT(log, testing::ContainsRegex("servicetool\\[[0-9]+\\]: service_conf_get.cpp:[0-9]+ "
                                            "Failed to TLIBCFileEnumSection [^ ]*/logged.sc"));
    EXPECT_THAT(log, testing::Not(HasSubstr("silent.sc")));
}

}  // namespace
}  // namespace tavo::test
