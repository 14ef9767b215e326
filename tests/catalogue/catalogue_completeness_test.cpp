// Whether the catalogue reports to the checks of ports that it is complete.
#include <gmock/gmock.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <map>

#include "catalogue/firewall_service.h"
#include "catalogue_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kBuiltInServices = 12;

std::string Section(const std::string &name, const std::string &ports) {
    return "[" + name + "]\ntitle=T\ndesc=D\ndst.ports=" + ports + "\n";
}

class Catalogue : public CatalogueTest {
  protected:
    static std::string Install(const std::string &name, const std::string &contents) {
        const std::string path = std::string(kPackageServices) + "/" + name;
        WriteFile(path, contents);
        return path;
    }

    // "COUNT services, fault 0xCODE", followed by ", logged" if something was left out.
    static std::string Read() {
        const ServiceCatalogue catalogue = ReadCatalogue();
        char text[64];
        snprintf(text, sizeof(text), "%d services, fault 0x%X%s", catalogue.count,
                 catalogue.report.Fault(), catalogue.report.LeftNothingOut() ? "" : ", logged");
        EXPECT_EQ(Names(catalogue.services.get()).size(),
                  static_cast<std::size_t>(catalogue.count));
        return text;
    }
};

TEST_F(Catalogue, IsCompleteOnASoundAppliance) {
    Install("a.sc", "[global]\nversion=1\n" + Section("a", "80") + Section("b", "81/tcp"));
    EXPECT_EQ(Read(), "14 services, fault 0x0");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(Catalogue, IsCompleteWithoutWhatIsAbsent) {
    std::filesystem::remove_all(kPackageServices);
    EXPECT_EQ(Read(), "12 services, fault 0x0") << "a folder";
    WriteFile(kPackageServices, "x");
    EXPECT_EQ(Read(), "12 services, fault 0x0") << "a folder with a file in its place";
    std::filesystem::remove(kPackageServices);
    std::filesystem::create_directory(kPackageServices);
    std::filesystem::create_symlink("/nowhere", std::string(kPackageServices) + "/dangling.sc");
    EXPECT_EQ(Read(), "12 services, fault 0x0, logged") << "what a link leads to";
    std::filesystem::remove(kNfsSettings);
    EXPECT_EQ(Read(), "11 services, fault 0x0, logged") << "settings of a built-in service";
}

TEST_F(Catalogue, IsCompleteWithoutWhatIsInvalid) {
    const std::string sound = Section("sound", "80");
    const std::map<std::string, std::string> files = {
        {"no section at all", "x=1\n"},
        {"[global] only", "[global]\nversion=1\n"},
        {"an empty [global]", "[global]\n" + sound},
        {"an empty section", "[a]\n" + sound},
        {"a bad name", Section("a b", "80") + sound},
        {"no title", "[a]\ndesc=D\ndst.ports=80\n" + sound},
        {"no description", "[a]\ntitle=T\ndst.ports=80\n" + sound},
        {"no ports", "[a]\ntitle=T\ndesc=D\n" + sound},
        {"bad ports", Section("a", "80x") + sound},
        {"no port", Section("a", "80,") + sound},
        {"a bad protocol", Section("a", "80/sctp") + sound},
        {"bad source ports", Section("a", "80") + "src.ports=x\n" + sound},
        {"a binary file", std::string("\0\x7f[", 3)},
    };
    for (const auto &[what, contents] : files) {
        Install("a.sc", contents);
        EXPECT_THAT(Read(), testing::HasSubstr("services, fault 0x0, logged")) << what;
    }
}

TEST_F(Catalogue, IsCompleteWithoutWhatIsNoFile) {
    const std::string folder = kPackageServices;
    std::filesystem::create_symlink("/etc", folder + "/folder.sc");
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    std::filesystem::create_symlink("/tmp/pipe", folder + "/pipe.sc");
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {AF_UNIX, "/tmp/listener"};
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    std::filesystem::create_symlink("/tmp/listener", folder + "/listener.sc");
    std::filesystem::create_symlink("loop.sc", folder + "/loop.sc");
    EXPECT_EQ(Read(), "12 services, fault 0x0, logged");
    close(listener);
}

TEST_F(Catalogue, IsCompleteWithoutABadSetting) {
    WriteFile(kNfsSettings, "nfs_custom_port_enable=yes\nstatd_port=1\n");
    TLIBCErrSetEx(0x200, "caller.cpp", 1);
    EXPECT_EQ(Read(), "11 services, fault 0x0, logged") << "the caller's code does not count";
    WriteFile(kSettings, "ftpport=x\n");
    EXPECT_EQ(Read(), "10 services, fault 0x0, logged");
    WriteFile(kSshSettings, "Port x\n");
    EXPECT_EQ(Read(), "9 services, fault 0x0, logged");
}

// No descriptor is left to open them.
TEST_F(Catalogue, IsIncompleteWhenFilesCannotBeOpened) {
    Install("a.sc", Section("a", "80"));
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(0);
    close(next);
    for (const auto &[descriptors, expected] : std::map<int, const char *>{
             {0, "9 services, fault 0x900, logged"}, {1, "13 services, fault 0x0"}}) {
        const rlimit few = {static_cast<rlim_t>(next + descriptors), before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        const std::string found = Read();
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_EQ(found, expected);
    }
}

TEST_F(Catalogue, IsIncompleteWhenAProviderFailsForItsSettingsAreNoFile) {
    MakeUnreadable(kSshSettings);
    EXPECT_EQ(Read(), "11 services, fault 0x900, logged");
}

TEST_F(Catalogue, LeavesTheErrorStateOfTheCallerAloneOnSuccess) {
    TLIBCErrSetEx(0x123, "caller.cpp", 7);
    EXPECT_EQ(Read(), "12 services, fault 0x0");
    EXPECT_EQ(ErrorState(), "0x123 caller.cpp");
    EXPECT_EQ(TLIBCErrorGetLine(), 7);
}

TEST_F(Catalogue, ShowsTheCodeOfAPortThatIsAbsent) {
    for (const char *ports : {"", "statd_port=\n", "statd_port=1\n", "statd_port=1\nnlm_port=\n"}) {
        WriteFile(kNfsSettings, std::string("nfs_custom_port_enable=yes\n") + ports);
        TLIBCErrSetEx(0x123, "caller.cpp", 1);
        log_.Clear();
        TLIBCSzList *list = nullptr;
        EXPECT_EQ(TAVOFwPortsNFS(&list), -1);
        EXPECT_EQ(ErrorState(), "0xD00 firewall_service_register.cpp") << ports;
        EXPECT_THAT(Messages().front(), testing::EndsWith("port', errno=0xD00")) << ports;
    }
}

TEST_F(Catalogue, IsIncompleteForEveryServiceThatMemoryRunsOutFor) {
    Install("a.sc", "[global]\nsupport_key=k\nrun_key=r\n" + Section("a", "80,90:99/tcp") +
                        "title_key=x:y:z\nsrc.ports=1\n" + Section("b", "81"));
    WriteFile(std::string(kSystemServices) + "/c.sc", Section("c", "1:2/tcp"));
    WriteFile(kNfsSettings, "nfs_custom_port_enable=yes\nstatd_port=1\nnlm_port=2\n");
    int incomplete = 0;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        const ServiceCatalogue catalogue = fail.During([] { return ReadCatalogue(); });
        const unsigned int fault = catalogue.report.Fault();
        const bool whole = catalogue.count == kBuiltInServices + 3;
        EXPECT_TRUE(whole || fault == 0x200U) << catalogue.count;
        EXPECT_TRUE(whole || !catalogue.report.LeftNothingOut());
        EXPECT_TRUE(fault == 0 || fault == 0x200U) << fault;
        EXPECT_TRUE(fail.Hit() || (whole && fault == 0));
        incomplete += whole ? 0 : 1;
    });
    EXPECT_GT(incomplete, 100);
}

