// servicetool clean: removes the leftovers of killed programs and keeps what is still needed.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include "change_world.h"
#include "patterns.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kName = "notes.sc";
const std::string kFirewall = "/usr/tavo/etc/firewall.d";
const std::string kStore = "/usr/local/etc/services.d";
const std::string kNothing = "there are no leftovers\n";
const std::string kDryClean = "dry run: nothing was removed\n";

// The id of a terminated process.
std::string DeadPid() {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(0);
    }
    waitpid(pid, nullptr, 0);
    return std::to_string(pid);
}

// A process that runs `start` and then idles until it is killed.
class IdleProcess {
  public:
    // Waits until the maps of the process contain `mapped`.
    IdleProcess(const std::function<void()> &start, const std::string &mapped) {
        EXPECT_EQ(pipe2(input_, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(input_[0], STDIN_FILENO);
            start();
            _exit(127);
        }
        WaitFor(mapped);
    }
    ~IdleProcess() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        close(input_[0]);
        close(input_[1]);
    }
    IdleProcess(const IdleProcess &) = delete;
    IdleProcess &operator=(const IdleProcess &) = delete;

    std::string Pid() const { return std::to_string(pid_); }

  private:
    void WaitFor(const std::string &mapped) const {
        for (int i = 0; i < 1000; ++i) {
            if (ReadFile("/proc/" + Pid() + "/maps").find(mapped) != std::string::npos) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ADD_FAILURE() << mapped << " was not loaded";
    }

    int input_[2] = {-1, -1};
    pid_t pid_ = -1;
};

class CleanCommand : public ChangeWorld {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile(kPackage + kName, kText);
        fs::create_directories(kPackage + "tmp");
        fs::create_directories(kFirewall);
    }
    void TearDown() override {
        for (const std::string &path : made_) {
            fs::remove_all(path);
        }
        fs::remove(kPackage + "tmp");
        ChangeWorld::TearDown();
    }

    std::string MakeFile(const std::string &path, const std::string &text = kText) {
        WriteFile(path, text);
        made_.push_back(path);
        return path;
    }
    std::string MakeFolder(const std::string &path, const std::vector<std::string> &names = {}) {
        fs::create_directories(path);
        for (const std::string &name : names) {
            WriteFile(path + '/' + name, kText);
        }
        made_.push_back(path);
        return path;
    }

    std::string MakePrivateFolder(const std::string &path,
                                  const std::vector<std::string> &names = {}) {
        MakeFolder(path, names);
        fs::permissions(path, fs::perms::owner_all);
        return path;
    }

    // The entries made by the test that still exist.
    std::vector<std::string> Left() const {
        std::vector<std::string> left;
        for (const std::string &path : made_) {
            if (fs::exists(fs::symlink_status(path))) {
                left.push_back(path);
            }
        }
        return left;
    }

    std::vector<std::string> made_;
};

TEST_F(CleanCommand, SaysThatNothingIsLeft) {
    ExpectRun(ServiceTool({"clean"}), 0, kNothing);
    ExpectRun(ServiceTool({"clean", "--dry-run"}), 0, kNothing);
    EXPECT_EQ(Calls(), "");
}

TEST_F(CleanCommand, RemovesEveryKindOfLeftover) {
    const std::string pid = DeadPid();
    WriteFile(kRules, "");
    MakePrivateFolder("/tmp/servicetool-aB3dE6", {"staged.sc"});
    MakeFile("/tmp/servicetool.remove.notes.sc." + pid);
    MakeFile("/tmp/servicetool.update.notes.sc.old");
    MakeFile(kPackage + "tmp/notes.sc.Ab12Cd");
    MakeFolder(kStore + ".tmp." + pid, {kName});
    MakeFolder(kStore + "/.tavo-write", {"lock", "new"});
    MakeFile(kRules + ".tmp." + pid, "");
    MakeFolder(kFirewall + ".tmp." + pid);
    const std::vector<std::string> all = made_;

    const std::string lines[] = {
        all[0] + ": private folder of servicetool",
        all[1] + ": copy of the removed file notes.sc by process " + pid,
        all[2] + ": copy of the replaced file notes.sc",
        all[3] + ": file to be installed as notes.sc",
        all[5] + ": folder of a writer",
        all[4] + ": copy of " + kStore + " by process " + pid,
        all[6] + ": copy of " + kRules + " by process " + pid,
        all[7] + ": copy of " + kFirewall + " by process " + pid,
    };
    std::string listed;
    std::string removed;
    for (const std::string &line : lines) {
        listed += line + '\n';
        removed += line + ": removed\n";
    }
    ExpectRun(ServiceTool({"clean", "--dry-run"}), 0, listed + kDryClean);
    EXPECT_EQ(Left(), all);
    ExpectRun(ServiceTool({"clean"}), 0, removed);
    EXPECT_THAT(Left(), IsEmpty());
    EXPECT_EQ(ReadFile(kPackage + kName), kText);
    EXPECT_EQ(Calls(), "");
    ExpectRun(ServiceTool({"clean"}), 0, kNothing);
}

