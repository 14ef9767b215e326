// Tests removing, copying and moving paths, and the side copies of stores.
#include <sys/mount.h>

#include <cstring>

#include "failing_allocation.h"
#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- Removing ----

class PathRemoval : public ServiceFilesTest {
  protected:
    PathRemoval() { MakeFolder("/packages/folder"); }
};

TEST_F(PathRemoval, TakesAFileOrAFolderWithAllInIt) {
    const Programs programs;
    WriteFile("/packages/file", "");
    EXPECT_EQ(RemovePath("/packages/file"), 0);
    EXPECT_EQ(RemovePath("/packages/folder"), 0);
    EXPECT_THAT(Entries("/packages"), IsEmpty());
    EXPECT_THAT(programs.Run(),
                ElementsAre("/bin/rm -rf /packages/file", "/bin/rm -rf /packages/folder"));
}

TEST_F(PathRemoval, TakesALinkAndNotWhatItLeadsTo) {
    WriteFile("/packages/file", "");
    std::filesystem::create_symlink("/packages/file", "/packages/link");
    std::filesystem::create_symlink("/packages/folder", "/packages/link2");
    EXPECT_EQ(RemovePath("/packages/link"), 0);
    EXPECT_EQ(RemovePath("/packages/link2"), 0);
    EXPECT_THAT(Entries("/packages"), ElementsAre("file", "folder"));
    EXPECT_THAT(Entries("/packages/folder"), ElementsAre("file", "sub"));
}

