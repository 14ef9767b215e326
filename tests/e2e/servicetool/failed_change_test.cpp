// Plans or makes a change of a section while each system call of servicetool fails in turn. A plan
// is correct or absent, and a file has the old or the new text.
#include <gmock/gmock.h>

#include <ostream>

#include "change_world.h"
#include "failing_calls.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;

const std::string kFile = kPackage + "notes.sc";

struct Scene {
    std::string name;
    std::vector<std::string> command;
};

void PrintTo(const Scene &scene, std::ostream *out) {
    *out << scene.name;
}

class FailedChange : public ChangeWorld, public testing::WithParamInterface<Scene> {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile(kFile, kBefore);
    }

    static std::vector<std::string> Command() {
        std::vector<std::string> command = {SERVICETOOL};
        command.insert(command.end(), GetParam().command.begin(), GetParam().command.end());
        return command;
    }

    static std::vector<std::string> DryRun() {
        std::vector<std::string> command = Command();
        command.emplace_back("--dry-run");
        return command;
    }

    // Runs the command once for each of its system calls, with that call failing and the state
    // reset, and calls check(result).
    template <typename Check>
    void ForEachRun(Check check) {
        const std::vector<SystemCall> calls = CallsOnceLoaded(Command());
        int runs = 0;
        for (std::size_t i = 0; i < calls.size() && !HasFailure(); ++i) {
            const std::string &error = LookingErrors()[i % LookingErrors().size()];
            if (IsAboutMemory(calls[i]) || !CanFail(calls[i], error)) {
                continue;
            }
            Reset();
            SCOPED_TRACE(error + " at " + calls[i].line);
            const ProgramResult result = RunWithFault(Command(), calls[i], error);
            ++runs;
            if (result.status != 127) {  // 127: the loader did not start the program
                check(result);
            }
        }
        EXPECT_GT(runs, 50);
        Reset();
    }

    // A run that cannot remove its temporary files leaves them to servicetool clean.
    void Reset() {
        WriteFile(kFile, kBefore);
        for (const std::string &name : InTmp()) {
            std::filesystem::remove_all("/tmp/" + name);
        }
    }

    const std::string kBefore = Section("notes", "8765/tcp") + "\n" + Section("web", "8766/tcp");
};

using PlannedChange = FailedChange;

TEST_P(PlannedChange, ShowsTheRightPlanOrNone) {
    const ProgramResult right = RunProgram(Command());
    ASSERT_EQ(right.status, 0) << right.err;
    ForEachRun([&](const ProgramResult &result) {
        EXPECT_THAT(result.status, AnyOf(0, 1, 3)) << result.err;
        if (result.out.find("@@") != std::string::npos || result.status == 0) {
            EXPECT_EQ(result.out, right.out) << result.status;
        }
        EXPECT_EQ(ReadFile(kFile), kBefore);
        EXPECT_EQ(Entries(kSystem), std::vector<std::string>{});
    });
}

TEST_P(FailedChange, LeavesTheOldTextOrTheNewOne) {
    const ProgramResult right = RunProgram(Command());
    ASSERT_EQ(right.status, 0) << right.err;
    const std::string after = ReadFile(kFile);
    ASSERT_NE(after, kBefore);
    Reset();
    ForEachRun([&](const ProgramResult &result) {
        EXPECT_THAT(result.status, AnyOf(0, 1, 3)) << result.err;
        const std::string text = ReadFile(kFile);
        EXPECT_THAT(text, AnyOf(kBefore, after));
        if (result.status == 0) {
            EXPECT_EQ(text, after);
        }
        EXPECT_EQ(Entries(kSystem), std::vector<std::string>{});
    });
}

using FailedRemoval = FailedChange;

// A removal names all services that the firewall loses. It is refused if they are unknown.
constexpr char kWholeRemoval[] = ": remove with [notes] and [web]\n";

// All later calls fail as well, because the library tries once more to read a file.
TEST_P(FailedRemoval, IsRefusedIfASystemErrorHidesServices) {
    int refused = 0;
    for (const SystemCall &call : CallsOnceLoaded(DryRun())) {
        if (IsAboutMemory(call) || !CanFail(call, "EIO")) {
            continue;
        }
        SCOPED_TRACE(call.line);
        const ProgramResult result = RunWithFault(DryRun(), call, "EIO", "+");
        EXPECT_THAT(result.out, AnyOf("", HasSubstr(kWholeRemoval)));
        if (result.err.find("the services cannot be read: ") != std::string::npos) {
            EXPECT_THAT(result.err, HasSubstr(", so nothing was changed [failed]"));
            EXPECT_EQ(result.status, 3);
            ++refused;
        }
    }
    EXPECT_GT(refused, 0);
}

TEST_P(FailedRemoval, IsRefusedIfLackOfMemoryHidesServices) {
    const std::string count = kHome + "count";
    RunProgram(DryRun(), "", Preloading(FAILING_MALLOC, {"FAILING_MALLOC_COUNT=" + count}));
    const long allocations = std::stol(ReadFile(count));
    int refused = 0;
    for (long failing = 1; failing <= allocations && !HasFailure(); ++failing) {
        SCOPED_TRACE("allocation " + std::to_string(failing));
        Reset();
        const ProgramResult result =
            RunProgram(Command(), "",
                       Preloading(FAILING_MALLOC, {"FAILING_MALLOC=" + std::to_string(failing)}));
        if (result.out.find(kWholeRemoval) == std::string::npos) {
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.status, 3) << result.err;
            EXPECT_TRUE(std::filesystem::exists(kFile)) << result.err;
            ++refused;
        }
    }
    EXPECT_GT(refused, 30);
    Reset();
}

const std::vector<Scene> kChanges = {
    {"SetPorts", {"set-ports", "notes.sc", "notes", "8767"}},
    {"SetAddsASection",
     {"set", "notes.sc", "chat", "--title", "T", "--desc", "D", "--dst-ports", "8768/tcp"}},
    {"RemoveSection", {"remove-section", "notes.sc", "web"}},
};

std::vector<Scene> Plans() {
    std::vector<Scene> plans = kChanges;
    for (Scene &plan : plans) {
        plan.command.emplace_back("--dry-run");
    }
    return plans;
}

std::string NameOf(const testing::TestParamInfo<Scene> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Commands, FailedRemoval,
                         testing::Values(Scene{"Remove", {"remove", "notes.sc"}}), NameOf);
INSTANTIATE_TEST_SUITE_P(Commands, FailedChange, testing::ValuesIn(kChanges), NameOf);
INSTANTIATE_TEST_SUITE_P(Commands, PlannedChange, testing::ValuesIn(Plans()), NameOf);

}  // namespace
}  // namespace tavo::test
