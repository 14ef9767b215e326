// servicetool services in the service folders and settings of a private appliance.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "json_value.h"
#include "patterns.h"
#include "service_folders.h"
#include "servicetool_run.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

const std::string kFactorySettings = "/etc.defaults/tavoinfo.conf";
const std::string kSettings = "/etc/tavoinfo.conf";
const std::string kNfsSettings = "/etc/nfs/tavo_nfs_conf";

// A service file with services that the model supports if the key says so.
std::string Supported(const std::string &key, const std::string &sections) {
    return "[global]\nsupport_key=" + key + "\n" + sections;
}

ProgramResult ServicesNamed(const std::string &name) {
    return ServiceTool({"services", "--no-legend", name});
}

TEST(ServicesInTheAppliance, AreThoseOfTheTableAndOfFiles) {
    const ProgramResult result = ServiceTool({"services"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, StartsWith("NAME "));
    EXPECT_THAT(result.out, HasSubstr("\ntelnet  "));
    EXPECT_THAT(result.out, HasSubstr("\nweb_http  "));
    EXPECT_THAT(result.out, HasSubstr("\nmail_smtp  "));
    EXPECT_THAT(result.err, StartsWith(kPackage + "photo-frame.sc:4:2: error: "));
}

TEST_F(ServiceFolders, ServicesOfNoFileAreTheBuiltInOnes) {
    const ProgramResult result = ServiceTool({"services"});
    EXPECT_EQ(result.out,
              "NAME        SUPPORTED  FORWARD  PORTS                          FROM      TITLE\n"
              "telnet      yes        yes      23/tcp                         built-in  -\n"
              "ssh         yes        yes      22/tcp                         built-in  -\n"
              "ups_server  yes        no       3493/tcp                       built-in  -\n"
              "lanprobed   yes        no       1234,9997,9998,9999/udp        built-in  -\n"
              "nfs         yes        yes      111,892,2049,662,4045/tcp,udp  built-in  -\n"
              "afp         yes        yes      548/tcp                        built-in  -\n"
              "ftp         yes        yes      21,50000:50031/tcp             built-in  -\n"
              "snmp        yes        no       161/udp                        built-in  -\n"
              "bonjour     yes        no       5353/udp                       built-in  -\n"
              "kx20        no         no       19999/udp                      built-in  -\n"
              "lpr         yes        no       515/tcp                        built-in  -\n"
              "ipp         yes        no       631/tcp                        built-in  -\n");
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ServicesOfFilesFollowInTheOrderOfFoldersFilesAndSections) {
    WriteFile(kPackage + "a.sc", Section("pack", "5000", "Package"));
    WriteFile(kSystem + "web.sc", Section("web", "80, 443/tcp", "Web server") +
                                      "port_forward=yes\n" +
                                      Section("admin", "6000:6010,7000/udp,tcp", ""));
    WriteFile(kSystem + "mail.sc", Section("mail", "25/TCP", "Mail"));
    const ProgramResult result = ServiceTool({"services", "ipp", "pack", "web", "admin", "mail"});
    EXPECT_EQ(result.out,
              "NAME   SUPPORTED  FORWARD  PORTS                   FROM            TITLE\n"
              "ipp    yes        no       631/tcp                 built-in        -\n"
              "mail   yes        no       25/tcp                  system/mail.sc  Mail\n"
              "web    yes        yes      80,443/tcp              system/web.sc   Web server\n"
              "admin  yes        no       6000:6010,7000/tcp,udp  system/web.sc   -\n"
              "pack   yes        no       5000/tcp,udp            package/a.sc    Package\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ServicesPicksNamesInTheOrderOfTheList) {
    WriteFile(kSystem + "a.sc", Section("web", "80"));
    const ProgramResult result =
        ServiceTool({"services", "--no-legend", "web", "telnet", "ipp", "web"});
    EXPECT_EQ(result.out,
              "telnet  yes  yes  23/tcp      built-in     -\n"
              "ipp     yes  no   631/tcp     built-in     -\n"
              "web     yes  no   80/tcp,udp  system/a.sc  T\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ServicesOfOneNameAreAllShown) {
    WriteFile(kSystem + "a.sc", Section("ssh", "2222", "Other"));
    WriteFile(kPackage + "a.sc", Section("x", "1") + Section("ssh", "2223", "Third"));
    EXPECT_EQ(ServicesNamed("ssh").out,
              "ssh  yes  yes  22/tcp        built-in      -\n"
              "ssh  yes  no   2222/tcp,udp  system/a.sc   Other\n"
              "ssh  yes  no   2223/tcp,udp  package/a.sc  Third\n");
}

TEST_F(ServiceFolders, ServicesReportsAnUnknownName) {
    WriteFile(kSystem + "a.sc", Section("web", "80"));
    const ProgramResult result =
        ServiceTool({"services", "--no-legend", "SSH", "web", "nosuch", "\x1b[2J"});
    EXPECT_EQ(result.out, "web  yes  no  80/tcp,udp  system/a.sc  T\n");
    EXPECT_EQ(result.err,
              "servicetool: error: no firewall service is named \"SSH\" [not-found]\n"
              "    fix: write ssh\n"
              "servicetool: error: no firewall service is named \"nosuch\" [not-found]\n"
              "servicetool: error: no firewall service is named \"\\x1b[2J\" [not-found]\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(ServiceFolders, ServicesAreSupportedWhereTheirKeySaysYes) {
    WriteFile(kSystem + "a.sc", Supported("supportprint", Section("on", "1")));
    WriteFile(kSystem + "b.sc", Supported("supportwifi", Section("off", "2")));
    WriteFile(kSystem + "c.sc", Supported("nosuchkey", Section("absent", "3")));
    EXPECT_EQ(ServiceTool({"services", "--no-legend", "on", "off", "absent", "kx20"}).out,
              "kx20    no   no  19999/udp  built-in     -\n"
              "on      yes  no  1/tcp,udp  system/a.sc  T\n"
              "off     no   no  2/tcp,udp  system/b.sc  T\n"
              "absent  no   no  3/tcp,udp  system/c.sc  T\n");
}

TEST_F(ServiceFolders, ServicesKeepsTheSupportedOnes) {
    WriteFile(kSystem + "a.sc", Supported("supportwifi", Section("off", "1")));
    WriteFile(kSystem + "b.sc", Section("on", "2"));
    const ProgramResult all = ServiceTool({"services", "--supported", "--no-legend"});
    EXPECT_THAT(all.out, AllOf(StartsWith("telnet "), HasSubstr("\non "), Not(HasSubstr("kx20")),
                               Not(HasSubstr("off"))));
    EXPECT_EQ(all.status, 0);
    const ProgramResult named =
        ServiceTool({"services", "--supported", "--no-legend", "kx20", "on"});
    EXPECT_EQ(named.out, "on  yes  no  2/tcp,udp  system/b.sc  T\n");
    EXPECT_THAT(named.err, IsEmpty());
    EXPECT_EQ(named.status, 0);
}

TEST_F(ServiceFolders, ServicesThatLookAlikeKeepTheirOwnFileAndSupport) {
    WriteFile(kSystem + "a.sc", Supported("supportwifi", Section("web", "80")));
    WriteFile(kSystem + "b.sc", Section("web", "80"));
    WriteFile(kPackage + "a.sc", Supported("nosuchkey", Section("web", "80")));
    EXPECT_EQ(ServicesNamed("web").out,
              "web  no   no  80/tcp,udp  system/a.sc   T\n"
              "web  yes  no  80/tcp,udp  system/b.sc   T\n"
              "web  no   no  80/tcp,udp  package/a.sc  T\n");
}

TEST_F(ServiceFolders, ServicesReportsWhatIsLeftOut) {
    WriteFile(kSystem + "a.sc", "[empty]\n" + Section("good", "1"));
    WriteFile(kSystem + "bad.sc", Section("bad", "1,x"));
    std::filesystem::create_symlink("/tmp", kSystem + "to-folder");
    const ProgramResult result = ServiceTool({"services", "--no-legend"});
    EXPECT_THAT(result.out, HasSubstr("\ngood "));
    EXPECT_EQ(result.err,
              kSystem +
                  "a.sc:1:2: error: section [empty] is left out: it has no key [empty-section]\n"
                  "    [empty]\n     ^\n" +
                  kSystem +
                  "bad.sc:4:14: error: not read as a service file: \"x\" is not a port number "
                  "[port-syntax]\n"
                  "    dst.ports=\"1,x\"\n"
                  "                 ^\n" +
                  kSystem + "to-folder: error: is a folder [unreadable]\n");
    EXPECT_EQ(result.status, 3);
}

TEST_F(ServiceFolders, ServicesByNameMindWhatMayHoldTheName) {
    WriteFile(kSystem + "a.sc", "[empty]\n" + Section("good", "1"));
    WriteFile(kSystem + "bad.sc", Section("bad", "x"));
    const ProgramResult good = ServicesNamed("good");
    EXPECT_EQ(good.out, "good  yes  no  1/tcp,udp  system/a.sc  T\n");
    EXPECT_THAT(good.err, IsEmpty());
    EXPECT_EQ(good.status, 0);
    for (const std::string name : {"empty", "bad"}) {
        const ProgramResult result = ServicesNamed(name);
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_THAT(result.err, AllOf(HasSubstr("error: section [" + name + "] is left out: "),
                                      Not(HasSubstr("not-found"))));
        EXPECT_EQ(result.status, 3);
    }
    std::filesystem::create_symlink("/tmp", kSystem + "to-folder");
    EXPECT_EQ(ServicesNamed("good").status, 3);
    EXPECT_EQ(ServicesNamed("good").err, kSystem + "to-folder: error: is a folder [unreadable]\n");
}

TEST_F(ServiceFolders, ServicesReportsAFolderThatCannotBeListed) {
    WriteFile(kSystem + "a.sc", Section("sys", "1"));
    std::filesystem::remove_all(kPackage);
    EXPECT_EQ(ServicesNamed("sys").status, 0);
    WriteFile("/usr/local/etc/services.d", "no folder");
    const ProgramResult result = ServicesNamed("sys");
    EXPECT_EQ(result.out, "sys  yes  no  1/tcp,udp  system/a.sc  T\n");
    EXPECT_EQ(result.err, "/usr/local/etc/services.d: error: not a directory [unreadable]\n");
    EXPECT_EQ(result.status, 3);
}

// Lint skips files that are too large for a service file. The library reads them, so no service is
// missing.
TEST_F(ServiceFolders, ServicesShowsThoseOfAFileThatIsTooLargeForLint) {
    WriteFile(kSystem + "a.sc", Section("small", "1"));
    WriteFile(kSystem + "large.sc", Section("large", "2") + std::string(17 << 20, '#'));
    WriteFile(kSystem + "z.sc", Section("last", "3"));
    const ProgramResult result = ServiceTool({"services", "--no-legend", "small", "large", "last"});
    EXPECT_EQ(result.out,
              "small  yes  no  1/tcp,udp  system/a.sc      T\n"
              "large  yes  no  2/tcp,udp  system/large.sc  T\n"
              "last   yes  no  3/tcp,udp  system/z.sc      T\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ServiceFolders, ServicesReportsABuiltInOneWhoseSettingsCannotBeRead) {
    std::filesystem::remove(kNfsSettings);
    std::filesystem::create_directory(kNfsSettings);
    std::filesystem::remove(kSettings);
    const ProgramResult result = ServiceTool({"services", "--no-legend"});
    EXPECT_THAT(result.out, AllOf(HasSubstr("lanprobed  "), Not(HasSubstr("ssh ")),
                                  Not(HasSubstr("nfs ")), Not(HasSubstr("ftp "))));
    EXPECT_EQ(result.err,
              kSettings +
                  ": error: built-in service ssh is left out: no such file or directory "
                  "[unreadable]\n" +
                  kNfsSettings +
                  ": error: built-in service nfs is left out: is a folder [unreadable]\n" +
                  kSettings +
                  ": error: built-in service ftp is left out: no such file or directory "
                  "[unreadable]\n");
    EXPECT_EQ(result.status, 3);
}

TEST_F(ServiceFolders, ServicesReportsABuiltInOneWhoseSettingsSayNoPort) {
    WriteFile("/etc/ssh/sshd_config", "Port nonsense\n");
    WriteFile(kNfsSettings, "nfs_custom_port_enable=\"yes\"\nstatd_port=\"4000\"\n");
    const ProgramResult result = ServiceTool({"services", "--no-legend", "ssh", "nfs", "telnet"});
    EXPECT_EQ(result.out, "telnet  yes  yes  23/tcp  built-in  -\n");
    EXPECT_EQ(
        result.err,
        "/etc/ssh/sshd_config: error: built-in service ssh is left out: Port does not name a port "
        "[bad-service]\n" +
            kNfsSettings +
            ": error: built-in service nfs is left out: statd_port or nlm_port does not name a "
            "port "
            "[bad-service]\n");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(ServicesNamed("telnet").status, 0);
}

TEST_F(ServiceFolders, ServicesOfAFileDoNotPassForABuiltInOneThatIsLeftOut) {
    std::filesystem::remove(kNfsSettings);
    WriteFile(kSystem + "a.sc", Section("nfs", "2049/tcp", "Files"));
    const ProgramResult result = ServicesNamed("nfs");
    EXPECT_EQ(result.out, "nfs  yes  no  2049/tcp  system/a.sc  Files\n");
    EXPECT_THAT(result.err, HasSubstr("built-in service nfs is left out"));
    EXPECT_EQ(result.status, 3);
}

TEST_F(ServiceFolders, ServicesReportsASettingThatIsNoPort) {
    WriteFile(kNfsSettings,
              "nfs_custom_port_enable=\"yes\"\nstatd_port=\"x\x1b[2J\"\nnlm_port=\"70000\"\n");
    const ProgramResult result = ServicesNamed("nfs");
    EXPECT_EQ(result.out, "nfs  yes  yes  111,892,2049/tcp,udp  built-in  -\n");
    EXPECT_EQ(
        result.err,
        "servicetool: error: firewall service nfs has \"x\\x1b[2J\" for a port [bad-service]\n"
        "servicetool: error: firewall service nfs has \"70000\" for a port [bad-service]\n");
    EXPECT_EQ(result.status, 3);
}

TEST_F(ServiceFolders, ServicesSaysThatSupportIsUnknownWithoutItsSettings) {
    WriteFile(kSystem + "a.sc",
              Supported("supportprint", Section("asks", "1")) + Section("too", "2"));
    WriteFile(kSystem + "b.sc", Section("always", "3"));
    std::filesystem::remove(kFactorySettings);
    const std::string error = kFactorySettings +
                              ": error: it is unknown what this model supports: no such file or "
                              "directory [unreadable]\n";
    const std::vector<std::string> names = {"services", "--no-legend", "telnet", "nfs",
                                            "asks",     "too",         "always"};
    const ProgramResult result = ServiceTool(names);
    EXPECT_EQ(result.out,
              "telnet  yes  yes  23/tcp                         built-in     -\n"
              "nfs     -    yes  111,892,2049,662,4045/tcp,udp  built-in     -\n"
              "asks    -    no   1/tcp,udp                      system/a.sc  T\n"
              "too     -    no   2/tcp,udp                      system/a.sc  T\n"
              "always  yes  no   3/tcp,udp                      system/b.sc  T\n");
    EXPECT_EQ(result.err, error);
    EXPECT_EQ(result.status, 3);
    const ProgramResult supported =
        ServiceTool({"services", "--no-legend", "--supported", "telnet", "asks"});
    EXPECT_EQ(supported.out, "telnet  yes  yes  23/tcp  built-in  -\n");
    EXPECT_EQ(supported.err, error);
    EXPECT_EQ(supported.status, 3);
    EXPECT_EQ(ServiceTool({"services", "telnet", "always"}).status, 0);
    EXPECT_EQ(
        Json::Parse(ServiceTool({"services", "--json", "asks"}).out)["results"][0]["supported"],
        nullptr);
}

TEST_F(ServiceFolders, ServicesPrintsJsonOfABuiltInOne) {
    const ProgramResult result = ServiceTool({"services", "--json", "ftp", "ups_server"});
    EXPECT_EQ(result.status, 0);
    const Json document = Json::Parse(result.out);
    EXPECT_EQ(document["ok"], true);
    EXPECT_THAT(document["diagnostics"], IsEmpty());
    EXPECT_EQ(document["results"], Json::Parse(R"([{
        "name": "ups_server", "supported": true, "file": null, "real_path": null,
        "location": "built-in", "version": null, "support_key": "supportups", "run_key": null,
        "ports": [{"start": 3493, "end": 3493, "protocols": ["tcp"]}],
        "source_ports": [], "forward": false, "title": "",
        "title_key": {"source": null, "section": "tree", "key": "leaf_ups"},
        "description": "", "description_key":
            {"source": null, "section": "firewall", "key": "firewall_service_desc_ups"},
        "description_extra": null}, {
        "name": "ftp", "supported": true, "file": null, "real_path": null,
        "location": "built-in", "version": null, "support_key": null, "run_key": null,
        "ports": [{"start": 21, "end": 21, "protocols": ["tcp"]},
                  {"start": 50000, "end": 50031, "protocols": ["tcp"]}],
        "source_ports": [], "forward": true, "title": "",
        "title_key": {"source": null, "section": "tree", "key": "leaf_ftp"},
        "description": "", "description_key":
            {"source": null, "section": "firewall", "key": "firewall_service_desc_ftp"},
        "description_extra": null}])"));
}

TEST_F(ServiceFolders, ServicesPrintsJsonOfOneOfAFile) {
    WriteFile("/tmp/web.sc", "[global]\nversion=2\nsupport_key=supportwifi\nrun_key=r\n" +
                                 Section("web", "80:90,443/tcp") +
                                 "src.ports=1:2,3/udp\ntitle_key=a:b:c\ndesc_key=d:e\n"
                                 "desc_extra=X\nport_forward=yes\n");
    std::filesystem::create_symlink("/tmp/web.sc", kPackage + "web.sc");
    const Json document = Json::Parse(ServiceTool({"services", "--json", "web"}).out);
    EXPECT_EQ(document["results"], Json::Parse(R"([{
        "name": "web", "supported": false, "file": "/usr/local/etc/services.d/web.sc",
        "real_path": "/tmp/web.sc", "location": "package", "version": 2,
        "support_key": "supportwifi", "run_key": "r",
        "ports": [{"start": 80, "end": 90, "protocols": ["tcp"]},
                  {"start": 443, "end": 443, "protocols": ["tcp"]}],
        "source_ports": [{"start": 1, "end": 2, "protocols": ["udp"]},
                         {"start": 3, "end": 3, "protocols": ["udp"]}],
        "forward": true, "title": "T",
        "title_key": {"source": "a", "section": "b", "key": "c"},
        "description": "D", "description_key": {"source": null, "section": "d", "key": "e"},
        "description_extra": "X"}])"));
}

TEST_F(ServiceFolders, ServicesIsOneDocumentOnFailureToo) {
    std::filesystem::remove(kNfsSettings);
    const ProgramResult result = ServiceTool({"services", "--json", "nfs", "nosuch"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, IsEmpty());
    const Json document = Json::Parse(result.out);
    EXPECT_EQ(document["ok"], false);
    EXPECT_THAT(document["results"], IsEmpty());
    ASSERT_THAT(document["diagnostics"], SizeIs(2));
    EXPECT_EQ(document["diagnostics"][0]["file"], kNfsSettings);
    EXPECT_EQ(document["diagnostics"][1]["rule"], "not-found");
}

// Collects all keys of an object, including those of nested objects.
void CollectKeys(const Json &value, std::set<std::string> &keys) {
    for (const std::string &key : value.Keys()) {
        keys.insert(key);
    }
    for (const Json &inner : value.Elements()) {
        CollectKeys(inner, keys);
    }
}

TEST_F(ServiceFolders, ManualExplainsTheKeysOfTheJsonAboutPorts) {
    WriteFile(kSystem + "a.sc", Section("a", "23/tcp"));
    std::set<std::string> keys;
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{"services", "a", "ssh"},
          {"check", "23"},
          {"check", "--file", kSystem + "a.sc"},
          {"suggest"},
          {"ports"}}) {
        std::vector<std::string> arguments = command;
        arguments.push_back("--json");
        CollectKeys(Json::Parse(ServiceTool(arguments).out)["results"], keys);
    }
    EXPECT_THAT(keys, testing::IsSupersetOf(
                          {"supported", "declared_by", "sections", "verdict", "conflict"}));
    const std::string page = ReadFile(SERVICETOOL_SOURCE "/man/servicetool.1");
    for (const std::string &key : keys) {
        EXPECT_TRUE(HasMatch(page, "\n\\.(It )?Cm ([a-z_]+ , )*([a-z_]+, )*" + key + "( |,|\n)"))
            << key;
    }
}

TEST_F(ServiceFolders, ServicesEscapesNamesAndTexts) {
    WriteFile(kSystem + "a\n\x1b[31m.sc", Section("a", "1", "T\x1b]0;x\x07\xFF"));
    EXPECT_EQ(ServicesNamed("a").out,
              "a  yes  no  1/tcp,udp  system/a\\n\\x1b[31m.sc  T\\x1b]0;x\\x07\\xff\n");
    const std::string document = ServiceTool({"services", "--json", "a"}).out;
    EXPECT_EQ(document.find_first_of("\x1b\x07\xFF"), std::string::npos);
    EXPECT_EQ(Json::Parse(document)["results"][0]["title"], "T\x1b]0;x\x07\\xff");
}

TEST_F(ServiceFolders, ServicesCutsTitlesOnANarrowTerminalOnly) {
    WriteFile(kSystem + "a.sc", Section("a", "1", "A title that is rather long"));
    EXPECT_EQ(ServiceToolOnTerminal({"services", "--no-legend", "a"}, 46),
              "a  yes  no  1/tcp,udp  system/a.sc  A title...\n");
    EXPECT_EQ(ServicesNamed("a").out,
              "a  yes  no  1/tcp,udp  system/a.sc  A title that is rather long\n");
}

TEST_F(ServiceFolders, ServicesShowsTheLibrarysLogWhenAsked) {
    std::filesystem::remove(kNfsSettings);
    EXPECT_THAT(ServiceTool({"services"}).err, Not(HasSubstr("log: ")));
    EXPECT_THAT(ServiceTool({"services", "-v"}).err,
                HasSubstr(" Failed to enum dst ports in firewall services: nfs\n"));
}

}  // namespace
}  // namespace tavo::test
