// The names in /tmp that a change uses are predictable, so other users can create entries there in
// advance. A link, a file, a pipe, a socket or an empty folder is removed and the change succeeds;
// a non-empty folder or a device remains and the copy fails. None of them may redirect the change
// to another file or block it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "change_under_fire.h"

namespace tavo::test {
namespace {

constexpr char kVictim[] = "/packages/victim";
constexpr char kVictimFolder[] = "/packages/folder";

struct Plant {
    const char *name;
    std::function<bool(const char *path)> at;
    bool goes;
};

const Plant kPlants[] = {
    {"link to a file", [](const char *path) { return symlink(kVictim, path) == 0; }, true},
    {"link to nothing", [](const char *path) { return symlink("/packages/nothing", path) == 0; },
     true},
    {"link to a folder", [](const char *path) { return symlink(kVictimFolder, path) == 0; }, true},
    {"second name of a file", [](const char *path) { return link(kVictim, path) == 0; }, true},
    {"file", [](const char *path) { return WriteFile(path, "planted"), true; }, true},
    {"pipe", [](const char *path) { return mkfifo(path, 0666) == 0; }, true},
    {"socket", [](const char *path) { return MakeSocket(path), true; }, true},
    {"folder", [](const char *path) { return mkdir(path, 0777) == 0; }, true},
    {"full folder",
     [](const char *path) {
         return mkdir(path, 0777) == 0 && mkdir((std::string(path) + "/sub").c_str(), 0777) == 0;
     },
     false},
    {"device", [](const char *path) { return mknod(path, S_IFCHR | 0666, makedev(1, 3)) == 0; },
     false},
};

struct PlantedChange {
    const char *name;
    std::string path;
    std::function<int()> make;
    std::string refusal;  // log line of a change that needs the copy
};

TAVO_SERVICE_CONF_SET_PARAM GameParam() {
    TAVO_SERVICE_CONF_SET_PARAM param = Param("game.sc", "game");
    param.nLocation = TAVO_SERVICE_CONF_DIR_PACKAGE;
    return param;
}

int Set() {
    const Ports ports = MakePorts("7002/tcp");
    const TAVO_SERVICE_CONF_SET_PARAM param = GameParam();
    TAVO_SERVICE_CONF_SECTION section = {};
    Fill(section.szName, "game");
    Fill(section.strTitle.szText, "Game");
    Fill(section.strDesc.szText, "A game");
    section.pDstPorts = ports.get();
    return TLIBServiceConfSectionSet(&param, &section);
}

int SetPorts() {
    const Ports ports = MakePorts("7002/tcp");
    const TAVO_SERVICE_CONF_SET_PARAM param = GameParam();
    return TLIBServiceConfPortsSet(&param, ports.get());
}

int Update() {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int result = TAVOServiceConfUpdateBaseName("game.sc", "/packages/game.sc",
                                                     TAVO_SERVICE_CONF_DIR_PACKAGE, &conflicts);
    const Ports owned(conflicts);
    return result;
}

int Remove() {
    return TAVOServiceConfRemoveBaseName("game.sc", TAVO_SERVICE_CONF_DIR_PACKAGE);
}

class PlantedEntry : public ChangeUnderFire {
  protected:
    PlantedEntry() {
        WriteFile(kVictim, "the victim's own");
        std::filesystem::create_directory(kVictimFolder);
        alarm(60);  // ends the test if it blocks
    }
    ~PlantedEntry() override { alarm(0); }

    // Returns whether the entry was created: an ordinary user cannot create devices.
    bool Start(const Plant &plant, const std::string &path) {
        Prepare(kOld);
        log_.Clear();
        return plant.at(path.c_str());
    }

    void ExpectSuccess(const PlantedChange &change) {
        EXPECT_EQ(change.make(), 0);
        EXPECT_THAT(Messages(), testing::ElementsAre());
        EXPECT_NE(GameContents(), kOld);
        EXPECT_THAT(InTmp(), testing::ElementsAre());
    }

    void ExpectNoCopy(const PlantedChange &change) {
        struct stat before = {};
        struct stat after = {};
        ASSERT_EQ(lstat(change.path.c_str(), &before), 0);
        EXPECT_EQ(change.make(), change.refusal.empty() ? 0 : -1);
        if (!change.refusal.empty()) {
            EXPECT_THAT(Messages(), testing::Contains(change.refusal));
        }
        EXPECT_EQ(GameContents(), change.refusal.empty() ? Contents() : kOld);
        ASSERT_EQ(lstat(change.path.c_str(), &after), 0);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_mode, before.st_mode);
        std::filesystem::remove_all(change.path);
    }

