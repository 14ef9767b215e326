// A service folder that cannot be listed because one system call fails. Its services are unknown,
// so no command may present the others as all there are.
#include <gmock/gmock.h>

#include <algorithm>

#include "failing_calls.h"
#include "service_folders.h"
#include "servicetool_run.h"

namespace tavo::test {
namespace {

using testing::HasSubstr;

// The calls of the program that list the package folder: opening it and reading its entries.
std::vector<SystemCall> ListingCalls(const std::vector<std::string> &program) {
    const std::vector<SystemCall> calls = CallsOnceLoaded(program);
    const auto opening = std::find_if(calls.begin(), calls.end(), [](const SystemCall &call) {
        return call.name == "openat" && call.line.find(kPackageServices) != std::string::npos &&
               call.line.find("O_DIRECTORY") != std::string::npos;
    });
    const auto reading = std::find_if(
        opening, calls.end(), [](const SystemCall &call) { return call.name == "getdents64"; });
    if (reading == calls.end()) {
        ADD_FAILURE() << "the folder is not listed";
        return {};
    }
    return {*opening, *reading};
}

struct Failure {
    const char *error;
    const char *text;
};

class UnlistedFolder : public ServiceFolders {
  protected:
    // Lists the folder with each of its calls failing in turn.
    static void ExpectUnknown(const std::vector<std::string> &arguments, const std::string &out) {
        std::vector<std::string> command = {SERVICETOOL};
        command.insert(command.end(), arguments.begin(), arguments.end());
        WriteFile(kSystem + "a.sc", Section("sys", "1"));
        EXPECT_EQ(RunProgram(command).status, 0);
        for (const SystemCall &call : ListingCalls(command)) {
            for (const auto &[error, text] :
                 {Failure{"EIO", "input/output error"}, Failure{"EMFILE", "too many open files"}}) {
                SCOPED_TRACE(error + (" at " + call.line));
                const ProgramResult result = RunWithFault(command, call, error);
                EXPECT_EQ(result.status, 3);
                EXPECT_THAT(result.out, HasSubstr(out));
                EXPECT_THAT(result.err, HasSubstr(std::string(kPackageServices) +
                                                  ": error: " + text + " [unreadable]\n"));
            }
        }
    }
};

TEST_F(UnlistedFolder, IsReportedByList) {
    ExpectUnknown({"list"}, "sys   a.sc  system");
}

TEST_F(UnlistedFolder, IsReportedByShow) {
    ExpectUnknown({"show", "sys"}, "Service:           sys\n");
}

TEST_F(UnlistedFolder, IsReportedByServices) {
    ExpectUnknown({"services"}, "\nsys ");
}

TEST_F(UnlistedFolder, IsReportedByCheck) {
    ExpectUnknown({"check", "8081/tcp", "--source", "service"}, "8081/tcp: cannot tell (service)");
}

}  // namespace
}  // namespace tavo::test
