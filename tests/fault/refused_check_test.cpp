// Each system call of the checks of ports fails, one at a time. The answer must then be that the
// port is taken or that this is unknown, but never that it is free.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "catalogue_test.h"
#include "patterns.h"
#include "system_calls.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using Texts = std::vector<std::string>;

// The output of the checker.
struct Answer {
    std::string result;
    std::string error;
    Texts records;
    Texts log;
};

Answer Parse(const std::string &out) {
    Answer answer;
    std::istringstream lines(out);
    std::getline(lines, answer.result);
    std::getline(lines, answer.error);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t blank = line.find(' ');
        (line.starts_with("record") ? answer.records : answer.log)
            .push_back(line.substr(blank + 1));
    }
    return answer;
}

// For each port the first record that is not "free"; "" if all records are.
std::map<std::string, std::string> Takers(const Answer &answer) {
    std::map<std::string, std::string> takers;
    for (const std::string &record : answer.records) {
        std::string &taker = takers[record.substr(0, record.find(' '))];
        if (taker.empty() && !record.ends_with(" free")) {
            taker = record;
        }
    }
    return takers;
}

class RefusedCheck : public CatalogueTest, public testing::WithParamInterface<const char *> {
  protected:
    explicit RefusedCheck(Texts arguments) : program_(std::move(arguments)) {
        program_.insert(program_.begin(), TAVO_FAULT_CHECKER);
    }

    static Answer Parsed(const ProgramResult &result) {
        EXPECT_EQ(result.status, 0) << result.err;
        return Parse(result.out);
    }

    // The system calls of the check in a run without a fault, except those for memory: how the
    // allocator handles a failure is outside of the library. Descriptors have the names of files.
    std::vector<SystemCall> Calls() const {
        const ProgramResult traced = RunTraced(program_, {"-y"});
        const Answer answer = Parsed(traced);
        EXPECT_EQ(answer.result, "0");
        for (const auto &[port, taker] : Takers(answer)) {
            EXPECT_NE(taker, "") << port;
        }
        std::vector<SystemCall> calls = CallsBetweenMarks(traced.err);
        std::erase_if(calls, IsAboutMemory);
        EXPECT_GT(calls.size(), 20U);
        return calls;
    }

    // The answer if that call fails with `error`; with "+", also all later calls of that name.
    Answer Refused(const SystemCall &call, const std::string &error,
                   const std::string &following = "") const {
        return Parsed(RunWithFault(program_, call, error, following));
    }

    static void ExpectTakenOrUnknown(const Answer &answer) {
        EXPECT_THAT(answer.result, AnyOf("0", "-1"));
        if (answer.result == "-1") {
            EXPECT_THAT(answer.error, AnyOf("0x200", "0x700", "0x900", "0x2A00"));
            EXPECT_THAT(answer.records, IsEmpty());
            ASSERT_THAT(answer.log, Not(IsEmpty()));
            EXPECT_EQ(answer.log.back(), "Failed to ServiceConfListFetch");
            return;
        }
        for (const auto &[port, taker] : Takers(answer)) {
            EXPECT_NE(taker, "") << port;
        }
    }

    void ExpectTakenOrUnknownWithoutDescriptors() const {
        for (const SystemCall &call : Calls()) {
            if (call.name == "openat") {
                SCOPED_TRACE("from " + call.line);
                ExpectTakenOrUnknown(Refused(call, "EMFILE", "+"));
            }
        }
    }

    Texts program_;
};

// Each source declares a port: a setting, a port of the system, a fixed and a provided port of a
// built-in service, and a service of a system file and of a package file.
class RefusedConfCheck : public RefusedCheck {
  protected:
    RefusedConfCheck() : RefusedCheck({"conf", "514", "5005", "23", "22", "2049", "7001", "7002"}) {
        WriteFile(kSettings, "syslogport=\"514\"\nsmsport=\"5000\"\n");
        for (const auto &[folder, port] :
             {std::pair{kSystemServices, "7001"}, {kPackageServices, "7002"}}) {
            WriteFile(std::string(folder) + "/service" + port + ".sc",
                      "[service" + std::string(port) + "]\ntitle=T\ndesc=D\ndst.ports=\"" + port +
                          "/tcp\"\n");
        }
    }
};

TEST_P(RefusedConfCheck, NeverTakesADeclaredPortForFree) {
    int unknown = 0;
    for (const SystemCall &call : Calls()) {
        SCOPED_TRACE(call.line);
        const Answer answer = Refused(call, GetParam());
        ExpectTakenOrUnknown(answer);
        unknown += answer.result == "-1" ? 1 : 0;
    }
    EXPECT_GT(unknown, 10);
}

