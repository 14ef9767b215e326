// The fixed folders of the appliance, filled again for each test.
#include <gmock/gmock.h>

#include <dirent.h>
#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "appliance.h"
#include "failing_allocation.h"
#include "library_test.h"
#include "open_counter.h"
#include "temporary_folder.h"

namespace {

// Some file systems do not report the type of a directory entry; it is then read with stat.
bool g_types_are_reported = true;

using Filter = int (*)(const dirent *);
using Compare = int (*)(const dirent **, const dirent **);

}  // namespace

extern "C" __attribute__((visibility("default"))) int scandir(const char *folder, dirent ***entries,
                                                              Filter filter, Compare compare) {
    static const auto next = reinterpret_cast<decltype(&scandir)>(dlsym(RTLD_NEXT, "scandir"));
    const int count = next(folder, entries, filter, compare);
    for (int i = 0; i < count && !g_types_are_reported; ++i) {
        (*entries)[i]->d_type = DT_UNKNOWN;
    }
    return count;
}

namespace tavo::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char *kSystem = kSystemServices;
constexpr const char *kPackage = kPackageServices;

std::string Service(const std::string &name) {
    return "[" + name + "]\ntitle=T\ndesc=D\ndst.ports=80/tcp\n";
}

class ConfEnum : public LibraryTest, protected Appliance {
  protected:
    ~ConfEnum() override { TAVOServiceConfFree(list_); }

    static void Install(const std::string &folder, const std::string &name,
                        const std::string &contents) {
        WriteFile(folder + "/" + name, contents);
    }

    // The first section of each file, starting at the head of the list.
    std::vector<std::string> FirstSections() const {
        std::vector<std::string> names;
        for (const auto *conf = list_; conf != nullptr; conf = conf->pNext) {
            names.emplace_back(conf->pSections->szName);
        }
        return names;
    }

    TAVO_SERVICE_CONF *list_ = nullptr;
};

TEST_F(ConfEnum, ReadsBothFoldersPackageFilesInFront) {
    Install(kSystem, "a.sc", Service("a"));
    Install(kSystem, "b.sc", Service("b"));
    Install(kPackage, "c.sc", Service("c"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 3), 3);
    EXPECT_THAT(FirstSections(), ElementsAre("c", "b", "a"));
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfEnum, ReadsOneFolder) {
    Install(kSystem, "a.sc", Service("a"));
    Install(kPackage, "c.sc", Service("c"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, TAVO_SERVICE_CONF_DIR_SYSTEM), 1);
    EXPECT_THAT(FirstSections(), ElementsAre("a"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, TAVO_SERVICE_CONF_DIR_PACKAGE), 1);
    EXPECT_THAT(FirstSections(), ElementsAre("c", "a"));
}

TEST_F(ConfEnum, IgnoresOtherBitsOfTheSelector) {
    Install(kSystem, "a.sc", Service("a"));
    Install(kPackage, "c.sc", Service("c"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 4 | TAVO_SERVICE_CONF_DIR_SYSTEM), 1);
    EXPECT_EQ(TAVOServiceConfEnum(&list_, -1), 2);
}

TEST_F(ConfEnum, RejectsASelectorWithoutAFolderAndNull) {
    Install(kSystem, "a.sc", Service("a"));
    for (int selector : {0, 4, 8, -4}) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceConfEnum(&list_, selector), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_enum.cpp");
    }
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOServiceConfEnum(nullptr, 3), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_enum.cpp");
    EXPECT_EQ(list_, nullptr);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfEnum, TriesEveryFileWhateverItsName) {
    Install(kSystem, "no extension", Service("a"));
    Install(kSystem, ".hidden", Service("b"));
    Install(kSystem, "notes.txt", "just text\n");
    Install(kSystem, "empty.sc", "");
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 2);
    EXPECT_THAT(FirstSections(), ElementsAre("a", "b"));
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to TLIBCFileEnumSection /usr/tavo/etc/services.d/empty.sc"
                            "(ret: 0) or 0 section, tavoerr=[0x0000 :N]",
                            "Failed to TLIBCFileEnumSection /usr/tavo/etc/services.d/notes.txt"
                            "(ret: 0) or 0 section, tavoerr=[0x0000 :N]"));
}

