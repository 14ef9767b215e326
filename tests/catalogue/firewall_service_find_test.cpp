#include <gmock/gmock.h>

#include <cstring>

#include "catalogue_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- One service of a list ----

class ServiceFind : public LibraryTest {
  protected:
    ServiceFind() {
        strcpy(list_[0].szName, "telnet");
        strcpy(list_[1].szName, "ssh");
        strcpy(list_[2].szName, "ssh");
        memset(list_[3].szName, 'n', sizeof(list_[3].szName));
        for (int i = 0; i < 3; ++i) {
            list_[i].pNext = &list_[i + 1];
        }
    }

    TAVO_FW_SERVICE list_[4] = {};
};

TEST_F(ServiceFind, GivesTheFirstOfTheName) {
    EXPECT_EQ(TAVOFWServiceFind(list_, "telnet"), &list_[0]);
    EXPECT_EQ(TAVOFWServiceFind(list_, "ssh"), &list_[1]);
    EXPECT_EQ(TAVOFWServiceFind(&list_[2], "ssh"), &list_[2]);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceFind, ComparesNamesToTheLetter) {
    for (const char *name : {"SSH", "ss", "sshd", " ssh", "", "telne"}) {
        EXPECT_EQ(TAVOFWServiceFind(list_, name), nullptr) << name;
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ServiceFind, AcceptsANameWithoutTerminator) {
    EXPECT_EQ(TAVOFWServiceFind(list_, std::string(255, 'n').c_str()), nullptr);
    EXPECT_EQ(TAVOFWServiceFind(list_, std::string(256, 'n').c_str()), &list_[3]);
    EXPECT_EQ(TAVOFWServiceFind(list_, std::string(257, 'n').c_str()), nullptr);
}

TEST_F(ServiceFind, RejectsNull) {
    EXPECT_EQ(TAVOFWServiceFind(nullptr, "ssh"), nullptr);
    EXPECT_EQ(TAVOFWServiceFind(list_, nullptr), nullptr);
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters", "Bad parameters"));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
}

// ---- The sections of a service ----

constexpr char kTable[] = "/usr/tavo/etc/firewall_service_mapping_table";
constexpr char kFactoryTable[] = "/usr/tavo/etc.defaults/firewall_service_mapping_table";

class SectionNames : public CatalogueTest {
  protected:
    SectionNames() : list_(TLIBCSzListAlloc(1)) {
        WriteFile(kTable, "");
        WriteFile(kFactoryTable, "");
    }

    static void InstallUnit(const std::string &service, const std::string &sections) {
        WriteFile("/etc/systemd/system/" + service + ".service",
                  "[X-TavoFirewall]\nSections=" + sections + "\n");
    }

    static void InstallPackage(const std::string &service, const std::string &contents) {
        WriteFile(std::string(kPackageServices) + "/" + service + ".sc", contents);
    }

    int Ask(const char *service) {
        TLIBCSzList *list = list_.get();
        return TAVOFwSectionNameEnum(service, &list);
    }

    // The sections of the service, in a separate list.
    std::vector<std::string> SectionsOf(const char *service) {
        list_.reset(TLIBCSzListAlloc(1));
        const int count = Ask(service);
        const auto items = Items(list_.get());
        EXPECT_EQ(count, static_cast<int>(items.size()));
        return items;
    }

    Strings list_;
};

TEST_F(SectionNames, ComeFromTheUnitFirst) {
    InstallUnit("web", "u1,u2");
    WriteFile(kTable, "web=t1\n");
    WriteFile(kFactoryTable, "web=f1\n");
    InstallPackage("web", "[p1]\n");
    EXPECT_THAT(SectionsOf("web"), ElementsAre("u1", "u2"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionNames, ComeFromTheMappingTableNext) {
    WriteFile(kTable, "# comment\nother=x\nweb=\"t1,t2\"\n");
    WriteFile(kFactoryTable, "web=f1\n");
    InstallPackage("web", "[p1]\n");
    EXPECT_THAT(SectionsOf("web"), ElementsAre("t1", "t2"));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SectionNames, ComeFromTheFactoryTableWhereTheOtherLacksThem) {
    WriteFile(kFactoryTable, "web=f1,f2\n");
    InstallPackage("web", "[p1]\n");
    for (const char *table : {"", "other=x\n", "web=\n", "web=\"\"\n", "[web]\nweb=x\n"}) {
        WriteFile(kTable, table);
        EXPECT_THAT(SectionsOf("web"), ElementsAre("f1", "f2")) << table;
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SectionNames, ComeFromThePackageInTheEnd) {
    InstallPackage("web", "[global]\nversion=1\n[p2]\n[p1]\n");
    for (const char *table : {"", "web=\n"}) {
        WriteFile(kTable, table);
        WriteFile(kFactoryTable, table);
        EXPECT_THAT(SectionsOf("web"), ElementsAre("global", "p2", "p1"));
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SectionNames, PassOverTablesThatCannotBeRead) {
    MakeUnreadable(kTable);
    WriteFile(kFactoryTable, "web=f1\n");
    EXPECT_THAT(SectionsOf("web"), ElementsAre("f1"));
    std::filesystem::remove(kTable);
    MakeUnreadable(kFactoryTable);
    InstallPackage("web", "[p1]\n");
    EXPECT_THAT(SectionsOf("web"), ElementsAre("p1"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionNames, AreSplitAtCommasOnly) {
    WriteFile(kTable, "web=,a, b,,c d;e,\n");
    EXPECT_THAT(SectionsOf("web"), ElementsAre("a", " b", "c d;e"));
}

TEST_F(SectionNames, AreNoneForCommasAlone) {
    WriteFile(kTable, "web=,,\n");
    WriteFile(kFactoryTable, "web=f1\n");
    EXPECT_THAT(SectionsOf("web"), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionNames, AreCutWithALongValue) {
    const std::string longest(1020, 'a');
    WriteFile(kTable, "web=" + longest + ",bcdef\n");
    EXPECT_THAT(SectionsOf("web"), ElementsAre(longest, "bc"));
}

TEST_F(SectionNames, AreNoneOfAPackageFileWithoutSections) {
    InstallPackage("web", "");
    EXPECT_THAT(SectionsOf("web"), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionNames, CountWhatTheListHeldBefore) {
    TLIBCSzList *list = list_.get();
    ASSERT_EQ(TLIBCSzListPush(&list, "earlier"), 1);
    InstallUnit("unit", "u1");
    WriteFile(kTable, "web=t1,t2\n");
    InstallPackage("pkg", "[p1]\n");
    EXPECT_EQ(Ask("unit"), 2);
    EXPECT_EQ(Ask("web"), 4);
    EXPECT_EQ(Ask("pkg"), 5);
    EXPECT_THAT(Items(list), ElementsAre("earlier", "u1", "t1", "t2", "p1"));
}

TEST_F(SectionNames, FailForAServiceThatNobodyKnows) {
    InstallPackage("web", "[p1]\n");
    for (const char *service : {"other", "WEB", "web.sc", ""}) {
        EXPECT_EQ(Ask(service), -1) << service;
    }
    EXPECT_EQ(Ask(std::string(5000, 'n').c_str()), -1);
    EXPECT_THAT(Items(list_.get()), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0x700U);
}

// A name may be a file system path. A long one must not be truncated to another path.
TEST_F(SectionNames, AreNotThoseOfAPathCutToFit) {
    InstallPackage("web", "[p1]\n");
    const std::string folder = std::string(kPackageServices) + "//";
    const std::string slashes(4095 - folder.size() - strlen("web.sc"), '/');
    EXPECT_EQ(Ask((slashes + "web.sc").c_str()), -1);
    EXPECT_EQ(Ask((slashes + "web").c_str()), 1);
}

TEST_F(SectionNames, FailWhenThePackageFileCannotBeRead) {
    const std::string path = std::string(kPackageServices) + "/web.sc";
    std::filesystem::create_directory(path);
    EXPECT_EQ(Ask("web"), -1);
    EXPECT_EQ(ErrorState(), "0x900 file_text.cpp");
    EXPECT_THAT(Messages(),
                ElementsAre("TLIBCFileEnumSection error, "
                            "szFile=[/usr/local/etc/services.d//web.sc], tavoerr=[0x0900]"));
}

TEST_F(SectionNames, RejectNull) {
    TLIBCSzList *none = nullptr;
    TLIBCSzList *list = list_.get();
    EXPECT_EQ(TAVOFwSectionNameEnum(nullptr, &list), -1);
    EXPECT_EQ(ErrorState(), "0xD00 firewall_service_find.cpp");
    for (TLIBCSzList **bad : {static_cast<TLIBCSzList **>(nullptr), &none}) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOFwSectionNameEnum("web", bad), -1);
        EXPECT_EQ(ErrorState(), "0xD00 firewall_service_find.cpp");
    }
    EXPECT_EQ(none, nullptr);
    EXPECT_THAT(Messages(), IsEmpty());
}

// A source that runs out of memory is skipped or fails; the list never contains a partial answer.
TEST_F(SectionNames, ReportEveryFailedAllocation) {
    InstallUnit("unit", "u1,u2");
    WriteFile(kTable, "web=t1,t2\n");
    InstallPackage("pkg", "[p1]\n[p2]\n");
    for (const char *service : {"unit", "web", "pkg"}) {
        const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
            const Strings list(TLIBCSzListAlloc(1));
            TLIBCSzList *handle = list.get();
            ASSERT_EQ(TLIBCSzListPush(&handle, "earlier"), 1);
            TLIBCErrSetEx(0, nullptr, 0);
            const int count = fail.During([&] { return TAVOFwSectionNameEnum(service, &handle); });
            EXPECT_TRUE(count == -1 || count == 3) << service;
            EXPECT_EQ(TLIBCSzListCount(list.get()), count == -1 ? 1 : 3) << service;
            EXPECT_TRUE(fail.Hit() || count == 3);
            EXPECT_TRUE(count == 3 || TLIBCErrGet() != 0) << service;
        });
        EXPECT_GT(allocations, 2) << service;
    }
}

TEST_F(SectionNames, SayWhenAMappingCannotBeSplit) {
    WriteFile(kTable, "web=t1,t2\n");
    bool said = false;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        fail.During([&] { return Ask("web"); });
        const auto messages = Messages();
        if (!messages.empty()) {
            EXPECT_THAT(messages, ElementsAre("TLIBCStrTok error, tavoerr=[0x0200]"));
            said = true;
        }
    });
    EXPECT_TRUE(said);
}

}  // namespace
}  // namespace tavo::test