// One program holds all four ports.
class RefusedRuntimeCheck : public RefusedCheck {
  protected:
    RefusedRuntimeCheck() : RefusedCheck({"runtime", "7001", "7002", "7003", "7004"}) {}

    // Whether the call reads the descriptors of a process.
    static bool LooksAtAProcess(const SystemCall &call) {
        return HasMatch(call.line, "/proc/[0-9]+/fd[\">]");
    }
};

TEST_P(RefusedRuntimeCheck, NeverTakesAHeldPortForFree) {
    int unknown = 0;
    for (const SystemCall &call : Calls()) {
        SCOPED_TRACE(call.line);
        // A process that the caller has no permission to inspect counts as holding nothing.
        // Otherwise ordinary users could not use the check.
        if (GetParam() == std::string("EACCES") && LooksAtAProcess(call)) {
            EXPECT_EQ(Refused(call, "EACCES").result, "0");
            continue;
        }
        const Answer answer = Refused(call, GetParam());
        ExpectTakenOrUnknown(answer);
        unknown += answer.result == "-1" ? 1 : 0;
    }
    EXPECT_GT(unknown, 10);
}

class ExhaustedConfCheck : public RefusedConfCheck {};
class ExhaustedRuntimeCheck : public RefusedRuntimeCheck {};

// Fails for all reasons except a missing permission.
class UnreadProcess : public RefusedRuntimeCheck {};

TEST_P(UnreadProcess, IsNamed) {
    const std::string error = GetParam();
    const std::string line = error == "ENOMEM"
                                 ? "Failed to alloc pInodeToPidsTable, Out of memory.\\[0x0200\\]"
                                 : "Failed to read the sockets of process [0-9]+.\\[0x0900\\]";
    int processes = 0;
    for (const SystemCall &call : Calls()) {
        // fcntl is called for the mode of the folder, and close may fail after everything was read.
        if (!LooksAtAProcess(call) || call.name == "close") {
            continue;
        }
        SCOPED_TRACE(call.line);
        const Answer answer = Refused(call, error);
        EXPECT_EQ(answer.result, "-1");
        EXPECT_EQ(answer.error, error == "ENOMEM" ? "0x200" : "0x900");
        EXPECT_THAT(answer.log,
                    ElementsAre(testing::MatchesRegex(line), "Failed to InodeToPidsTableFetch",
                                "Failed to ServiceConfListFetch"));
        ++processes;
    }
    EXPECT_GT(processes, 8);
}

// The program of a process is read once, unless that fails temporarily.
TEST_P(RefusedRuntimeCheck, AsksAgainForAProgramThatCouldNotBeRead) {
    const std::vector<SystemCall> calls = Calls();
    const auto look = std::find_if(calls.begin(), calls.end(), [](const SystemCall &call) {
        return call.name == "readlink" && call.line.find("/exe\"") != std::string::npos;
    });
    ASSERT_NE(look, calls.end());
    const Answer answer = Refused(*look, GetParam());
    if (GetParam() == std::string("ENOMEM")) {
        EXPECT_EQ(answer.result, "-1");
        EXPECT_THAT(answer.log, Contains("Failed to alloc szProgram, Out of memory.[0x0200]"));
        return;
    }
    const bool may_not = GetParam() == std::string("EACCES");
    int unnamed = 0;
    for (const auto &[port, taker] : Takers(answer)) {
        EXPECT_NE(taker, "") << port;
        unnamed += taker.find(" /") == std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(unnamed, may_not ? 4 : 1);
}

// No file can be opened after some point.
TEST_F(ExhaustedConfCheck, NeverTakesADeclaredPortForFree) {
    ExpectTakenOrUnknownWithoutDescriptors();
}

TEST_F(ExhaustedRuntimeCheck, NeverTakesAHeldPortForFree) {
    ExpectTakenOrUnknownWithoutDescriptors();
}

constexpr const char *kErrors[] = {"ENOMEM", "ENOSPC", "EIO", "EMFILE", "EINTR", "EACCES"};

std::string NameOf(const testing::TestParamInfo<const char *> &info) {
    return info.param;
}

INSTANTIATE_TEST_SUITE_P(Errors, RefusedConfCheck, testing::ValuesIn(kErrors), NameOf);
INSTANTIATE_TEST_SUITE_P(Errors, RefusedRuntimeCheck, testing::ValuesIn(kErrors), NameOf);
INSTANTIATE_TEST_SUITE_P(Errors, UnreadProcess,
                         testing::Values("ENOMEM", "ENOSPC", "EIO", "EMFILE", "EINTR"), NameOf);

}  // namespace
}  // namespace tavo::test