// ---- Origins ----

// "FILE: SECTION,SECTION" for each file, in reading order; a file's sections are in reverse order.
std::vector<std::string> SectionsByFile(const ReadingReport &report) {
    std::vector<std::string> texts;
    for (const ServiceFileRecord &file : report.Files()) {
        std::string text = file.path + std::string(":");
        const auto *section = file.conf == nullptr ? nullptr : file.conf->pSections;
        for (; section != nullptr; section = section->pNext) {
            text += std::string(" ") + section->szName;
        }
        texts.push_back(text);
    }
    return texts;
}

TEST_F(Catalogue, HasTheBuiltInServicesAndTheSectionsOfEachFile) {
    const std::string path = Install("a.sc", Section("a", "80") + Section("b", "81"));
    const std::string bad = Install("b.sc", "x\n");
    const std::string last = Install("c.sc", Section("a", "90"));
    WriteFile(std::string(kSystemServices) + "/a.sc", Section("a", "1"));
    const DeclaredServices declared = ReadDeclaredServices();
    EXPECT_THAT(SectionsByFile(declared.report),
                ElementsAre(std::string(kSystemServices) + "/a.sc: a", path + ": b a", bad + ":",
                            last + ": a"));
    const std::vector<std::string> built_in = Names(declared.built_in.get());
    EXPECT_EQ(built_in.size(), static_cast<std::size_t>(kBuiltInServices));
    EXPECT_EQ(built_in.front(), "ipp");
    EXPECT_EQ(built_in.back(), "telnet");
}

// Keeps one line for each visited file.
void KeepLine(void *lines, const ServiceFileRecord &file) {
    static_cast<std::vector<std::string> *>(lines)->push_back(file.path + std::string(": ") +
                                                              file.conf->pSections->szName);
}

