// A taken port is never reported as free, suggested or given to a new file, whatever fails: for
// each source, each system call of the commands fails in turn, and allocations from the first to
// the last.
#include <gmock/gmock.h>

#include <memory>
#include <ostream>

#include "change_world.h"
#include "failing_calls.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint32_t kPort = 8765;

enum class Source { kForward, kService, kSetting, kSocket };

struct Question {
    std::string name;
    Source source;
    std::vector<std::string> command;
};

void PrintTo(const Question &question, std::ostream *out) {
    *out << question.name;
}

std::vector<Question> Questions() {
    struct Named {
        const char *name;
        const char *word;
        Source source;
    };
    constexpr Named kSources[] = {{"Forward", "forward", Source::kForward},
                                  {"Service", "service", Source::kService},
                                  {"Setting", "setting", Source::kSetting},
                                  {"Socket", "socket", Source::kSocket}};
    std::vector<Question> questions;
    for (const Named &source : kSources) {
        const std::string name = source.name;
        questions.push_back(
            {"Check" + name, source.source, {"check", "8765/tcp", "--source", source.word}});
        questions.push_back({"Why" + name, source.source, {"why", "8765/tcp"}});
        questions.push_back(
            {"Suggest" + name, source.source, {"suggest", "--near", "8765", "--proto", "tcp"}});
        // An installation does not check forwarding rules.
        if (source.source != Source::kForward) {
            questions.push_back({"Install" + name, source.source, {"install", "notes.sc"}});
        }
    }
    return questions;
}

class UnknownAnswer : public ChangeWorld, public testing::WithParamInterface<Question> {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile("notes.sc", Section("notes", "8765/tcp"));
        switch (GetParam().source) {
            case Source::kForward:
                WriteFile(kRules, Rule("1", "x", "8765", "8765"));
                break;
            case Source::kService:
                WriteFile(kPackage + "old.sc", Section("old", "8765/tcp"));
                break;
            case Source::kSetting:
                WriteFile(kSettings, "ftpport=8765\n");
                break;
            case Source::kSocket:
                held_ = std::make_unique<HeldPort>(Family::kV4, Protocol::kTcp, kPort);
                break;
        }
        EXPECT_EQ(RunProgram(Command()).status, GetParam().command[0] == "suggest" ? 0 : 1);
    }

    static std::vector<std::string> Command() {
        std::vector<std::string> command = GetParam().command;
        command.insert(command.begin(), SERVICETOOL);
        return command;
    }

    static void ExpectNeverFree(const ProgramResult &result) {
        if (result.status == 127) {
            return;  // the loader could not start the program
        }
        const bool suggests = GetParam().command[0] == "suggest";
        EXPECT_THAT(result.status, suggests ? AnyOf(0, 1, 3) : AnyOf(1, 3, 3))
            << result.out << result.err;
        EXPECT_THAT(result.out, Not(HasSubstr("is free")));
        EXPECT_FALSE(suggests && result.out == "8765\n");
        EXPECT_FALSE(std::filesystem::exists(kPackage + "notes.sc")) << result.out;
    }

    std::unique_ptr<HeldPort> held_;
};

// Each call fails with one of the errors, the next call with the next one.
TEST_P(UnknownAnswer, IsNotFreeWhicheverSystemCallFails) {
    const std::vector<std::string> &errors = LookingErrors();
    std::size_t turn = 0;
    int runs = 0;
    for (const SystemCall &call : CallsOnceLoaded(Command())) {
        const std::string &error = IsAboutMemory(call) ? "ENOMEM" : errors[turn++ % errors.size()];
        if (CanFail(call, error)) {
            SCOPED_TRACE(error + " at " + call.line);
            ExpectNeverFree(RunWithFault(Command(), call, error));
            ++runs;
        }
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(runs, 20);
}

TEST_P(UnknownAnswer, IsNotFreeWhicheverAllocationFails) {
    const std::string count = kHome + "count";
    RunProgram(Command(), "", Preloading(FAILING_MALLOC, {"FAILING_MALLOC_COUNT=" + count}));
    const long allocations = std::stol(ReadFile(count));
    // Each run takes milliseconds, and there are thousands of allocations, so only a few hundred
    // are tested, from the first to the last.
    const long step = std::max(allocations / 300, 1L);
    for (long failing = 1; failing <= allocations && !HasFailure(); failing += step) {
        SCOPED_TRACE("allocation " + std::to_string(failing));
        std::filesystem::remove(count);
        ExpectNeverFree(
            RunProgram(Command(), "",
                       Preloading(FAILING_MALLOC, {"FAILING_MALLOC=" + std::to_string(failing),
                                                   "FAILING_MALLOC_COUNT=" + count})));
        EXPECT_GE(std::stol(ReadFile(count)), failing) << "it was not reached";
    }
    EXPECT_GT(allocations, 30);
}

INSTANTIATE_TEST_SUITE_P(Commands, UnknownAnswer, testing::ValuesIn(Questions()),
                         [](const auto &question) { return question.param.name; });

}  // namespace
}  // namespace tavo::test