TEST_F(ConfEnum, SortsByName) {
    for (const char *name : {"z.sc", "B.sc", "a.sc", "10.sc", "9.sc"}) {
        Install(kPackage, name, Service(std::string(name, strcspn(name, "."))));
    }
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 2), 5);
    EXPECT_THAT(FirstSections(), ElementsAre("z", "a", "B", "9", "10"));
}

TEST_F(ConfEnum, FollowsLinksToFiles) {
    Install("/usr/local", "web.sc", Service("linked"));
    ASSERT_EQ(symlink("../../web.sc", (std::string(kPackage) + "/web.sc").c_str()), 0);
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 2), 1);
    EXPECT_THAT(FirstSections(), ElementsAre("linked"));
}

TEST_F(ConfEnum, SkipsFoldersPipesAndSockets) {
    Install(kSystem, "good.sc", Service("good"));
    const std::string folder = std::string(kSystem) + "/folder.sc";
    const std::string pipe = std::string(kSystem) + "/pipe.sc";
    ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
    Install(folder, "inner.sc", Service("inner"));
    ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s/socket.sc", kSystem);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 1);
    EXPECT_THAT(FirstSections(), ElementsAre("good"));
    EXPECT_THAT(Messages(), IsEmpty());
    close(fd);
}

TEST_F(ConfEnum, IsNotStoppedByWhatALinkLeadsTo) {
    Install(kSystem, "a.sc", Service("a"));
    Install(kSystem, "z.sc", Service("z"));
    ASSERT_EQ(mkfifo("/tmp/pipe", 0644), 0);
    const std::pair<const char *, const char *> links[] = {
        {"/tmp/pipe", "m-pipe.sc"}, {"/dev/zero", "m-device.sc"},  {"/dev/log", "m-socket.sc"},
        {"/etc", "m-folder.sc"},    {"/nowhere", "m-dangling.sc"}, {"m-loop.sc", "m-loop.sc"}};
    for (const auto &[target, name] : links) {
        ASSERT_EQ(symlink(target, (std::string(kSystem) + "/" + name).c_str()), 0);
    }
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 2);
    EXPECT_THAT(FirstSections(), ElementsAre("z", "a"));
    EXPECT_EQ(Messages().size(), 6U);
    EXPECT_THAT(Messages(),
                Each(StartsWith("Failed to TLIBCFileEnumSection /usr/tavo/etc/services.d/m-")));
}

TEST_F(ConfEnum, CountsAnEmptyFolderAsNothing) {
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 3), 0);
    EXPECT_EQ(list_, nullptr);
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ConfEnum, CountsAMissingFolderAsNothingAndLeavesItsError) {
    std::filesystem::remove_all(kPackage);
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 2), 0);
    EXPECT_EQ(ErrorState(), "0x2A00 service_conf_enum.cpp");
    Install(kSystem, "a.sc", Service("a"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 3), 1);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfEnum, CountsAFileInPlaceOfTheFolderAsNothing) {
    std::filesystem::remove_all(kPackage);
    WriteFile(kPackage, Service("a"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 2), 0);
    EXPECT_EQ(ErrorState(), "0x2A00 service_conf_enum.cpp");
}

TEST_F(ConfEnum, SkipsEntriesWhoseTypeTheFileSystemDoesNotReport) {
    Install(kSystem, "a.sc", Service("a"));
    g_types_are_reported = false;
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 0);
    g_types_are_reported = true;
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 1);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfEnum, StillReadsPackagesWithoutTheSystemFolder) {
    std::filesystem::remove_all(kSystem);
    Install(kPackage, "c.sc", Service("c"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 3), 1);
    EXPECT_THAT(FirstSections(), ElementsAre("c"));
    EXPECT_EQ(ErrorState(), "0x2A00 service_conf_enum.cpp");
}