TEST_F(Catalogue, PassesEachFileToTheVisitorAndKeepsNone) {
    const std::string a = Install("a.sc", Section("a", "80"));
    const std::string bad = Install("b.sc", Section("b", "80x"));
    const std::string c = Install("c.sc", Section("c", "81") + Section("d e", "82"));
    std::vector<std::string> lines;
    const FileVisitor visitor = {KeepLine, &lines};
    const DeclaredServices declared = ReadDeclaredServices(&visitor);
    EXPECT_THAT(lines, ElementsAre(a + ": a", c + ": c"));
    EXPECT_EQ(declared.files, nullptr);
    EXPECT_THAT(SectionsByFile(declared.report), ElementsAre(a + ":", bad + ":", c + ":"));
    EXPECT_EQ(declared.report.Omissions().Count(), 3U);
    EXPECT_THAT(Messages(), testing::Not(testing::Contains(testing::HasSubstr("Bad parameters"))));
}

TEST_F(Catalogue, ListsEveryFileThatWasTried) {
    Install("b.sc", "x\n");
    Install("a.sc", "[global]\nversion=3\n" + Section("a", "80"));
    const DeclaredServices declared = ReadDeclaredServices();
    ASSERT_EQ(declared.report.Files().Count(), 2U);
    const ServiceFileRecord &good = declared.report.Files()[0];
    EXPECT_EQ(good.path, std::string(kPackageServices) + "/a.sc");
    EXPECT_EQ(good.folder->selector, TAVO_SERVICE_CONF_DIR_PACKAGE);
    EXPECT_EQ(good.conf->nVersion, 3);
    EXPECT_EQ(declared.report.Files()[1].conf, nullptr);
}

// The omissions, as "row NAME", "FILE", "FILE [SECTION]" or "FOLDER", with the error code.
std::vector<std::string> Omissions(const ReadingReport &report) {
    std::vector<std::string> omissions;
    for (const LeftOut &one : report.Omissions()) {
        const std::string section =
            one.section == nullptr ? "" : " [" + std::string(one.section) + "]";
        const std::string what = one.row != nullptr    ? std::string("row ") + one.row->szName
                                 : one.path != nullptr ? one.path + section
                                                       : one.folder->path;
        char code[16];
        snprintf(code, sizeof(code), " 0x%X", one.reading.Fault());
        omissions.push_back(what + code);
    }
    return omissions;
}

TEST_F(Catalogue, SaysWhatIsLeftOutAndWhetherItIsUnknown) {
    WriteFile(kNfsSettings, "nfs_custom_port_enable=yes\nstatd_port=1\n");
    MakeUnreadable(kSshSettings);
    const std::string a = Install("a.sc", Section("a b", "80") + "[bare]\n" + Section("a", "80"));
    const std::string b = Install("b.sc", "[c]\ntitle=T\n");
    const std::string d = Install("d.sc", "x\n");
    EXPECT_THAT(Omissions(ReadCatalogue().report),
                ElementsAre("row ssh 0x900", "row nfs 0x0", a + " [a b] 0x0", a + " [bare] 0x0",
                            b + " [c] 0x0", b + " 0x0", d + " 0x0"));
}

// No descriptor is left to open it.
TEST_F(Catalogue, SaysWhichFolderCannotBeListed) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(0);
    close(next);
    const rlimit none = {static_cast<rlim_t>(next), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const ServiceCatalogue catalogue = ReadCatalogue();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_THAT(Omissions(catalogue.report),
                ElementsAre("row ssh 0x900", "row nfs 0x900", "row ftp 0x900",
                            kSystemServices + std::string(" 0x2A00"),
                            kPackageServices + std::string(" 0x2A00")));
}

// The number of services that the report leads to.
std::size_t CountServices(const DeclaredServices &declared) {
    std::size_t count = Names(declared.built_in.get()).size();
    for (const ServiceFileRecord &file : declared.report.Files()) {
        const auto *section = file.conf == nullptr ? nullptr : file.conf->pSections;
        for (; section != nullptr; section = section->pNext) {
            ++count;
        }
    }
    return count;
}

TEST_F(Catalogue, LacksNoDeclaredServiceUnlessItReportsThatMemoryRanOut) {
    Install("a.sc", Section("a", "80") + "[bare]\n");
    int incomplete = 0;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        const DeclaredServices declared = fail.During([] { return ReadDeclaredServices(); });
        const bool whole = CountServices(declared) == kBuiltInServices + 1U;
        EXPECT_TRUE(whole || declared.report.Fault() == 0x200U);
        incomplete += whole ? 0 : 1;
    });
    EXPECT_GT(incomplete, 0);
}

}  // namespace
}  // namespace tavo::test
