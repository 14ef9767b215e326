// The list of processes and the sockets that they hold, with a staged /proc that contains anything
// that a kernel may write.
#include <cstring>
#include <set>

#include "failing_allocation.h"
#include "runtime_test.h"
#include "stand_ins.h"

namespace tavo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSubsetOf;
using testing::SizeIs;

namespace fs = std::filesystem;

constexpr char kHere[] = "0xD00 port_conflict_runtime_helper.cpp";

class PidList : public StagedTest {};

TEST_F(PidList, HasTheOrderOfTheNames) {
    for (const char *name : {"100", "2", "10", "1", "4194304"}) {
        fs::create_directory(std::string("/proc/") + name);
    }
    EXPECT_THAT(Pids(), ElementsAre("1", "10", "100", "2", "4194304"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PidList, ReadsNamesAsLenientlyAsFormattedReading) {
    for (const char *name : {"+3", "-5", "007", "8x"}) {
        fs::create_directory(std::string("/proc/") + name);
    }
    EXPECT_THAT(Pids(), ElementsAre("3", "-5", "7", "8"));
}

TEST_F(PidList, EndsAtTheFirstNameThatIsNoNumber) {
    fs::create_directory("/proc/5");
    fs::create_directory("/proc/6");
    EXPECT_THAT(Pids(), ElementsAre("5", "6"));
    fs::create_directory("/proc/5-");
    fs::create_directory("/proc/.7");
    EXPECT_THAT(Pids(), ElementsAre("5", "5", "6")) << "hidden names do not count";
    fs::create_directory("/proc/!");
    EXPECT_THAT(Pids(), IsEmpty());
}

TEST_F(PidList, IsEmptyWithoutProcesses) {
    EXPECT_THAT(Pids(), IsEmpty());
    EXPECT_THAT(Table(), IsEmpty());
    fs::remove_all("/proc/net");
    const OwnedStrings pids = Own(FetchPidList());
    EXPECT_NE(pids, nullptr);
    EXPECT_EQ(TLIBCSzListCount(pids.get()), 0);
    EXPECT_NE(Own(InodeToPidsTableFetch()), nullptr);
    EXPECT_EQ(ErrorState(), "0x0 ");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PidList, LacksWhatMemoryDoesNotHold) {
    const std::vector<std::string> all = {"10", "77", "9"};
    for (const std::string &pid : all) {
        StagedProc::AddProcess(pid, {});
    }
    bool others_stay = false;
    const auto messages =
        WithoutMemory([] { return FetchPidList(); },
                      [&](TLIBCSzList *pPids) {
                          const std::vector<std::string> pids = Texts(Own(pPids).get());
                          EXPECT_THAT(pids, IsSubsetOf(all));
                          others_stay = others_stay || pids == std::vector<std::string>{"10", "9"};
                          return pids == all;
                      });
    EXPECT_TRUE(others_stay) << "the walk goes on";
    EXPECT_THAT(messages, Contains("Failed to alloc pslPidList, Out of memory.[0x0200]"));
    EXPECT_THAT(messages,
                Contains(testing::MatchesRegex("Failed to TLIBCSzListPush 0x[0-9a-f]+ 77")));
}

class InodeTable : public StagedTest {
  protected:
    void Fetch(const std::string &pid) { FetchInodeFromPid(table_.get(), pid.c_str()); }
    std::vector<std::string> Entered() { return Entries(table_.get()); }

    OwnedHash table_ = Own(TLIBCSzHashAlloc(0));
};

TEST_F(InodeTable, ReadsTheLinksOfSockets) {
    const struct {
        std::string target;
        std::string key;
    } cases[] = {
        {"socket:[8123]", "8123"},
        {"socket:[0]", "0"},
        {"[0000]:77", "77"},
        {"socket:[18446744073709551615]", "18446744073709551615"},
        {"socket:[18446744073709551616]", "18446744073709551615"},
        {"socket:[ 5]", "5"},
        {"socket:[+5]", "5"},
        {"socket:[-1]", "18446744073709551615"},
        {"socket:[0012", "12"},
        {"socket:[12]x", "12"},
        {"[0000]:5x", "5"},
        {"socket:[" + std::string(1014, '0') + "12]", "1"},  // the first 1023 bytes
        {"socket:[]", ""},
        {"socket:[x]", ""},
        {"socket:8", ""},
        {"socket: [8]", ""},
        {"Socket:[8]", ""},
        {"xsocket:[8]", ""},
        {"[0001]:8", ""},
        {"[0000]8", ""},
        {"[0000]:", ""},
        {"pipe:[8]", ""},
        {"anon_inode:[eventpoll]", ""},
        {"/dev/null", ""},
        {std::string(4000, 'x'), ""},
    };
    int pid = 0;
    for (const auto &c : cases) {
        const std::string name = std::to_string(++pid);
        StagedProc::AddProcess(name, {c.target});
        TLIBCSzHashClear(table_.get());
        Fetch(name);
        if (c.key.empty()) {
            EXPECT_THAT(Entered(), IsEmpty()) << c.target;
        } else {
            EXPECT_THAT(Entered(), ElementsAre(c.key + "=" + name + ",")) << c.target;
        }
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(ErrorState(), "0x0 ");
}

TEST_F(InodeTable, PassesOverWhatIsNoDescriptor) {
    StagedProc::AddProcess("5", {"socket:[1]"});
    fs::create_symlink("socket:[2]", "/proc/5/fd/.hidden");
    fs::create_directory("/proc/5/fd/folder");
    WriteFile("/proc/5/fd/file", "socket:[3]");
    Fetch("5");
    EXPECT_THAT(Entered(), ElementsAre("1=5,"));
}

TEST_F(InodeTable, NamesTheNewestProcessFirst) {
    StagedProc::AddProcess("77", {"socket:[1]", "pipe:[1]", "socket:[2]"});
    StagedProc::AddProcess("812", {"socket:[3]", "socket:[1]"});
    TLIBCSzHashSetValue(table_.get(), "2", "6,");
    Fetch("77");
    Fetch("812");
    EXPECT_THAT(Entered(), testing::UnorderedElementsAre("1=812,77,", "2=77,6,", "3=812,"));
}

TEST_F(InodeTable, NamesAProcessForEachDescriptor) {
    StagedProc::AddProcess("77", {"socket:[1]", "socket:[1]", "socket:[1]"});
    StagedProc::AddProcess("8", {"socket:[1]"});
    Fetch("77");
    Fetch("8");
    EXPECT_THAT(Entered(), ElementsAre("1=8,77,77,77,"));
}

TEST_F(InodeTable, HasAllProcessesInTheOrderOfTheirNames) {
    for (const char *pid : {"9", "10", "77"}) {
        StagedProc::AddProcess(pid, {"socket:[1]"});
    }
    EXPECT_THAT(Table(), ElementsAre("1=9,77,10,"));
}

TEST_F(InodeTable, HoldsManySockets) {
    std::vector<std::string> targets;
    std::vector<std::string> expected;
    for (int i = 0; i < 1000; ++i) {
        targets.push_back("socket:[" + std::to_string(i * 4096) + "]");
        expected.push_back(std::to_string(i * 4096) + "=7,");
    }
    StagedProc::AddProcess("7", targets);
    EXPECT_THAT(Table(), testing::UnorderedElementsAreArray(expected));
}

TEST_F(InodeTable, LacksProcessesThatCannotBeLookedAt) {
    StagedProc::AddProcess("5", {"socket:[1]"});
    fs::create_directory("/proc/6");
    WriteFile("/proc/7", "");
    EXPECT_THAT(Table(), ElementsAre("1=5,"));
    // Truncated to the path buffer, the last one would name the folder of a process.
    fs::create_symlink("socket:[2]", "/proc/5/link");
    for (const std::string &pid :
         {std::string("404"), std::string(), "5" + std::string(2000, '/')}) {
        Fetch(pid);
    }
    EXPECT_THAT(Entered(), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(InodeTable, MustBeGiven) {
    FetchInodeFromPid(nullptr, "1");
    EXPECT_EQ(ErrorState(), kHere);
    EXPECT_THAT(Messages(), ElementsAre("pInodeToPidsTable is undefined"));
    TLIBCErrSetEx(0, nullptr, 0);
    FetchInodeFromPid(table_.get(), nullptr);
    EXPECT_EQ(ErrorState(), kHere);
    EXPECT_THAT(Entered(), IsEmpty());
}

TEST_F(InodeTable, KeepsWhatItHadWhenMemoryRunsOut) {
    StagedProc::AddProcess("77", {"socket:[1]", "socket:[8123]"});
    TLIBCSzHashSetValue(table_.get(), "1", "6,");
    const auto messages = WithoutMemory(
        [&] {
            Fetch("77");
            return 0;
        },
        [&](int) {
            const std::vector<std::string> entered = Entered();
            EXPECT_THAT(entered, IsSubsetOf({"1=77,6,", "1=6,", "8123=77,"}));
            EXPECT_THAT(entered, Contains(testing::EndsWith("6,")));
            // Reset the table for the next iteration.
            TLIBCSzHashClear(table_.get());
            TLIBCSzHashSetValue(table_.get(), "1", "6,");
            return entered.size() == 2 && entered[0] == "1=77,6,";
        });
    EXPECT_THAT(messages, Contains("Failed to update (8123, 77,) inode-to-pids table."));
    EXPECT_THAT(messages, Contains("Failed to update (1, 77,6,) inode-to-pids table."));
}

constexpr char kNoPids[] = "Failed to alloc pslPidList, Out of memory.[0x0200]";
constexpr char kUnread[] = "Failed to read the sockets of process 77.[0x0900]";
constexpr char kNoTable[] = "Failed to alloc pInodeToPidsTable, Out of memory.[0x0200]";

TEST_F(InodeTable, IsCompleteOrNullWhenMemoryRunsOut) {
    StagedProc::AddProcess("77", {"socket:[1]", "socket:[2]"});
    StagedProc::AddProcess("9", {"socket:[1]", "socket:[3]"});
    std::set<std::vector<std::string>> reports;
    WithoutMemory([] { return InodeToPidsTableFetch(); },
                  [&](TLIBCSzHash *pTable) {
                      const OwnedHash table = Own(pTable);
                      if (table == nullptr) {
                          reports.insert(Messages());
                          return false;
                      }
                      EXPECT_THAT(Entries(table.get()), ElementsAre("1=9,77,", "2=77,", "3=9,"));
                      return true;
                  });
    const auto lost_pid = testing::MatchesRegex("Failed to TLIBCSzListPush 0x[0-9a-f]+ 9");
    EXPECT_THAT(reports, Contains(ElementsAre(kNoTable)));
    EXPECT_THAT(reports, Contains(ElementsAre(kNoPids, kNoPids))) << "of the list and of the table";
    EXPECT_THAT(reports, Contains(ElementsAre(lost_pid, kNoTable)));
    for (const char *lost_value : {"Failed to update (1, 9,77,) inode-to-pids table.",
                                   "Failed to update (3, 9,) inode-to-pids table."}) {
        EXPECT_THAT(reports, Contains(ElementsAre(lost_value, kNoTable)));
    }
    EXPECT_THAT(reports, testing::Each(testing::Each(testing::Not(testing::HasSubstr(", )")))))
        << "the value is shown also when there is no memory for it";
}

TEST_F(InodeTable, ShowsAsMuchOfALostValueAsALineHolds) {
    StagedProc::AddProcess("77", {"socket:[1]"});
    for (const auto &[known, shown] : {std::pair{std::string(1020, '6'), std::string(1020, '6')},
                                       {std::string(1021, '6'), std::string(1020, '6')},
                                       {std::string(5000, '6'), std::string(1020, '6')}}) {
        TLIBCSzHashSetValue(table_.get(), "1", known.c_str());
        const auto messages = WithoutMemory(
            [&] {
                Fetch("77");
                return 0;
            },
            [&, &text = known](int) {
                const bool entered = Entered().front() == "1=77," + text;
                TLIBCSzHashSetValue(table_.get(), "1", text.c_str());
                return entered;
            });
        EXPECT_THAT(messages,
                    Contains("Failed to update (1, 77," + shown + ") inode-to-pids table."));
    }
}

TEST_F(InodeTable, IsNullWhereAFolderCannotBeOpenedForLackOfMemory) {
    StagedProc::AddProcess("77", {"socket:[1]"});
    StagedProc::AddProcess("9", {"socket:[1]"});
    for (const char *folder : {"/proc/77/fd", "/proc/9/fd"}) {
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        const Failing refused("open", folder, ENOMEM);
        EXPECT_EQ(Own(InodeToPidsTableFetch()), nullptr);
        EXPECT_EQ(TLIBCErrGet(), 0x200u);
        EXPECT_THAT(Messages(), ElementsAre(kNoTable));
        EXPECT_EQ(Elements(RuntimeServiceListFetch()), nullptr);
    }
}

TEST_F(InodeTable, LacksProcessesThatAreGoneOrForbidden) {
    StagedProc::AddProcess("77", {"socket:[1]"});
    StagedProc::AddProcess("9", {"socket:[1]"});
    for (const int error : {EACCES, ENOENT, ESRCH, EPERM}) {
        const Failing refused("open", "/proc/77/fd", error);
        EXPECT_THAT(Table(), ElementsAre("1=9,")) << strerror(error);
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(ErrorState(), "0x0 ");
}

TEST_F(InodeTable, IsNullWhereAProcessCannotBeReadForAnyOtherReason) {
    StagedProc::AddProcess("77", {"socket:[1]"});
    StagedProc::AddProcess("9", {"socket:[1]"});
    for (const int error : {EMFILE, ENFILE, EINTR, EIO}) {
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        const Failing refused("open", "/proc/77/fd", error);
        EXPECT_EQ(Own(InodeToPidsTableFetch()), nullptr) << strerror(error);
        EXPECT_EQ(ErrorState(), "0x900 port_conflict_runtime_helper.cpp");
        EXPECT_EQ(Elements(RuntimeServiceListFetch()), nullptr);
        EXPECT_EQ(ErrorState(), "0x900 port_conflict_runtime_helper.cpp");
        EXPECT_THAT(Messages(), ElementsAre(kUnread, kUnread, "Failed to InodeToPidsTableFetch"));
    }
}

TEST_F(InodeTable, SaysWhichProcessCannotBeEntered) {
    StagedProc::AddProcess("77", {"socket:[1]"});
    TLIBCSzHashSetValue(table_.get(), "1", "6,");
    const Failing refused("open", "/proc/77/fd", EMFILE);
    Fetch("77");
    EXPECT_EQ(TLIBCErrGet(), 0x900u);
    EXPECT_THAT(Messages(), ElementsAre(kUnread));
    EXPECT_THAT(Entered(), ElementsAre("1=6,"));
}

TEST_F(InodeTable, HasTheOtherSocketsOfAProcessWithALinkThatCannotBeRead) {
    StagedProc::AddProcess("77", {"socket:[1]", "socket:[2]", "socket:[3]"});
    const Failing refused("readlinkat", "1", EIO);
    Fetch("77");
    EXPECT_EQ(TLIBCErrGet(), 0x900u);
    EXPECT_THAT(Messages(), ElementsAre(kUnread));
    EXPECT_THAT(Entered(), ElementsAre("1=77,", "3=77,"));
}

TEST_F(InodeTable, TakesNothingFromAFolderThatMemoryDoesNotOpen) {
    StagedProc::AddProcess("5", {"socket:[1]"});
    const Failing refused("open", "/proc/5/fd", ENOMEM);
    TLIBCSzHashSetValue(table_.get(), "1", "6,");
    Fetch("5");
    EXPECT_EQ(TLIBCErrGet(), 0x200u);
    EXPECT_THAT(Messages(), ElementsAre(kNoTable));
    EXPECT_THAT(Entered(), ElementsAre("1=6,"));
}

// Another thread may start a program at any time, and the program must not inherit the descriptors.
TEST_F(InodeTable, IsReadThroughDescriptorsThatCloseOnExec) {
    StagedProc::AddProcess("5", {"socket:[1]"});
    const std::vector<int> before = InheritedDescriptors();
    std::vector<std::vector<int>> meanwhile;
    {
        const AfterOpening look([&] { meanwhile.push_back(InheritedDescriptors()); });
        EXPECT_THAT(Table(), SizeIs(1));
    }
    EXPECT_THAT(meanwhile, ElementsAre(before));
}

class PidsOfInode : public InodeTable {
  protected:
    std::vector<std::string> Get(uint64_t inode) {
        const OwnedStrings pids = Own(InodeToPidsGet(table_.get(), inode));
        EXPECT_NE(pids, nullptr);
        return Texts(pids.get());
    }
};

TEST_F(PidsOfInode, AreThoseOfTheTableInItsOrder) {
    TLIBCSzHashSetValue(table_.get(), "8123", "812,77,77,");
    TLIBCSzHashSetValue(table_.get(), "18446744073709551615", "1,");
    EXPECT_THAT(Get(8123), ElementsAre("812", "77", "77"));
    EXPECT_THAT(Get(UINT64_MAX), ElementsAre("1"));
    EXPECT_THAT(Get(0), IsEmpty());
    EXPECT_THAT(Texts(Own(InodeToPidsGet(nullptr, 8123)).get()), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PidsOfInode, LackWhatIsAfterTheLastComma) {
    TLIBCSzHashSetValue(table_.get(), "1", "812,77");
    TLIBCSzHashSetValue(table_.get(), "2", "");
    TLIBCSzHashSetValue(table_.get(), "3", ",5,");
    EXPECT_THAT(Get(1), ElementsAre("812"));
    EXPECT_THAT(Get(2), IsEmpty());
    EXPECT_THAT(Get(3), ElementsAre("", "5"));
}

TEST_F(PidsOfInode, AreNullWhenMemoryRunsOut) {
    TLIBCSzHashSetValue(table_.get(), "8123", "812,77,");
    const auto messages =
        WithoutMemory([&] { return InodeToPidsGet(table_.get(), 8123); },
                      [](TLIBCSzList *pPids) {
                          const bool got = pPids != nullptr;
                          EXPECT_THAT(Texts(Own(pPids).get()), SizeIs(got ? 2 : 0));
                          return got;
                      });
    EXPECT_THAT(messages, Contains("Failed to alloc pPidList, Out of memory.[0x0200]"));
    EXPECT_THAT(messages, Contains("Failed to separate string: [812,77,]."));
}

std::string Program(uint32_t pid) {
    const std::unique_ptr<char, decltype(&free)> program(ProgramCommandFetch(pid), free);
    return program ? program.get() : "null";
}

class ProgramOfProcess : public StagedTest {};

TEST_F(ProgramOfProcess, IsTheLinkAsItReads) {
    const std::string odd = "/opt/my (odd) \n\t program) (deleted)";
    StagedProc::AddProcess("5", {}, odd);
    StagedProc::AddProcess("4294967295", {}, std::string(1500, 'x'));
    EXPECT_EQ(Program(5), odd);
    EXPECT_EQ(Program(4294967295), std::string(1023, 'x'));
}

TEST_F(ProgramOfProcess, IsNullWhereItCannotBeRead) {
    StagedProc::AddProcess("5", {}, "");
    StagedProc::AddProcess("6", {}, "/bin/program");
    EXPECT_EQ(Program(5), "null");
    EXPECT_EQ(Program(0), "null");
    FailingAllocation first(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(first.During([] { return ProgramCommandFetch(6); }), nullptr);
    EXPECT_THAT(Messages(), IsEmpty());
}

}  // namespace
}  // namespace tavo::test