// Leftovers of a failed or killed restore, which it has renamed.
TEST_F(CleanCommand, RemovesWhatARestoreLeftBesideAStore) {
    const std::string pid = DeadPid();
    WriteFile(kRules, "");
    MakeFolder(kStore + ".old.tmp." + pid, {kName});
    MakeFolder(kStore + ".unrestored." + pid + ".12", {kName});
    MakeFile(kRules + ".unrestored." + pid + ".1", "");
    const std::string line = " by process " + pid + ": removed\n";
    ExpectRun(ServiceTool({"clean"}), 0,
              made_[0] + ": copy of " + kStore + line + made_[1] + ": copy of " + kStore + line +
                  made_[2] + ": copy of " + kRules + line);
    EXPECT_THAT(Left(), IsEmpty());

    const std::string live = std::to_string(getpid());
    MakeFolder(kStore + ".unrestored." + live + ".1");
    for (const char *tail : {".unrestored.", ".unrestored.x.1", ".unrestored.1.", ".old.tmp."}) {
        MakeFolder(kStore + tail);
    }
    MakeFolder(kStore + ".unrestored." + pid);
    ExpectRun(ServiceTool({"clean"}), 0, kNothing);
}

TEST_F(CleanCommand, KeepsAnUnrestoredCopyThatHoldsMore) {
    const std::string copy =
        MakeFolder(kStore + ".unrestored." + DeadPid() + ".1", {kName, "other.sc"});
    ExpectRun(ServiceTool({"clean"}), 1, "",
              copy + ": warning: holds other.sc, which " + kStore +
                  " lacks [left-behind]\n    fix: put it back with cp -a, or remove the copy by "
                  "hand\n");
    EXPECT_THAT(Left(), ElementsAre(copy));
}

