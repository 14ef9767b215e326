// Changes of the service file game.sc by a program that can be killed or made to fail, and the
// checks that the file and everything around it must pass afterwards.
#ifndef TAVO_TESTS_FAULT_CHANGE_UNDER_FIRE_H
#define TAVO_TESTS_FAULT_CHANGE_UNDER_FIRE_H

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <filesystem>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "lifecycle_test.h"
#include "patterns.h"
#include "system_calls.h"

namespace tavo::test {

// A text that cp copies with several writes, so that an incomplete copy is noticed.
inline std::string Filler() {
    return std::string(300'000, '#') + "\n";
}

// From a function because the compiler would spend a second on a constant of this size.
inline const std::string kFiller = Filler();

inline std::string GameFile(const std::string &ports, const std::string &more = "") {
    return kFiller + "[game]\ntitle=Game\ndesc=A game\ndst.ports=\"" + ports + "\"\n" + more;
}

using Contents = std::optional<std::string>;

// A change and the contents of the file before it; no contents if the file is missing.
struct Scene {
    std::string name;
    std::string change;
    Contents before;
};

inline void PrintTo(const Scene &scene, std::ostream *out) {
    *out << scene.name;
}

inline std::vector<Scene> Scenes() {
    const std::string game = GameFile("7001/tcp");
    const std::string lobby = "[lobby]\ntitle=Lobby\ndesc=A lobby\ndst.ports=\"7100/tcp\"\n";
    return {
        {"Install", "install", game},
        {"FirstInstall", "install", {}},
        {"Update", "update", game},
        {"Remove", "remove", game},
        {"SetSection", "set", game},
        {"SetFirstSection", "set", {}},
        {"SetPorts", "set-ports", game},
        {"RemoveSection", "remove-section", GameFile("7001/tcp", lobby)},
        {"RemoveLastSection", "remove-section", game},
    };
}

// What the program printed about the change; no result if it did not finish.
struct Outcome {
    std::optional<int> result;
    std::string code;
    std::string left_open;
    std::string log;
    std::string trace;
};

class ChangeUnderFire : public LifecycleTest, public testing::WithParamInterface<Scene> {
  protected:
    ChangeUnderFire() {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        // The stand-in records what it reads, which takes longer than the change.
        WriteScript("/usr/tavo/lib/plugins/port_config/portforward", "exec cat > /dev/null");
        std::filesystem::create_directory("/packages");
        WriteFile("/packages/game.sc", GameFile("7002/tcp"));
    }

    void TearDown() override {
        Prepare({});
        LifecycleTest::TearDown();
    }

    // Puts the folders into their state before the change.
    void Prepare(const Contents &before) {
        for (const std::string &folder : kStores) {
            for (const std::string &name : Entries(folder)) {
                if (name != "services.d" && HasMatch(folder + "/" + name, kLeftovers)) {
                    std::filesystem::remove_all(folder + "/" + name);
                }
            }
        }
        std::filesystem::create_directories("/usr/tavo/etc/firewall.d");
        WriteFile("/usr/tavo/etc/firewall.d/rules.conf", "# firewall\n");
        WriteFile(kForwardingRules, "# rules\n");
        std::filesystem::create_directories(kPackageServices);
        for (const std::string &name : Entries(kPackageServices)) {
            std::filesystem::remove_all(std::string(kPackageServices) + "/" + name);
        }
        WriteFile(kChatPath, kChat);
        if (before) {
            WriteFile(kGamePath, *before);
        }
    }

    // The contents of a file in the side copies. A rollback moves the folder of the service files
    // as a whole, so the file may be in one of them.
    static Contents SavedContents(const std::string &name) {
        for (const auto &entry : std::filesystem::directory_iterator("/usr/local/etc")) {
            const std::filesystem::path saved = entry.path() / name;
            if (entry.path().filename() != "services.d" && std::filesystem::exists(saved)) {
                return ReadFile(saved);
            }
        }
        return {};
    }

    static Contents GameContents() {
        return std::filesystem::exists(kGamePath) ? Contents(ReadFile(kGamePath)) : Contents();
    }

    static std::vector<std::string> Program(const std::string &change) {
        return {TAVO_FAULT_CHANGER, change};
    }

    static Outcome Make(const std::string &change) { return Result(RunProgram(Program(change))); }

    // Makes the change with a fault at that call.
    static Outcome Make(const std::string &change, const SystemCall &call,
                        const std::string &fault) {
        return Result(RunWithFault(Program(change), call, fault));
    }

    static Outcome Result(const ProgramResult &ran) {
        // Programs started by a killed program continue and become children of this process.
        while (waitpid(-1, nullptr, 0) > 0) {
        }
        Outcome outcome;
        std::istringstream lines(ran.out);
        if (int result = 0; lines >> result >> outcome.code >> outcome.left_open) {
            outcome.result = result;
        }
        std::getline(lines >> std::ws, outcome.log, '\0');
        outcome.trace = ran.err;
        return outcome;
    }

    // Makes the change without a fault, to record its system calls and the resulting file.
    std::vector<SystemCall> Rehearse(const Scene &scene) {
        Prepare(scene.before);
        const Outcome outcome = Result(RunTraced(Program(scene.change)));
        EXPECT_EQ(outcome.result, 0) << outcome.log;
        after_ = GameContents();
        EXPECT_NE(after_, scene.before);
        EXPECT_THAT(Lying(), testing::ElementsAre());
        return CallsBetweenMarks(outcome.trace);
    }

    // Removes the firewall tool, so that removals of a section are rolled back from now on. Returns
    // the system calls of such a removal.
    std::vector<SystemCall> RehearseRollback(const Contents &old) {
        std::filesystem::remove(kFirewallTool);
        Prepare(old);
        const Outcome outcome = Result(RunTraced(Program("remove-section")));
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(GameContents(), old);
        return CallsBetweenMarks(outcome.trace);
    }

    // All entries of /tmp and of the folders around the service files that do not belong there.
    std::vector<std::string> Lying() const {
        std::vector<std::string> paths;
        for (const std::string &folder : kStores) {
            for (const std::string &name : folder == "/tmp" ? InTmp() : Entries(folder)) {
                const std::string path = folder + "/" + name;
                if (path != kGamePath && !IsMatch(path, kPeace)) {
                    paths.push_back(path);
                }
            }
        }
        return paths;
    }

    // Repeats the change, which must succeed unless nothing is left to do. It must add no
    // leftovers. Those that remain must have the name of a terminated process or be the result of a
    // failed copy, which is kept for diagnosis.
    void ExpectNextChangeSucceeds(const std::string &change) {
        const std::vector<std::string> lying = Lying();
        const bool done = change == "remove" && !GameContents();
        const Outcome outcome = Make(change);
        EXPECT_EQ(outcome.result, done ? -1 : 0) << outcome.log;
        EXPECT_EQ(GameContents(), after_);
        if (change == "remove-section" && std::filesystem::exists(kWriterFolder)) {
            // Nothing was left to write. The next writer removes the folder of the writer.
            EXPECT_EQ(Make("set").result, 0);
        }
        for (const std::string &path : Lying()) {
            EXPECT_THAT(lying, testing::Contains(path));
            EXPECT_TRUE(IsMatch(path, kLeftovers)) << path << " stays for good";
        }
    }

    // A change that creates the file may leave it empty. A change that removes it with its last
    // section may leave it without the section.
    bool IsHalfDone(const Contents &contents) const {
        return GetParam().before ? !after_ && contents == kFiller : contents == "";
    }

    // The other service file, and the stores that the change only copies, must be unchanged.
    static void ExpectAllElseUntouched() {
        EXPECT_EQ(ReadFile(kChatPath), kChat);
        EXPECT_EQ(ReadFile(kForwardingRules), "# rules\n");
        EXPECT_THAT(Entries("/usr/tavo/etc/firewall.d"), testing::ElementsAre("rules.conf"));
        EXPECT_EQ(ReadFile("/usr/tavo/etc/firewall.d/rules.conf"), "# firewall\n");
    }

    static inline const std::string kGamePath = std::string(kPackageServices) + "/game.sc";
    static inline const std::string kChatPath = std::string(kPackageServices) + "/chat.sc";
    static inline const std::string kChat =
        "# not a byte of it changes\n[chat]\ntitle=Chat\ndesc=A chat\ndst.ports=\"7200/tcp\"\n";
    static inline const std::string kWriterFolder = std::string(kPackageServices) + "/.tavo-write";
    static inline const std::vector<std::string> kStores = {
        "/tmp",          "/usr/local/etc/services.d", "/usr/local/etc/services.d/tmp",
        "/usr/tavo/etc", "/usr/tavo/etc/portforward", "/usr/local/etc"};
    static constexpr char kPeace[] =
        "/usr/local/etc/services\\.d(/tmp|/chat\\.sc)?|/usr/tavo/etc/"
        "(services\\.d|firewall\\.d|portforward|"
        "portforward/rule\\.conf|firewall_service_mapping_table)";
    static constexpr char kLeftovers[] =
        "/tmp/servicetool\\.remove\\.game\\.sc\\.[0-9]+|"
        "/usr/local/etc/services\\.d/tmp/game\\.sc\\.[A-Za-z0-9]{6}|"
        "/usr/(local/etc/services\\.d|tavo/etc/(firewall\\.d|portforward/rule\\.conf))"
        "\\.tmp\\.[0-9]+";

    Contents after_;
};

}  // namespace tavo::test

#endif