TEST_F(ConfEnum, PutsFilesInFrontOfWhatTheListHolds) {
    Install(kSystem, "a.sc", Service("a"));
    ASSERT_EQ(TAVOServiceConfEnum(&list_, 1), 1);
    ASSERT_EQ(TAVOServiceConfEnum(&list_, 1), 1);
    EXPECT_THAT(FirstSections(), ElementsAre("a", "a"));
}

TEST_F(ConfEnum, ReadsNamesThatNeedCare) {
    Install(kSystem, "two words\nand a line.sc", Service("odd"));
    Install(kSystem, "\xff\xfe.sc", Service("bytes"));
    Install(kSystem, std::string(252, 'n') + ".sc", Service("long"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 3);
}

TEST_F(ConfEnum, OpensEachFileOnce) {
    for (const char *name : {"a.sc", "b.sc", "c.sc"}) {
        Install(kSystem, name, Service("s") + Service("t"));
    }
    for (const char *name : {"a.sc", "b.sc", "c.sc"}) {
        const std::string path = std::string(kSystem) + "/" + name;
        const int opens = CountOpens(path.c_str(), [&] { TAVOServiceConfEnum(&list_, 1); });
        EXPECT_EQ(opens, 1) << name;
    }
}

TEST_F(ConfEnum, ReadsTheFilesAfterOneThatCannotBeHeld) {
    Install(kSystem, "a.sc", Service("a"));
    std::filesystem::create_symlink("missing", std::string(kSystem) + "/b.sc");
    std::filesystem::create_symlink("a.sc", std::string(kSystem) + "/c.sc");
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 2);
    EXPECT_THAT(FirstSections(), ElementsAre("a", "a"));
}

TEST_F(ConfEnum, LeavesTheFileThatTheCallerHolds) {
    const std::string held = std::string(kSystem) + "/b.sc";
    for (const char *name : {"a.sc", "b.sc", "c.sc"}) {
        Install(kSystem, name, Service("old"));
    }
    ASSERT_EQ(TLIBCFileHold(held.c_str()), 0);
    Install(kSystem, "b.sc", Service("new"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 3);
    EXPECT_THAT(FirstSections(), Each("old"));
    EXPECT_EQ(TLIBCFileHold(held.c_str()), -1);
    TLIBCFileRelease();
}

TEST_F(ConfEnum, HoldsNoFileWhenItReturns) {
    Install(kSystem, "a.sc", Service("a"));
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 1), 1);
    EXPECT_EQ(TLIBCFileHold((std::string(kSystem) + "/a.sc").c_str()), 0);
    TLIBCFileRelease();
}

TEST_F(ConfEnum, ReportsEveryFailedAllocation) {
    Install(kSystem, "a.sc", Service("a"));
    Install(kPackage, "b.sc", Service("b"));
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TAVO_SERVICE_CONF *list = nullptr;
        TLIBCErrSetEx(0, nullptr, 0);
        const int files = fail.During([&] { return TAVOServiceConfEnum(&list, 3); });
        int records = 0;
        for (const auto *conf = list; conf != nullptr; conf = conf->pNext) {
            ++records;
        }
        EXPECT_EQ(files, records);
        // A file that cannot be held is read anyway.
        EXPECT_TRUE(fail.Hit() || files == 2);
        EXPECT_EQ(TLIBCErrGet() == 0, files == 2);
        EXPECT_TRUE(files == 2 || TLIBCErrGet() == 0x200U || TLIBCErrGet() == 0x2A00U);
        TAVOServiceConfFree(list);
    });
    EXPECT_GT(allocations, 20);
}

TEST_F(ConfEnum, ReadsAThousandFilesOfFiveSections) {
    for (int file = 0; file < 1000; ++file) {
        std::string text;
        for (int section = 0; section < 5; ++section) {
            text += Service("s" + std::to_string(file) + "-" + std::to_string(section));
        }
        Install(kPackage, "f" + std::to_string(file) + ".sc", text);
    }
    EXPECT_EQ(TAVOServiceConfEnum(&list_, 2), 1000);
    for (const auto *conf = list_; conf != nullptr; conf = conf->pNext) {
        ASSERT_EQ(Names(conf->pSections).size(), 5U);
    }
}

}  // namespace
}  // namespace tavo::test
