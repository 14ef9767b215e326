// The unit folders of the appliance, emptied for each test. The folder of the system is the host's,
// mounted read-only, so another file system is mounted over it.
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>

#include "failing_allocation.h"
#include "file_support.h"
#include "require_appliance.h"
#include "tavocsystemd.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

using testing::ElementsAre;

constexpr char kLocal[] = "/etc/systemd/system";
constexpr char kSystem[] = "/usr/lib/systemd/system";

const std::string kUnit = "[Unit]\nDescription=Directory server\n\n[X-TavoFirewall]\n";

// The template of the appliance has a unit as an example. This test runs first, before the folder
// is emptied.
TEST(FirewallSectionsOfTheTemplate, NameTheServicesOfTheDirectoryServer) {
    RequireAppliance();
    StringList list;
    EXPECT_SUCCESS(1, TAVOCSystemdFirewallSectionsGet("directory", list.Address()));
    EXPECT_THAT(list.Items(), ElementsAre("ldap", "ldaps"));
}

class FirewallSections : public testing::Test {
  protected:
    FirewallSections() {
        RequireAppliance();
        fs::remove_all(kLocal);
        fs::create_directories(kLocal);
        if (mount("test", kSystem, "tmpfs", 0, nullptr) != 0) {
            throw std::runtime_error("no file system can be laid over the units of the host");
        }
    }
    ~FirewallSections() override { umount(kSystem); }

    static void Install(const std::string &folder, const std::string &text,
                        const std::string &name = "directory.service") {
        WriteFile(folder + "/" + name, text);
    }

    void ExpectKnown(const Strings &sections, const char *service = "directory") const {
        StringList list;
        EXPECT_SUCCESS(1, TAVOCSystemdFirewallSectionsGet(service, list.Address()));
        EXPECT_EQ(list.Items(), sections);
    }

    // The sections are unknown, without an error or with the error `code`; the caller's list is
    // unchanged.
    void ExpectUnknown(const char *service = "directory", unsigned int code = kEarlierCode) const {
        StringList list({"before"});
        const auto [result, error] = ResultAndError(
            [&] { return TAVOCSystemdFirewallSectionsGet(service, list.Address()); });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(error, code);
        EXPECT_THAT(list.Items(), ElementsAre("before"));
    }
};

TEST_F(FirewallSections, AreThoseThatTheUnitNames) {
    Install(kLocal, kUnit + "Sections=ldap,ldaps\n");
    ExpectKnown({"ldap", "ldaps"});
}

TEST_F(FirewallSections, AreFoundInTheUnitsOfTheSystem) {
    Install(kSystem, kUnit + "Sections=ldap\n");
    ExpectKnown({"ldap"});
}

TEST_F(FirewallSections, AreAppendedToTheList) {
    Install(kLocal, kUnit + "Sections=ldap,ldaps\n");
    StringList list({"before", "ldap"});
    EXPECT_SUCCESS(1, TAVOCSystemdFirewallSectionsGet("directory", list.Address()));
    EXPECT_THAT(list.Items(), ElementsAre("before", "ldap", "ldap", "ldaps"));
}

TEST_F(FirewallSections, AreTrimmedAndEmptyOnesLeftOut) {
    Install(kLocal, kUnit + "Sections = \" ldap ,, \tldap-s.1 ,two words, \"\n");
    ExpectKnown({"ldap", "ldap-s.1", "two words"});
}

TEST_F(FirewallSections, AreOfAnyNumberAndLength) {
    Strings sections;
    std::string list;
    for (std::size_t i = 0; i < 5'000; ++i) {
        sections.push_back(std::to_string(i) + std::string(i % 300, 's'));
        list += sections.back() + ",";
    }
    Install(kLocal, kUnit + "Sections=" + list + "\n");
    ExpectKnown(sections);
}

TEST_F(FirewallSections, AreUnknownIfTheUnitNamesNone) {
    for (const char *rest : {"", "Sections=\n", "Sections=\"\"\n", "Sections= , ,\n", "Section=a\n",
                             "sections=a\n", "[Install]\nSections=a\n"}) {
        Install(kLocal, kUnit + rest);
        ExpectUnknown();
    }
    for (const char *unit :
         {"", "Sections=a\n", "[Service]\nSections=a\n", "[x-tavofirewall]\nSections=a\n"}) {
        Install(kLocal, unit);
        ExpectUnknown();
    }
}

TEST_F(FirewallSections, AreThoseOfTheLastLineWithTheKey) {
    Install(kLocal, kUnit + "Sections=a,b\n[Install]\n[X-TavoFirewall]\nSections=c\n");
    ExpectKnown({"c"});
}