TEST_F(PathRemoval, TakesNoPathForAnOption) {
    ASSERT_EQ(chdir("/packages"), 0);
    MakeFolder("-i");
    for (const char *path : {"--help", "-i"}) {
        std::filesystem::create_directory(path);
        EXPECT_EQ(RemovePath(path), 0);
        EXPECT_THAT(Entries("/packages"), testing::Not(testing::Contains(path)));
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PathRemoval, LeavesEverythingElse) {
    MakeSocket("/packages/socket");
    ASSERT_EQ(mkfifo("/packages/pipe", 0600), 0);
    std::filesystem::create_symlink("/packages/pipe", "/packages/link to pipe");
    std::filesystem::create_symlink("/nowhere", "/packages/link to nothing");
    const Lines before = Tree("/packages");
    const Programs programs;
    for (const char *path : {"/packages/socket", "/packages/pipe", "/packages/link to pipe",
                             "/packages/link to nothing", "/packages/nothing", "/dev/null"}) {
        EXPECT_EQ(RemovePath(path), 0) << path;
    }
    EXPECT_EQ(Tree("/packages"), before);
    EXPECT_THAT(programs.Run(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(PathRemoval, NeedsAPath) {
    for (const char *path : {static_cast<const char *>(nullptr), ""}) {
        StartAnew();
        EXPECT_EQ(RemovePath(path), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_common.cpp");
        EXPECT_THAT(Messages(), IsEmpty());
    }
}

TEST_F(PathRemoval, FailsWhereRmCannotBeRunAndNotWhereItFails) {
    {
        Programs programs;
        programs.Answer("/bin/rm", 1);
        EXPECT_EQ(RemovePath("/packages/folder"), 0);
        EXPECT_THAT(Messages(), IsEmpty());
    }
    std::filesystem::remove("/bin/rm");
    EXPECT_EQ(RemovePath("/packages/folder"), -1);
    EXPECT_THAT(Messages(), ElementsAre("Failed to rm -rf /packages/folder[0x0700 exec.cpp:N]"));
    EXPECT_THAT(Entries("/packages"), ElementsAre("folder"));
}

// ---- Copying and moving ----

// Mounts a file system on a folder.
class Mounted {
  public:
    explicit Mounted(const char *folder) : folder_(folder) {
        EXPECT_EQ(mount("tmpfs", folder, "tmpfs", 0, "size=1m"), 0);
    }
    ~Mounted() { umount2(folder_, MNT_DETACH); }
    Mounted(const Mounted &) = delete;
    Mounted &operator=(const Mounted &) = delete;

  private:
    const char *folder_;
};

class PathCopy : public ServiceFilesTest {
  protected:
    PathCopy() {
        MakeFolder("/packages/folder");
        WriteFile("/packages/file", "file");
    }
};

TEST_F(PathCopy, ReplacesItsTarget) {
    MakeFolder("/packages/target");
    WriteFile("/packages/target/old", "old");
    const Programs programs;
    EXPECT_EQ(CopyOrMovePath("/packages/folder", "/packages/target", 0), 0);
    EXPECT_THAT(Entries("/packages/target"), ElementsAre("file", "sub")) << "never merged";
    EXPECT_EQ(ReadFile("/packages/target/sub/file"), "below /packages/folder");
    EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/target", 0), 0);
    EXPECT_EQ(ReadFile("/packages/target"), "file");
    EXPECT_THAT(Entries("/packages"), ElementsAre("file", "folder", "target"));
    EXPECT_THAT(
        programs.Run(),
        ElementsAre("/bin/rm -rf /packages/target", "/bin/cp -rf /packages/folder /packages/target",
                    "/bin/rm -rf /packages/target", "/bin/cp -rf /packages/file /packages/target"));
}

TEST_F(PathCopy, OrMovesTheSource) {
    MakeFolder("/packages/target");
    const Programs programs;
    EXPECT_EQ(CopyOrMovePath("/packages/folder", "/packages/target", 1), 0);
    EXPECT_EQ(ReadFile("/packages/target/sub/file"), "below /packages/folder");
    EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/other", -1), 0);
    EXPECT_EQ(ReadFile("/packages/other"), "file");
    EXPECT_THAT(Entries("/packages"), ElementsAre("other", "target"));
    EXPECT_THAT(programs.Run(), ElementsAre("/bin/rm -rf /packages/target",
                                            "/bin/mv -f /packages/folder /packages/target",
                                            "/bin/mv -f /packages/file /packages/other"));
}

TEST_F(PathCopy, TrimsBlanksAroundBothPaths) {
    EXPECT_EQ(CopyOrMovePath(" \t/packages/file\n", "\t/packages/my copy \n", 0), 0);
    EXPECT_EQ(ReadFile("/packages/my copy"), "file");
    EXPECT_EQ(CopyOrMovePath("/packages/folder", "/packages/with slash/", 0), 0);
    EXPECT_EQ(ReadFile("/packages/with slash/file"), "in /packages/folder");
}

TEST_F(PathCopy, TakesNoPathForAnOption) {
    ASSERT_EQ(chdir("/packages"), 0);
    WriteFile("-t", "changed");
    EXPECT_EQ(CopyOrMovePath("file", " -t", 0), 0);
    EXPECT_EQ(ReadFile("-t"), "file");
    EXPECT_EQ(CopyOrMovePath(" -t", "--help", 0), 0);
    EXPECT_EQ(CopyOrMovePath("--help", "--version", 1), 0);
    EXPECT_EQ(ReadFile("--version"), "file");
    EXPECT_THAT(Entries("/packages"), ElementsAre("--version", "-t", "file", "folder"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PathCopy, NeedsTwoPaths) {
    const std::pair<const char *, const char *> cases[] = {
        {nullptr, "/packages/target"}, {"", "/packages/target"}, {" \t", "/packages/target"},
        {"/packages/file", nullptr},   {"/packages/file", ""},   {"/packages/file", " \n"}};
    for (const auto &[source, target] : cases) {
        StartAnew();
        EXPECT_EQ(CopyOrMovePath(source, target, 0), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_common.cpp");
        EXPECT_THAT(Messages(), IsEmpty());
    }
}

TEST_F(PathCopy, NeedsAFolderOrAFileAsItsSource) {
    ASSERT_EQ(mkfifo("/packages/pipe", 0600), 0);
    WriteFile("/packages/target", "target");
    for (const char *source : {"/packages/pipe", "/packages/nothing", "/dev/null"}) {
        StartAnew();
        EXPECT_EQ(CopyOrMovePath((std::string(" ") + source).c_str(), "/packages/target", 1), -1);
        EXPECT_EQ(ErrorState(), "0x600 service_conf_common.cpp");
        EXPECT_THAT(Messages(),
                    ElementsAre("Source path is not valid (src path: " + std::string(source) +
                                ")[0x0600 service_conf_common.cpp:N]"));
    }
    EXPECT_EQ(ReadFile("/packages/target"), "target");
}

TEST_F(PathCopy, PutsNoFileInPlaceOfAFolder) {
    MakeFolder("/packages/target");
    const Programs programs;
    TLIBCErrSetEx(0x123, "before.cpp", 1);
    EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/target/ ", 0), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("source/target must both be folder or file[0x0123 before.cpp:N]"))
        << "the line shows the error from before";
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_common.cpp");
    EXPECT_THAT(programs.Run(), IsEmpty());
}

TEST_F(PathCopy, FailsWhereBlanksCannotBeTrimmed) {
    TLIBCErrSetEx(0x123, "before.cpp", 1);
    for (const char *path : {"/packages/file", "/packages/target"}) {
        const Failing trim("TLIBCStrTrimSpace", path);
        EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/target", 0), -1);
    }
    EXPECT_THAT(Messages(), ElementsAre("TLIBCStrTrimSpace() failed![0x0123 before.cpp:N]",
                                        "TLIBCStrTrimSpace() failed![0x0123 before.cpp:N]"));
    EXPECT_FALSE(std::filesystem::exists("/packages/target"));
}

TEST_F(PathCopy, FailsWhereAProgramCannotBeRun) {
    WriteFile("/packages/target", "target");
    for (const char *program : {"/bin/cp", "/bin/mv", "/bin/rm"}) {
        std::filesystem::remove(program);
    }
    EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/target", 0), -1);
    EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/new", 0), -1);
    EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/new", 1), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to rm -rf /packages/target[0x0700 exec.cpp:N]",
                            "Failed to rm -rf /packages/target[0x0700 exec.cpp:N]",
                            "Failed to cp -rf /packages/file /packages/new[0x0700 exec.cpp:N]",
                            "Failed to mv -f /packages/file /packages/new[0x0700 exec.cpp:N]"));
    EXPECT_EQ(ErrorState(), "0x700 exec.cpp");
    EXPECT_EQ(ReadFile("/packages/target"), "target");
}

TEST_F(PathCopy, TakesNoNoticeOfAProgramThatFails) {
    Programs programs;
    programs.Answer("/bin/cp", 1);
    programs.Answer("/bin/mv", 1);
    EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/target", 0), 0);
    EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/target", 1), 0);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PathCopy, PutsNothingIntoAFolderThatCannotBeRemoved) {
    Programs programs;
    programs.Answer("/bin/rm", 1);
    const Lines before = Tree("/packages");
    for (const int move : {0, 1}) {
        EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/folder", move), -1);
        EXPECT_EQ(Tree("/packages"), before);
    }
    EXPECT_THAT(Messages(), testing::Each("Failed to rm -rf /packages/folder[0x0000 :N]"));
}

TEST_F(PathCopy, ReplacesALinkToAMountPoint) {
    const std::string place = "/packages/place";
    for (const int move : {0, 1}) {
        std::filesystem::create_directory(place);
        const Mounted mounted(place.c_str());
        WriteFile(place + "/inside", "");
        std::filesystem::create_directory_symlink(place, "/packages/link");
        EXPECT_EQ(CopyOrMovePath("/packages/file", "/packages/link", move), 0);
        EXPECT_EQ(ReadFile("/packages/link"), "file");
        EXPECT_THAT(Entries(place), ElementsAre("inside"));
        std::filesystem::rename("/packages/link", "/packages/file");
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PathCopy, FailsWhenMemoryRunsOut) {
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const int result =
            fail.During([] { return CopyOrMovePath("/packages/file", "/packages/target", 0); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? 0x200U : 0U);
    });
    EXPECT_GT(allocations, 1);
}

// ---- Side copies ----

class SideCopies : public ServiceFilesTest {
  protected:
    SideCopies() {
        MakeFolder(kSystemServices);
        MakeFolder(kPackageServices);
        std::filesystem::remove_all(kFirewallRules);
        MakeFolder(kFirewallRules);
        WriteFile(kForwardingRules, "rules");
    }

    static SetParam ParamOf(uint32_t flags, uint32_t location) {
        SetParam param = {};
        param.nCheckFlags = flags;
        param.nLocation = location;
        return param;
    }

    // The stores that have a side copy, in store order.
    Lines Copied() const {
        Lines copied;
        for (const char *store : stores_) {
            if (std::filesystem::exists(SideCopyOf(store))) {
                copied.emplace_back(store);
            }
        }
        return copied;
    }

    static void ChangeStores() {
        for (const char *folder : {kSystemServices, kPackageServices, kFirewallRules}) {
            WriteFile(std::string(folder) + "/file", "changed");
            WriteFile(std::string(folder) + "/new", "new");
            std::filesystem::remove_all(std::string(folder) + "/sub");
        }
        WriteFile(kForwardingRules, "changed");
    }

    const std::vector<const char *> stores_ = {kSystemServices, kPackageServices, kFirewallRules,
                                               kForwardingRules};
};

using OneOf = int (*)(const SetParam *);
constexpr OneOf kAll[] = {TLIBServiceConfBackup, TLIBServiceConfRestore,
                          TLIBServiceBackupConfDelete};

TEST_F(SideCopies, NeedAStoreAndADirectoryForServiceFiles) {
    const Lines before = AllStores();
    const Programs programs;
    const auto refuses = [&](OneOf function, const SetParam *param) {
        StartAnew();
        EXPECT_EQ(function(param), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_common.cpp");
        EXPECT_THAT(Messages(), IsEmpty());
    };
    for (const OneOf function : kAll) {
        refuses(function, nullptr);
        for (const uint32_t flags : {0U, 16U, 0xFFFFFFF0U}) {
            const SetParam param = ParamOf(flags, 1);
            refuses(function, &param);
        }
        for (const uint32_t location : {0U, 4U, 8U}) {
            const SetParam param = ParamOf(7, location);
            refuses(function, &param);
        }
    }
    EXPECT_THAT(programs.Run(), IsEmpty());
    EXPECT_EQ(AllStores(), before);
}

TEST_F(SideCopies, AreOfTheStoresThatTheFlagsChoose) {
    const struct {
        uint32_t flags;
        uint32_t location;
        Lines stores;
    } cases[] = {
        {1, 0, {kFirewallRules}},
        {2, 0, {kForwardingRules}},
        {3, 0, {kFirewallRules, kForwardingRules}},
        {4, 1, {kSystemServices}},
        {4, 2, {kPackageServices}},
        {4, 3, {}},
        {4, 5, {}},
        {4, 6, {}},
        {7, 1, {kSystemServices, kFirewallRules, kForwardingRules}},
        {7, 2, {kPackageServices, kFirewallRules, kForwardingRules}},
        {8, 0, {}},
        {24, 1, {}},
    };
    const Lines before = AllStores();
    for (const auto &[flags, location, stores] : cases) {
        const SetParam param = ParamOf(flags, location);
        Lines copies;
        for (const std::string &store : stores) {
            copies.push_back("/bin/cp -rf " + store + " " + SideCopyOf(store));
        }
        {
            const Programs programs;
            EXPECT_EQ(TLIBServiceConfBackup(&param), 0);
            EXPECT_EQ(programs.Run(), copies) << flags << " " << location;
        }
        EXPECT_EQ(Copied(), stores);
        EXPECT_EQ(TLIBServiceBackupConfDelete(&param), 0);
        EXPECT_EQ(AllStores(), before) << flags << " " << location;
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SideCopies, BringStoresBackByteForByte) {
    std::filesystem::permissions("/usr/tavo/etc/services.d/sub", std::filesystem::perms{0750});
    const Lines before = AllStores();
    for (const uint32_t location : {1U, 2U}) {
        const SetParam param = ParamOf(7, location);
        const char *other = location == 1 ? kPackageServices : kSystemServices;
        const Lines before_other = Tree(other);
        EXPECT_EQ(TLIBServiceConfBackup(&param), 0);
        ChangeStores();
        EXPECT_EQ(ReadFile(std::string(other) + "/file"), "changed");
        EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
        EXPECT_EQ(ReadFile(std::string(other) + "/file"), "changed") << "not copied";
        std::filesystem::remove_all(other);
        MakeFolder(other);
        if (location == 2) {
            std::filesystem::permissions("/usr/tavo/etc/services.d/sub",
                                         std::filesystem::perms{0750});
        }
        EXPECT_EQ(AllStores(), before) << location;
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SideCopies, AreMovedBackInTheOrderOfTheStores) {
    const SetParam param = ParamOf(7, 2);
    ASSERT_EQ(TLIBServiceConfBackup(&param), 0);
    const Programs programs;
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_THAT(programs.Run(),
                ElementsAre(std::string("/bin/rm -rf ") + kPackageServices,
                            "/bin/mv -f " + SideCopyOf(kPackageServices) + " " + kPackageServices,
                            std::string("/bin/rm -rf ") + kFirewallRules,
                            "/bin/mv -f " + SideCopyOf(kFirewallRules) + " " + kFirewallRules,
                            std::string("/bin/rm -rf ") + kForwardingRules,
                            "/bin/mv -f " + SideCopyOf(kForwardingRules) + " " + kForwardingRules));
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0) << "nothing is left to restore";
    EXPECT_EQ(programs.Run().size(), 6U);
}

TEST_F(SideCopies, OfTheOtherStoresAreLeftAlone) {
    const SetParam all = ParamOf(7, 2);
    ASSERT_EQ(TLIBServiceConfBackup(&all), 0);
    const SetParam one = ParamOf(2, 0);
    EXPECT_EQ(TLIBServiceConfRestore(&one), 0);
    EXPECT_THAT(Copied(), ElementsAre(kPackageServices, kFirewallRules));
    const SetParam other = ParamOf(4, 2);
    EXPECT_EQ(TLIBServiceBackupConfDelete(&other), 0);
    EXPECT_THAT(Copied(), ElementsAre(kFirewallRules));
    const SetParam last = ParamOf(1, 0);
    EXPECT_EQ(TLIBServiceBackupConfDelete(&last), 0) << "which unlocks the store";
}

TEST_F(SideCopies, OfAStoreThatIsMissingAreNotMade) {
    std::filesystem::remove_all(kFirewallRules);
    std::filesystem::remove(kForwardingRules);
    const SetParam param = ParamOf(7, 1);
    EXPECT_EQ(TLIBServiceConfBackup(&param), 0);
    EXPECT_THAT(Copied(), ElementsAre(kSystemServices));
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_FALSE(std::filesystem::exists(kFirewallRules));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SideCopies, ThatAnotherProcessLeftAreNeverRestored) {
    for (const char *store : stores_) {
        MakeFolder(SideCopyOf(store));
    }
    std::filesystem::remove_all(kFirewallRules);
    std::filesystem::remove(kForwardingRules);
    const Lines before = Tree(kPackageServices);
    const SetParam param = ParamOf(7, 2);
    EXPECT_EQ(TLIBServiceConfBackup(&param), 0);
    EXPECT_THAT(Copied(), ElementsAre(kSystemServices, kPackageServices));
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_FALSE(std::filesystem::exists(kFirewallRules));
    EXPECT_FALSE(std::filesystem::exists(kForwardingRules));
    EXPECT_EQ(Tree(kPackageServices), before);
    std::filesystem::remove_all(SideCopyOf(kSystemServices));
}

TEST_F(SideCopies, AllGoWhenOneCannotBeMade) {
    const Lines before = AllStores();
    for (const uint32_t location : {1U, 2U}) {
        const SetParam param = ParamOf(7, location);
        for (int nth = 1; nth <= 3; ++nth) {
            StartAnew();
            int calls = 0;
            Programs programs;
            programs.Before("/bin/cp", [&] {
                if (++calls == nth) {
                    programs.Answer("/bin/cp", -1);
                }
            });
            EXPECT_EQ(TLIBServiceConfBackup(&param), -1);
            EXPECT_EQ(calls, nth);
            EXPECT_EQ(ErrorState(), "0xD00 service_conf_common.cpp") << "of a copy without a name";
            EXPECT_EQ(AllStores(), before) << nth;
            const char *store = nth > 1         ? stores_[static_cast<std::size_t>(nth)]
                                : location == 1 ? kSystemServices
                                                : kPackageServices;
            EXPECT_THAT(Messages(), ElementsAre("Failed to cp -rf " + std::string(store) + " " +
                                                SideCopyOf(store) + "[0x0000 :N]"));
        }
    }
}

TEST_F(SideCopies, ThatDidNotBecomeWholeAreNeverRestored) {
    const SetParam param = ParamOf(4, 2);
    Programs programs;
    int copies = 0;
    programs.Before("/bin/cp", [&] {
        ++copies;
        std::filesystem::create_directory(SideCopyOf(kPackageServices));
        programs.Answer("/bin/cp", 1);
    });
    EXPECT_EQ(TLIBServiceConfBackup(&param), 0) << "as of a store that is missing";
    EXPECT_FALSE(std::filesystem::exists(SideCopyOf(kPackageServices)));
    const Lines before = AllStores();
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_EQ(AllStores(), before);
    EXPECT_THAT(Messages(), ElementsAre(std::string("Failed to copy ") + kPackageServices +
                                        " whole (1), no way back to it"));
    EXPECT_EQ(copies, 5);
}

TEST_F(SideCopies, CannotBeMadeOfWhatIsNeitherFolderNorFile) {
    std::filesystem::remove(kForwardingRules);
    ASSERT_EQ(mkfifo(kForwardingRules, 0600), 0);
    const SetParam param = ParamOf(3, 0);
    EXPECT_EQ(TLIBServiceConfBackup(&param), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_common.cpp");
    EXPECT_THAT(Messages(),
                ElementsAre("Source path is not valid (src path: " + std::string(kForwardingRules) +
                            ")[0x0600 service_conf_common.cpp:N]"));
    EXPECT_THAT(Copied(), IsEmpty());
}

TEST_F(SideCopies, ThatFollowAreNotRestoredAfterAFailure) {
    const SetParam param = ParamOf(7, 2);
    ASSERT_EQ(TLIBServiceConfBackup(&param), 0);
    ChangeStores();
    Programs programs;
    programs.Before("/bin/mv", [&] {
        if (programs.Run().size() == 4) {
            programs.Answer("/bin/mv", -1);
        }
    });
    EXPECT_EQ(TLIBServiceConfRestore(&param), -1);
    EXPECT_EQ(ReadFile(std::string(kPackageServices) + "/file"), "in /usr/local/etc/services.d");
    EXPECT_EQ(ReadFile(kForwardingRules), "changed");
    EXPECT_THAT(Copied(), ElementsAre(kForwardingRules));
    EXPECT_EQ(ReadFile(std::string(kFirewallRules) + "/file"), std::string("in ") + kFirewallRules)
        << "not restored by mv, but not lost";
    EXPECT_THAT(Messages(), ElementsAre("Failed to mv -f " + SideCopyOf(kFirewallRules) + " " +
                                        kFirewallRules + "[0x0000 :N]"));
}

TEST_F(SideCopies, AreNotRestoredToAStoreThatIsMounted) {
    const Mounted store(kPackageServices);
    MakeFolder(kPackageServices);
    const SetParam param = ParamOf(4, 2);
    ASSERT_EQ(TLIBServiceConfBackup(&param), 0);
    ChangeStores();
    const Lines before = AllStores();
    const Programs programs;
    EXPECT_EQ(TLIBServiceConfRestore(&param), -1);
    EXPECT_EQ(AllStores(), before);
    EXPECT_EQ(ErrorState(), "0x2800 service_conf_common.cpp");
    EXPECT_THAT(Copied(), ElementsAre(kPackageServices));
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to rm -rf " + std::string(kPackageServices) + "[0x0000 :N]"));
    EXPECT_THAT(programs.Run(), IsEmpty());
    EXPECT_EQ(TLIBServiceBackupConfDelete(&param), 0);
}

TEST_F(SideCopies, AreNotOfTheForwardingRulesWhereTheirPlaceIsUnknown) {
    const Failing place("TAVOPFRuleConfPathGet");
    const Lines before = AllStores();
    const SetParam param = ParamOf(3, 0);
    EXPECT_EQ(TLIBServiceConfBackup(&param), 0);
    EXPECT_THAT(Copied(), ElementsAre(kFirewallRules));
    ChangeStores();
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_EQ(ReadFile(kForwardingRules), "changed");
    EXPECT_EQ(ReadFile(std::string(kFirewallRules) + "/file"), std::string("in ") + kFirewallRules);
    EXPECT_EQ(TLIBServiceBackupConfDelete(&param), 0);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SideCopies, OfAStoreThatIsALinkAreOfWhatItLeadsTo) {
    std::filesystem::remove_all(kFirewallRules);
    MakeFolder("/packages/rules");
    std::filesystem::create_directory_symlink("/packages/rules", kFirewallRules);
    const Lines before = Tree("/packages");
    const SetParam param = ParamOf(1, 0);
    EXPECT_EQ(TLIBServiceConfBackup(&param), 0);
    EXPECT_FALSE(std::filesystem::is_symlink(SideCopyOf(kFirewallRules)));
    ChangeStores();
    EXPECT_NE(Tree("/packages"), before);
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_EQ(Tree("/packages"), before);
    EXPECT_TRUE(std::filesystem::is_symlink(kFirewallRules));
    EXPECT_THAT(Copied(), IsEmpty());
    std::filesystem::remove(kFirewallRules);
}

TEST_F(SideCopies, AreDeletedAsFarAsPossible) {
    for (const uint32_t location : {1U, 2U}) {
        const SetParam param = ParamOf(7, location);
        ASSERT_EQ(TLIBServiceConfBackup(&param), 0);
        const Lines copied = Copied();
        for (std::size_t nth = 1; nth <= 3; ++nth) {
            StartAnew();
            Programs programs;
            programs.Before("/bin/rm", [&] {
                programs.Answer("/bin/rm", programs.Run().size() == nth ? -1 : 0);
            });
            EXPECT_EQ(TLIBServiceBackupConfDelete(&param), -1);
            EXPECT_THAT(programs.Run(), ElementsAre("/bin/rm -rf " + SideCopyOf(copied[0]),
                                                    "/bin/rm -rf " + SideCopyOf(copied[1]),
                                                    "/bin/rm -rf " + SideCopyOf(copied[2])));
            EXPECT_THAT(Messages(), ElementsAre("Failed to rm -rf " + SideCopyOf(copied[nth - 1]) +
                                                "[0x0000 :N]"));
        }
        EXPECT_EQ(TLIBServiceBackupConfDelete(&param), 0);
    }
}

TEST_F(SideCopies, AreWholeOrGoneWhenMemoryRunsOut) {
    const SetParam param = ParamOf(7, 2);
    const Lines before = AllStores();
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const int result = fail.During([&] { return TLIBServiceConfBackup(&param); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBServiceBackupConfDelete(&param), 0);
        EXPECT_EQ(AllStores(), before);
    });
    EXPECT_GT(allocations, 5);
}

TEST_F(SideCopies, StayWhenMemoryRunsOutBeforeTheyAreRestored) {
    const SetParam param = ParamOf(7, 2);
    const Lines before = AllStores();
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        ASSERT_EQ(TLIBServiceConfBackup(&param), 0);
        const int result = fail.During([&] { return TLIBServiceConfRestore(&param); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
        EXPECT_EQ(AllStores(), before);
    });
}

}  // namespace
}  // namespace tavo::test
