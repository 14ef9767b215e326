// servicetool show for files, and for names in the service folders of a private appliance.
#include <gmock/gmock.h>

#include <filesystem>

#include "json_value.h"
#include "patterns.h"
#include "service_folders.h"
#include "servicetool_run.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kWebFile[] =
    "[global]\nversion=\"3\"\nsupport_key=\"support\"\n"
    "[web]\ntitle=\"Web\"\ntitle_key=\"a:b:c\"\ndesc=\"Pages\"\ndesc_key=\"b:c\"\n"
    "desc_extra=\"More\"\nport_forward=\"yes\"\nsrc.ports=\"1024:65535\"\ndst.ports=\"80,443/"
    "tcp\"\n"
    "[admin]\ntitle=\"Admin\"\ndesc=\"Settings\"\ndst.ports=\"5000/tcp\"\n";

const std::string kAdminBlock =
    "Service:           admin\n"
    "Title:             Admin\n"
    "Title key:         -\n"
    "Description:       Settings\n"
    "Description key:   -\n"
    "Extra text:        -\n"
    "Port forward:      no\n"
    "Source ports:      -\n"
    "Destination ports: 5000/tcp\n";

TEST_F(ServiceFolders, ShowOfAFileSaysEverythingInIt) {
    WriteFile("/tmp/target.sc", kWebFile);
    std::filesystem::create_symlink("/tmp/target.sc", kPackage + "web.sc");
    const ProgramResult result = ServiceTool({"show", kPackage + "web.sc"});
    EXPECT_EQ(result.out,
              "File:              /usr/local/etc/services.d/web.sc\n"
              "Real path:         /tmp/target.sc\n"
              "Where:             package\n"
              "Version:           3\n"
              "Support key:       support\n"
              "Run key:           -\n"
              "\n"
              "Service:           web\n"
              "Title:             Web\n"
              "Title key:         a:b:c\n"
              "Description:       Pages\n"
              "Description key:   b:c\n"
              "Extra text:        More\n"
              "Port forward:      yes\n"
              "Source ports:      1024:65535/tcp,udp\n"
              "Destination ports: 80,443/tcp\n"
              "\n" +
                  kAdminBlock);
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ShowOfANameSaysWhereItIsAndEverythingAboutIt) {
    WriteFile(kSystem + "web.sc", kWebFile);
    const ProgramResult result = ServiceTool({"show", "admin"});
    EXPECT_EQ(result.out,
              "File:              /usr/tavo/etc/services.d/web.sc\n"
              "Where:             system\n"
              "Version:           3\n"
              "Support key:       support\n"
              "Run key:           -\n"
              "\n" +
                  kAdminBlock);
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ShowOfANameShowsAllThatHaveIt) {
    WriteFile(kSystem + "a.sc", Section("web", "1"));
    WriteFile(kPackage + "b.sc", Section("web", "2"));
    WriteFile(kPackage + "c.sc", Section("Web", "3"));
    const std::string out = ServiceTool({"show", "web"}).out;
    EXPECT_THAT(out, AllOf(HasSubstr(kSystem + "a.sc\n"), HasSubstr("1/tcp,udp\n\nFile:"),
                           HasSubstr(kPackage + "b.sc\n"), EndsWith("2/tcp,udp\n")));
    EXPECT_EQ(Json::Parse(ServiceTool({"show", "--json", "web"}).out)["results"].size(), 2U);
}