TEST_F(FirewallSections, AreUnknownWithoutAUnit) {
    Install(kLocal, kUnit + "Sections=a\n");
    for (const char *service : {"director", "directory.service", "Directory", "other"}) {
        ExpectUnknown(service);
    }
    fs::remove_all("/etc/systemd");
    ExpectUnknown();
}

TEST_F(FirewallSections, AreReadFromTheUnitOnly) {
    Install(kLocal, kUnit + "Sections=a\n", "directory@.service");
    fs::create_directory(kLocal + "/directory.service.d"s);
    Install(kLocal, kUnit + "Sections=a\n", "directory.service.d/firewall.conf");
    ExpectUnknown();
    ExpectUnknown("directory@one");
}

TEST_F(FirewallSections, OfTheLocalUnitHideThoseOfTheSystem) {
    Install(kSystem, kUnit + "Sections=system\n");
    Install(kLocal, kUnit + "Sections=local\n");
    ExpectKnown({"local"});
}

TEST_F(FirewallSections, OfTheSystemAreHiddenByALocalUnitWithoutAny) {
    Install(kSystem, kUnit + "Sections=system\n");
    Install(kLocal, "[Unit]\n");
    ExpectUnknown();
}

TEST_F(FirewallSections, OfTheSystemAreHiddenIfTheServiceIsDisabled) {
    Install(kSystem, kUnit + "Sections=system\n");
    fs::create_symlink("/dev/null", kLocal + "/directory.service"s);
    ExpectUnknown("directory", kUnusableCode);
}

TEST_F(FirewallSections, OfTheSystemAreNotHiddenByADanglingLink) {
    Install(kSystem, kUnit + "Sections=system\n");
    fs::create_symlink("nowhere", kLocal + "/directory.service"s);
    ExpectKnown({"system"});
}

TEST_F(FirewallSections, AreReadThroughALink) {
    Install("/tmp", kUnit + "Sections=a\n");
    fs::create_symlink("/tmp/directory.service", kLocal + "/directory.service"s);
    ExpectKnown({"a"});
}

TEST_F(FirewallSections, CannotBeReadUnlessItIsAFile) {
    fs::create_directory(kLocal + "/directory.service"s);
    ExpectUnknown("directory", kUnusableCode);
    mkfifo((kLocal + "/pipe.service"s).c_str(), 0644);
    ExpectUnknown("pipe", kUnusableCode);
}

TEST_F(FirewallSections, NeverComeFromOutsideTheFolders) {
    Install("/etc/systemd", kUnit + "Sections=a\n");
    fs::create_directory(kLocal + "/folder"s);
    Install(kLocal, kUnit + "Sections=a\n", "folder/directory.service");
    Install(kLocal, kUnit + "Sections=a\n", ".service");
    for (const char *service :
         {"../directory", "folder/directory", "/etc/systemd/directory", "/", "", ".", ".."}) {
        ExpectUnknown(service);
    }
}

TEST_F(FirewallSections, MayHaveTheLongestFileName) {
    const std::string name(255 - 8, 'n');
    Install(kLocal, kUnit + "Sections=a\n", name + ".service");
    ExpectKnown({"a"}, name.c_str());
    ExpectUnknown((name + "n").c_str());
    ExpectUnknown(std::string(100'000, 'n').c_str());
}

TEST_F(FirewallSections, NeedAServiceAndAList) {
    ExpectUnknown(nullptr, kBadParameterCode);
    TLIBCSzList *none = nullptr;
    for (TLIBCSzList **list : {static_cast<TLIBCSzList **>(nullptr), &none}) {
        const auto [result, error] =
            ResultAndError([&] { return TAVOCSystemdFirewallSectionsGet("directory", list); });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(error, kBadParameterCode);
    }
    EXPECT_EQ(none, nullptr);
}

TEST_F(FirewallSections, LeaveTheListUnchangedWhenMemoryRunsOut) {
    Install(kLocal, "#" + std::string(20'000, '#') + "\n" + kUnit + "Sections=a,b,c\n");
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        StringList list({"before"});
        SetEarlierError();
        const int result = fail.During(
            [&] { return TAVOCSystemdFirewallSectionsGet("directory", list.Address()); });
        EXPECT_EQ(result, fail.Hit() ? 0 : 1);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : kEarlierCode);
        EXPECT_EQ(list.Items(),
                  fail.Hit() ? Strings({"before"}) : Strings({"before", "a", "b", "c"}));
    });
    EXPECT_GT(allocations, 6);
}

}  // namespace
}  // namespace tavo::test