    static inline const std::string kOld = GameFile("7001/tcp");
};

TEST_F(PlantedEntry, LeadsNoChangeElsewhere) {
    const std::string copy = "FAILED to copy from file=" + kGamePath + " to backup path=";
    const std::string of_update = "/tmp/servicetool.update.game.sc.old";
    const std::string of_removal = "/tmp/servicetool.remove.game.sc." + std::to_string(getpid());
    const PlantedChange changes[] = {
        {"set", "/tmp/game.sc", Set, copy + "/tmp/game.sc"},
        {"set-ports", "/tmp/game.sc", SetPorts, copy + "/tmp/game.sc"},
        {"update", of_update, Update, copy + of_update},
        {"remove", of_removal, Remove, ""},
    };
    for (const PlantedChange &change : changes) {
        for (const Plant &plant : kPlants) {
            SCOPED_TRACE(std::string(change.name) + " with a " + plant.name);
            if (!Start(plant, change.path)) {
                continue;
            }
            plant.goes ? ExpectSuccess(change) : ExpectNoCopy(change);
            EXPECT_EQ(ReadFile(kVictim), "the victim's own");
            EXPECT_THAT(Entries(kVictimFolder), testing::ElementsAre());
            EXPECT_FALSE(std::filesystem::exists("/packages/nothing"));
        }
    }
}

// ---- Programs started by a change ----

// Replaces the program with a script that lists its descriptors before it does its work.
void ListDescriptorsOf(const std::string &program, const std::string &work) {
    WriteScript(program,
                "for fd in /proc/$$/fd/*; do\n"
                "  [[ -e $fd && $fd != */255 ]] && open+=\" ${fd##*/}\"\n"
                "done\n"
                "echo \"${0##*/}$open\" >> /run/descriptors\n" +
                    work);
}

class StartedProgram : public ChangeUnderFire {
  protected:
    StartedProgram() {
        for (const char *name : {"cp", "mv", "rm", "mkdir"}) {
            ListDescriptorsOf(std::string("/bin/") + name,
                              std::string("exec /usr/bin/") + name + " \"$@\"\n");
        }
        for (const char *tool : {kRouterTool, kFirewallTool, "/bin/systemctl",
                                 "/usr/tavo/lib/plugins/port_config/portforward"}) {
            ListDescriptorsOf(tool, "");
        }
        for (int i = 0; i < 20; ++i) {
            open_.push_back(open("/packages/game.sc", O_RDONLY));
            open_.push_back(dup2(open_.back(), 100 + i));
        }
    }

    void TearDown() override {
        for (const int descriptor : open_) {
            close(descriptor);
        }
        ChangeUnderFire::TearDown();
    }

    std::vector<int> open_;
};

TEST_F(StartedProgram, HasNoDescriptorOfTheCaller) {
    Prepare(GameFile("7001/tcp"));
    TAVO_SERVICE_CONF_SET_PARAM param = GameParam();
    param.nRestartMode = TAVO_RESTART_MODE_RESTART;
    param.nCheckFlags |= TAVO_PORT_CHECK_DEFAULT | TAVO_PORT_CHECK_PORT_FORWARD;
    const Ports ports = MakePorts("7002/tcp");
    EXPECT_EQ(TLIBServiceConfPortsSet(&param, ports.get()), 0);
    EXPECT_EQ(Update(), 0);
    EXPECT_EQ(TLIBServiceConfBackup(&param), 0);
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_EQ(Remove(), 0);
    std::istringstream lines(ReadFile("/run/descriptors"));
    std::set<std::string> programs;
    for (std::string line; std::getline(lines, line);) {
        programs.insert(line);
    }
    EXPECT_THAT(programs, testing::ElementsAre("cp 0 1 2", "mkdir 0 1 2", "mv 0 1 2",
                                               "portforward 0 1 2", "rm 0 1 2", "systemctl 0 1 2",
                                               "tavofirewall 0 1 2", "tavoroutertool 0 1 2"));
}

}  // namespace
}  // namespace tavo::test