TEST_F(ServiceFolders, ShowHintsAtANameThatDiffersInCase) {
    WriteFile(kSystem + "a.sc", Section("Web", "1"));
    const ProgramResult result = ServiceTool({"show", "web"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(result.err,
              "servicetool: error: no service or file is named \"web\" [not-found]\n    fix: write "
              "Web\n");
}

TEST_F(ServiceFolders, ShowOfAnUnknownNameIsNo) {
    WriteFile(kSystem + "a.sc", Section("a", "1") + "[broken]\n");
    const ProgramResult result = ServiceTool({"show", "x\x1b"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "servicetool: error: no service or file is named \"x\\x1b\" [not-found]\n");
    const Json document = Json::Parse(ServiceTool({"show", "--json", "x"}).out);
    EXPECT_EQ(document["ok"], false);
    EXPECT_EQ(document["diagnostics"][0]["rule"], "not-found");
}

TEST_F(ServiceFolders, ShowOfANameCannotTellWhereAFileIsUnreadable) {
    std::filesystem::create_symlink("/nothing", kSystem + "a.sc");
    const ProgramResult result = ServiceTool({"show", "x"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, StartsWith(kSystem + "a.sc: error: is a dangling symbolic link"));
}

TEST_F(ServiceFolders, ShowIsNotWholeWhereAFileIsUnreadable) {
    WriteFile(kSystem + "a.sc", Section("web", "1"));
    std::filesystem::create_symlink("/nothing", kPackage + "b.sc");
    const ProgramResult result = ServiceTool({"show", "web"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, HasSubstr("Service:           web\n"));
    EXPECT_THAT(result.err, StartsWith(kPackage + "b.sc: error: "));
    const Json document = Json::Parse(ServiceTool({"show", "--json", "web"}).out);
    EXPECT_EQ(document["ok"], false);
    EXPECT_EQ(document["results"].size(), 1U);
}

TEST_F(ServiceFolders, ShowIsNotWholeWhereAFolderCannotBeListed) {
    WriteFile(kSystem + "a.sc", Section("web", "1"));
    std::filesystem::remove_all(kPackage);
    WriteFile("/usr/local/etc/services.d", "no folder");
    const ProgramResult result = ServiceTool({"show", "web"});
    std::filesystem::remove("/usr/local/etc/services.d");
    std::filesystem::create_directory("/usr/local/etc/services.d");
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, HasSubstr("Service:           web\n"));
}

TEST_F(ServiceFolders, ShowMindsARefusedFileOnlyWhereItHasTheName) {
    WriteFile(kSystem + "a.sc", Section("web", "1"));
    WriteFile(kPackage + "b.sc", "[web]\n");
    WriteFile(kPackage + "c.sc", "[other]\n");
    const ProgramResult result = ServiceTool({"show", "web"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, HasSubstr("Service:           web\n"));
    EXPECT_THAT(result.err, AllOf(StartsWith(kPackage + "b.sc:1:2: error: section [web] is left "
                                                        "out: it has no key"),
                                  testing::Not(HasSubstr("c.sc"))));
    std::filesystem::remove(kPackage + "b.sc");
    EXPECT_EQ(ServiceTool({"show", "web"}).status, 0);
}

TEST_F(ServiceFolders, ShowHintsAtAFileOfAServiceFolder) {
    WriteFile(kPackage + "backup.sc", Section("Backup.sc", "1"));
    const ProgramResult result = ServiceTool({"show", "backup.sc"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "servicetool: error: no service or file is named \"backup.sc\" [not-found]\n"
              "    fix: write /usr/local/etc/services.d/backup.sc\n");
}

// Runs servicetool show in a folder.
ProgramResult ShowIn(const std::string &folder, const std::string &target) {
    return RunProgram(
        {"sh", "-c", "cd \"$1\" && exec \"$2\" show \"$3\"", "sh", folder, SERVICETOOL, target});
}

TEST_F(ServiceFolders, ShowPrefersAServiceToAFileOfItsName) {
    TemporaryFolder folder;
    folder.Write("web", Section("here", "1"));
    EXPECT_THAT(ShowIn(folder.Path(), "web").out, HasSubstr("Service:           here\n"));
    WriteFile(kSystem + "a.sc", Section("web", "1"));
    EXPECT_THAT(ShowIn(folder.Path(), "web").out, HasSubstr("Service:           web\n"));
    EXPECT_THAT(ShowIn(folder.Path(), "./web").out, HasSubstr("Service:           here\n"));
}

TEST_F(ServiceFolders, ShowReportsWhyAFileOfThatNameCannotBeRead) {
    TemporaryFolder folder;
    std::filesystem::create_symlink("nothing", folder / "dangling");
    std::filesystem::create_symlink("loop", folder / "loop");
    std::filesystem::create_directory(folder / "folder");
    EXPECT_EQ(ShowIn(folder.Path(), "dangling").err,
              "dangling: error: is a dangling symbolic link [unreadable]\n");
    EXPECT_EQ(ShowIn(folder.Path(), "dangling").status, 3);
    EXPECT_EQ(ShowIn(folder.Path(), "loop").err,
              "loop: error: too many levels of symbolic links [unreadable]\n");
    EXPECT_EQ(ShowIn(folder.Path(), "folder").status, 1);
    EXPECT_EQ(ShowIn(folder.Path(), std::string(300, 'x')).status, 1);
}

TEST_F(ServiceFolders, ShowKnowsTheServiceFolderHoweverItIsWritten) {
    WriteFile("/tmp/target.sc", Section("a", "1"));
    std::filesystem::create_symlink("/tmp/target.sc", kPackage + "a.sc");
    for (const auto &[folder, path] : std::vector<std::pair<std::string, std::string>>{
             {"/usr/local/etc", "services.d/a.sc"},
             {"/usr/local/etc/services.d", "a.sc"},
             {"/", "usr/tavo/../local//etc/services.d/./a.sc"}}) {
        EXPECT_THAT(ShowIn(folder, path).out, HasSubstr("\nWhere:             package\n")) << path;
    }
    EXPECT_THAT(ShowIn("/tmp", "target.sc").out, HasSubstr("\nWhere:             -\n"));
    EXPECT_THAT(RunProgram({"sh", "-c",
                            "cd /usr/local/etc/services.d && exec '" SERVICETOOL "' show - <a.sc"})
                    .out,
                HasSubstr("\nWhere:             -\n"));
}

TEST(HelpInTheAppliance, NamesServicesThatAreThere) {
    std::size_t shown = 0;
    for (const std::vector<std::string> &help :
         {std::vector<std::string>{"--help"}, {"show", "--help"}}) {
        const std::string text = ServiceTool(help).out;
        for (const Groups &example : AllMatches(text, "servicetool show (?:--json )?([a-z_]+) ?")) {
            EXPECT_EQ(ServiceTool({"show", example[1]}).status, 0) << example[1];
            ++shown;
        }
    }
    EXPECT_EQ(shown, 2U);
}

TEST_F(ServiceFolders, ShowOfAServiceThatIsLeftOutSaysWhy) {
    WriteFile(kSystem + "a.sc", Section("a", "1") + Section("web", "x"));
    const ProgramResult result = ServiceTool({"show", "web"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, StartsWith(kSystem + "a.sc:8:12: error: section [web] is left out: "
                                                 "\"x\" is not a port number [port-syntax]\n"));
    EXPECT_THAT(result.err, testing::Not(HasSubstr("not-found")));
}

TEST_F(ServiceFolders, ShowOfAnOddNameLooksItUpAsItIs) {
    WriteFile(kSystem + "a.sc", Section("-web", "1"));
    EXPECT_EQ(ServiceTool({"show", "--", "-web"}).status, 0);
    EXPECT_EQ(ServiceTool({"show", "-web"}).status, 2);
}

TEST_F(ServiceFolders, ShowReadsAnyFile) {
    TemporaryFolder folder;
    const std::string path = folder.Write("x", Section("a", "1"));
    EXPECT_THAT(ServiceTool({"show", path}).out,
                AllOf(HasSubstr("Where:             -\n"), testing::Not(HasSubstr("Real path"))));
    const ProgramResult named = RunProgram(
        {"sh", "-c", "cd \"$1\" && exec \"$2\" show x", "sh", folder.Path(), SERVICETOOL});
    EXPECT_THAT(named.out, StartsWith("File:              x\nReal path:         " + path + "\n"));
}

TEST_F(ServiceFolders, ShowPrefersAServiceToAFolderOfItsName) {
    WriteFile(kSystem + "a.sc", Section("usr", "1"));
    const ProgramResult result =
        RunProgram({"sh", "-c", "cd / && exec '" SERVICETOOL "' show usr"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("Service:           usr\n"));
}

TEST_F(ServiceFolders, ShowReadsStandardInput) {
    const ProgramResult result = ServiceTool({"show", "-"}, Section("a", "1"));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, StartsWith("File:              <stdin>\nWhere:             -\n"));
    const Json service =
        Json::Parse(ServiceTool({"show", "-", "--json"}, Section("a", "1")).out)["results"][0];
    EXPECT_EQ(service["file"], "<stdin>");
    EXPECT_EQ(service["real_path"], nullptr);
    EXPECT_EQ(service["location"], nullptr);
}

TEST_F(ServiceFolders, ShowOfABadFileSaysWhatIsMissing) {
    const ProgramResult part = ServiceTool({"show", "-"}, Section("a", "1") + "[b]\n");
    EXPECT_EQ(part.status, 3);
    EXPECT_THAT(part.out, HasSubstr("Service:           a\n"));
    EXPECT_THAT(part.err, StartsWith("<stdin>:5:2: error: section [b] is left out"));
    const ProgramResult none = ServiceTool({"show", "/no/file"});
    EXPECT_EQ(none.status, 3);
    EXPECT_EQ(none.err, "/no/file: error: no such file or directory [unreadable]\n");
}

TEST_F(ServiceFolders, ShowDistinguishesReferencesWithEmptyPartsFromNone) {
    const std::string text = Section("a", "1") + "title_key=src::\ndesc_key=:key\n";
    EXPECT_THAT(
        ServiceTool({"show", "-"}, text).out,
        AllOf(HasSubstr("Title key:         src::\n"), HasSubstr("Description key:   :key\n")));
    const Json service = Json::Parse(ServiceTool({"show", "-", "--json"}, text).out)["results"][0];
    EXPECT_EQ(service["title_key"], Json::Parse(R"({"source":"src","section":"","key":""})"));
    EXPECT_EQ(service["description_key"],
              Json::Parse(R"({"source":null,"section":"","key":"key"})"));
}

TEST_F(ServiceFolders, ShowEscapesTexts) {
    const ProgramResult result = ServiceTool({"show", "-"}, Section("a", "1", "\x1b[2J\xFF"));
    EXPECT_THAT(result.out, HasSubstr("Title:             \\x1b[2J\\xff\n"));
}

}  // namespace
}  // namespace tavo::test