TEST_F(CleanCommand, LeavesWhatALiveProcessMade) {
    const std::string pid = std::to_string(getpid());
    const std::string folder = MakePrivateFolder("/tmp/servicetool-aB3dE6", {"staged.sc"});
    const int owner = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(owner, LOCK_EX), 0);
    MakeFile("/tmp/servicetool.remove.notes.sc." + pid);
    MakeFile("/tmp/servicetool.remove.gone.sc." + pid);
    MakeFolder(kStore + ".tmp." + pid, {kName});
    MakeFile(kRules + ".tmp." + pid);
    MakeFolder(kFirewall + ".tmp." + pid);
    MakeFolder(kStore + "/.tavo-write", {"new"});
    const int writer =
        open((kStore + "/.tavo-write/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(writer, LOCK_EX), 0);
    ExpectRun(ServiceTool({"clean"}), 0, kNothing);
    EXPECT_EQ(Left(), made_);
    close(writer);
    close(owner);
    EXPECT_EQ(ServiceTool({"clean"}).status, 0);
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_FALSE(fs::exists(kStore + "/.tavo-write"));
}

// The names of these files do not contain the process that made them.
TEST_F(CleanCommand, LeavesAFileThatSomebodyMayBeAt) {
    const std::string staged = MakeFile(kPackage + "tmp/notes.sc.Ab12Cd");
    const std::string updated = MakeFile("/tmp/servicetool.update.notes.sc.old");
    const std::pair<std::function<void()>, std::string> makers[] = {
        {[] { execl(SERVICETOOL, SERVICETOOL, "lint", "-", nullptr); }, "/servicetool\n"},
        {[] {
             dlopen(LIBRARY, RTLD_NOW);
             pause();
         },
         "/libtavoserviceconf.so"}};
    for (const auto &[start, mapped] : makers) {
        const IdleProcess other(start, mapped);
        const std::string in_use = ": may be in use by process " + other.Pid() + '\n';
        ExpectRun(ServiceTool({"clean"}), 0,
                  updated + ": copy of the replaced file notes.sc" + in_use + staged +
                      ": file to be installed as notes.sc" + in_use);
    }
    EXPECT_EQ(Left(), made_);
    const int reader = open(staged.c_str(), O_RDONLY | O_CLOEXEC);
    ExpectRun(ServiceTool({"clean"}), 0,
              updated + ": copy of the replaced file notes.sc: removed\n" + staged +
                  ": file to be installed as notes.sc: may be in use by process " +
                  std::to_string(getpid()) + '\n');
    EXPECT_THAT(Left(), ElementsAre(staged));
    close(reader);
    EXPECT_EQ(ServiceTool({"clean"}).status, 0);
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(CleanCommand, LeavesWhatIsNotItsOwn) {
    const std::string pid = DeadPid();
    MakeFolder(kHome + "elsewhere", {"kept"});
    for (const std::string &link : {std::string("/tmp/servicetool-aB3dE6"), kStore + ".tmp." + pid,
                                    "/tmp/servicetool.remove.notes.sc." + pid,
                                    std::string("/tmp/servicetool.update.notes.sc.old"),
                                    kPackage + "tmp/notes.sc.Ab12Cd", kStore + "/.tavo-write"}) {
        fs::create_symlink(kHome + "elsewhere", link);
        made_.push_back(link);
    }
    fs::create_hard_link(kPackage + kName, MakeFolder("/tmp/x") + "/notes");
    fs::create_hard_link(kPackage + kName, "/tmp/servicetool.remove.linked.sc." + pid);
    made_.push_back("/tmp/servicetool.remove.linked.sc." + pid);
    if (const std::string path = MakeFile("/tmp/servicetool.update.other.sc.old");
        chown(path.c_str(), 65534, 65534) != 0) {
        fs::remove(path);
        made_.pop_back();
    }
    MakePrivateFolder("/tmp/servicetool-short");
    MakePrivateFolder("/tmp/servicetool-toolong");
    MakePrivateFolder("/tmp/servicetool-a.c-e_");
    MakeFolder("/tmp/servicetool-backup", {kName});
    MakeFile("/tmp/servicetool.remove.notes.sc.12x");
    MakeFile("/tmp/servicetool.remove.notes.sc.0" + pid);
    MakeFile("/tmp/servicetool.remove." + pid);
    MakeFile("/tmp/servicetool.update..old");
    MakeFile(kPackage + "tmp/notes.sc");
    MakeFolder(kStore + ".tmp.x" + pid);
    MakeFile(kStore + ".tmp." + pid + ".more");
    MakeFolder(kStore + ".unrestored." + pid);
    MakeFolder(kStore + ".unrestored." + pid + ".01");
    MakeFile(kPackage + "tmp/.Ab12Cd");
    MakeFile(kFirewall + ".tmp." + pid);
    ExpectRun(ServiceTool({"clean"}), 0, kNothing);
    EXPECT_EQ(Left(), made_);
    EXPECT_EQ(ReadFile(kHome + "elsewhere/kept"), kText);
}

// The program was killed between removing a store and restoring it from the copy.
TEST_F(CleanCommand, KeepsTheOnlyCopyOfAStore) {
    const std::string pid = DeadPid();
    const std::string store = kStore + ".tmp." + pid;
    MakeFolder(store, {kName, "other.sc"});
    const std::string rules = MakeFile(kRules + ".tmp." + pid, Rule("1", "x", "1", "1"));
    const auto warning = [](const std::string &path, const std::string &what,
                            const std::string &fix) {
        return path + ": warning: " + what + " [left-behind]\n    fix: " + fix + '\n';
    };
    const std::string rules_warning =
        warning(rules, "is the only copy of " + kRules, "write cp -a " + rules + ' ' + kRules);
    ExpectRun(ServiceTool({"clean"}), 1, "",
              warning(store, "holds other.sc, which " + kStore + " lacks",
                      "put it back with cp -a, or remove the copy by hand") +
                  rules_warning);
    fs::remove(kPackage + kName);
    for (const std::string when : {"empty", "missing"}) {
        if (when == "missing") {
            fs::remove_all(kStore);
        }
        ExpectRun(ServiceTool({"clean"}), 1, "",
                  warning(store, "is the only copy of " + kStore,
                          "write cp -a " + store + "/. " + kStore) +
                      rules_warning);
        EXPECT_EQ(Left(), made_) << when;
    }

    // After the suggested fix, the copies are no longer needed.
    EXPECT_EQ(RunProgram({"cp", "-a", store + "/.", kStore}).status, 0);
    EXPECT_EQ(RunProgram({"cp", "-a", rules, kRules}).status, 0);
    EXPECT_EQ(ServiceTool({"clean"}).status, 0);
    EXPECT_THAT(Left(), IsEmpty());
    EXPECT_THAT(Entries(kStore), ElementsAre(kName, "other.sc"));
    EXPECT_EQ(ReadFile(kRules), Rule("1", "x", "1", "1"));
    fs::create_directories(kPackage + "tmp");
}

// A removal proceeds folder by folder and may be interrupted inside one.
TEST_F(CleanCommand, KeepsACopyThatHoldsMoreOfAFolderOrAFile) {
    const std::string copy = MakeFolder(kFirewall + ".tmp." + DeadPid());
    MakeFolder(kFirewall + "/zone", {"cut"});
    MakeFolder(kFirewall + "/tmp");
    MakeFolder(copy + "/zone", {"cut", "home"});
    MakeFolder(copy + "/tmp", {"kept"});
    const auto expect_kept = [&copy](const std::string &why) {
        ExpectRun(ServiceTool({"clean"}), 1, "",
                  copy + ": warning: holds " + why +
                      " [left-behind]\n    fix: put it back with cp -a, or remove the copy by "
                      "hand\n");
        EXPECT_TRUE(fs::exists(copy + "/zone/home"));
    };
    expect_kept("tmp/kept, which " + kFirewall + " lacks");
    WriteFile(kFirewall + "/tmp/kept", kText);
    expect_kept("zone/home, which " + kFirewall + " lacks");
    WriteFile(kFirewall + "/zone/home", kText);
    WriteFile(kFirewall + "/zone/cut", "");
    expect_kept("more of zone/cut than " + kFirewall);
    WriteFile(kFirewall + "/zone/cut", "another");
    EXPECT_EQ(ServiceTool({"clean"}).status, 0);
    EXPECT_FALSE(fs::exists(copy));
}

// A store may be a symbolic link. The target of the link is copied, removed and restored.
TEST_F(CleanCommand, KeepsTheOnlyCopyOfWhatALinkLeadsTo) {
    const std::string rules = MakeFile(kRules + ".tmp." + DeadPid(), Rule("1", "x", "1", "1"));
    fs::remove(kRules);
    fs::create_symlink("elsewhere.conf", kRules);
    made_.push_back(kRules);
    const std::string place = fs::path(kRules).parent_path() / "elsewhere.conf";
    ExpectRun(ServiceTool({"clean"}), 1, "",
              rules + ": warning: is the only copy of " + kRules +
                  " [left-behind]\n    fix: write cp -a " + rules + ' ' + place + '\n');
    EXPECT_EQ(Left(), made_);
    EXPECT_EQ(RunProgram({"cp", "-a", rules, place}).status, 0);
    made_.push_back(place);
    EXPECT_EQ(ServiceTool({"clean"}).status, 0);
    EXPECT_FALSE(fs::exists(rules));
}

TEST_F(CleanCommand, KeepsACopyWhereItsStoreCannotBeLookedAt) {
    const std::string rules = MakeFile(kRules + ".tmp." + DeadPid(), Rule("1", "x", "1", "1"));
    const ProgramResult result =
        RunProgram({"strace", "-qq", "-o", "/dev/null", "-P", kRules, "-e", "trace=%%stat", "-e",
                    "inject=%%stat:error=EIO", SERVICETOOL, "clean"},
                   "", {"ASAN_OPTIONS=detect_leaks=0"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("nput/output error"));
    EXPECT_TRUE(fs::exists(rules));
}

TEST_F(CleanCommand, KeepsACopyWhereItsStoreCannotBeRead) {
    const std::string store = MakeFolder(kStore + ".tmp." + DeadPid(), {kName});
    const ProgramResult result =
        RunProgram({"strace", "-qq", "-o", "/dev/null", "-P", kStore, "-e", "trace=openat", "-e",
                    "inject=openat:error=EMFILE", SERVICETOOL, "clean"},
                   "", {"ASAN_OPTIONS=detect_leaks=0"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("Too many open files"));
    EXPECT_TRUE(fs::exists(store));
}

TEST_F(CleanCommand, ChangesNothingDuringAnotherChange) {
    const Lock other;
    const std::string path = MakePrivateFolder("/tmp/servicetool-aB3dE6");
    ExpectRun(ServiceTool({"clean", "--dry-run"}), 0,
              path + ": private folder of servicetool\n" + kDryClean);
    ExpectRun(ServiceToolPreloading(FAST_CLOCK, {"clean"}), 3, "",
              "servicetool: error: another change is in progress, so nothing was removed [busy]\n"
              "    fix: wait until it ends, and try again\n");
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(CleanCommand, PrintsJson) {
    const std::string pid = DeadPid();
    const std::string copy = MakeFolder(kStore + ".tmp." + pid, {"other.sc"});
    const std::string folder = MakePrivateFolder("/tmp/servicetool-aB3dE6");
    const Json document = Json::Parse(ServiceTool({"clean", "--json"}).out);
    EXPECT_EQ(document["ok"], false);
    EXPECT_EQ(document["results"],
              Json::Parse(R"([{"path": ")" + folder + R"(", "kind": "private-folder",
                               "original": null, "pid": null, "state": "removed",
                               "reason": null},
                              {"path": ")" +
                          copy + R"(", "kind": "store",
                               "original": ")" +
                          kStore + R"(", "pid": )" + pid + R"(,
                               "state": "kept",
                               "reason": "holds other.sc, which )" +
                          kStore + R"( lacks"}])"));
    const std::string page = ReadFile(SERVICETOOL_SOURCE "/man/servicetool.1");
    for (const std::string &key : document["results"][0].Keys()) {
        EXPECT_TRUE(HasMatch(page, "\n\\.It Cm ([a-z_ ,]* )?" + key + "\\b")) << key;
    }
}

// ---- A removal that was not completed

TEST_F(CleanCommand, LetsRemoveNotifyOfAFileThatIsGone) {
    {
        const ReplacedTool plugin("/usr/tavo/lib/plugins/port_config/portforward", "kill -9 $PPID");
        EXPECT_EQ(ServiceTool({"remove", kName}).status, 128 + SIGKILL);
    }
    EXPECT_FALSE(fs::exists(kPackage + kName));
    ASSERT_EQ(InTmp().size(), 1U);
    const std::string copy = "/tmp/" + InTmp().front();
    EXPECT_EQ(ReadFile(copy), kText);
    EXPECT_EQ(Calls(), "");

    ExpectRun(ServiceTool({"clean"}), 1, "",
              copy +
                  ": warning: is all that is left of notes.sc, whose removal the plugins may not "
                  "know of [left-behind]\n    fix: write servicetool remove notes.sc\n");
    const std::string plan =
        kPackage + kName + ": is already removed; only the listeners are notified, with the copy " +
        copy + '\n' + kPlan;
    ExpectRun(ServiceTool({"remove", "--dry-run", kName}), 0, plan + kDryRun);
    EXPECT_EQ(Calls(), "");
    ExpectRun(ServiceTool({"remove", kName}), 0, plan + kNotified);
    EXPECT_EQ(Calls(), "portforward port_config/remove\n< $'PORT_CONFIG_CONTENT=" + InShell(kText) +
                           "'\n< NOTIFY_PF=1\n< NOTIFY_FW=1\n" + kRelayCalls);
    EXPECT_FALSE(fs::exists(copy));
    EXPECT_EQ(ServiceTool({"remove", kName}).status, 1);
}

// The first removal, which the second one waits for, notifies and removes the copy.
TEST_F(CleanCommand, NotifiesOnceWhereTwoCompleteARemoval) {
    fs::remove(kPackage + kName);
    const std::string copy = MakeFile("/tmp/servicetool.remove.notes.sc." + DeadPid());
    ProgramResult result;
    {
        std::optional<Lock> first(std::in_place);
        std::thread second([&result] { result = ServiceTool({"remove", kName}); });
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        fs::remove(copy);
        first.reset();
        second.join();
    }
    EXPECT_THAT(result.err, HasSubstr("is not installed in"));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Calls(), "");
}

TEST_F(CleanCommand, KeepsTheCopyUntilTheyAreNotified) {
    fs::remove(kPackage + kName);
    const std::string copy = MakeFile("/tmp/servicetool.remove.notes.sc." + DeadPid());
    WriteFile("/run/exit-status/portforward", "1\n");
    const Json result = Json::Parse(ServiceTool({"remove", "--json", kName}).out);
    EXPECT_EQ(result["ok"], false);
    EXPECT_EQ(result["results"][0]["changed"], false);
    EXPECT_EQ(result["results"][0]["not_told"], Json::Array({"plugins", "relay"}));
    EXPECT_TRUE(fs::exists(copy));
    fs::remove("/run/exit-status/portforward");
    EXPECT_EQ(ServiceTool({"remove", kName}).status, 0);
    EXPECT_FALSE(fs::exists(copy));
}

TEST_F(CleanCommand, RemovesTheCopyOfAFileThatIsStillThere) {
    const std::string copy = MakeFile("/tmp/servicetool.remove.notes.sc." + DeadPid());
    const ProgramResult result = ServiceTool({"remove", "--dry-run", kName});
    EXPECT_THAT(result.out, Not(HasSubstr("removed already")));
    EXPECT_EQ(ServiceTool({"clean"}).status, 0);
    EXPECT_FALSE(fs::exists(copy));
    EXPECT_EQ(ReadFile(kPackage + kName), kText);
}

}  // namespace
}  // namespace tavo::test
