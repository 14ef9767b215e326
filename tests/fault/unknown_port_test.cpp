// Each system call of a question about a taken port fails in turn. The answer must be that it is
// taken or that this is unknown, never that it is free.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "appliance.h"
#include "failing_calls.h"
#include "held_socket.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

std::string Service(const std::string &name, const std::string &ports) {
    return "[" + name + "]\ntitle=T\ndesc=D\ndst.ports=\"" + ports + "\"\n";
}

// A source that declares a port.
struct Source {
    const char *name;
    const char *flags;  // bits of TAVO_PORT_CHECK_*
    const char *port;
};

void PrintTo(const Source &source, std::ostream *out) {
    *out << source.name;
}

class UnknownPort : public testing::TestWithParam<Source>, protected Appliance {
  protected:
    UnknownPort() {
        WriteFile(kForwardingRules, "[1]\nprotocol name=tcp\ns_port=7001\nr_port=7002\n");
        WriteFile("/etc/tavoinfo.conf",
                  "ftpport=7021\nftplowport=7050\nftphighport=7060\nsyslogport=7514\n");
        WriteFile("/etc/ssh/sshd_config", "Port 7022\n");
        WriteFile("/etc/nfs/tavo_nfs_conf",
                  "nfs_custom_port_enable=yes\nstatd_port=7111\nnlm_port=7112\n");
        WriteFile(std::string(kSystemServices) + "/a.sc", Service("a", "7080/tcp"));
        WriteFile(std::string(kPackageServices) + "/b.sc", Service("b", "7081,7090:7099/tcp"));
    }

    // The calls of a run without faults.
    std::vector<SystemCall> CallsOfTheQuestion() const {
        const ProgramResult sound = RunTraced(program_);
        EXPECT_EQ(sound.out, "1\n") << sound.err;
        return CallsBetweenMarks(sound.err);
    }

    static void ExpectNotFree(const ProgramResult &result) {
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out == "1\n" || result.out == "-1\n") << result.out << result.err;
    }

    std::vector<std::string> program_ = {TAVO_FAULT_ASKER, "engine", GetParam().flags,
                                         GetParam().port, "tcp"};
    HeldSocket held_{AF_INET, SOCK_STREAM, 7999};
};

TEST_P(UnknownPort, NeverReadsFree) {
    const std::vector<SystemCall> calls = CallsOfTheQuestion();
    const int runs = ForEachFailingCall(
        program_, calls, [](const SystemCall &, const std::string &, const ProgramResult &result) {
            ExpectNotFree(result);
        });
    EXPECT_GT(runs, kInstrumented ? 3 : 20);
}

// The sources whose answers come from files.
class UnreadablePort : public UnknownPort {};

// No file can be opened after some point.
TEST_P(UnreadablePort, NeverReadsFree) {
    int runs = 0;
    for (const SystemCall &call : CallsOfTheQuestion()) {
        if (call.name == "openat") {
            SCOPED_TRACE("from " + call.line);
            ExpectNotFree(RunWithFault(program_, call, "EMFILE", "+"));
            ++runs;
        }
    }
    EXPECT_GT(runs, 0);
}

constexpr Source kFileSources[] = {
    {"rule", "2", "7002"},    {"fixed", "4", "23"},     {"nfs", "4", "7112"},
    {"ssh", "4", "7022"},     {"ftp", "4", "7055"},     {"system", "4", "7080"},
    {"package", "4", "7095"}, {"setting", "8", "7514"},
};
constexpr Source kSockets[] = {{"socket", "16", "7999"}};

std::string NameOf(const testing::TestParamInfo<Source> &source) {
    return source.param.name;
}

INSTANTIATE_TEST_SUITE_P(Files, UnknownPort, testing::ValuesIn(kFileSources), NameOf);
INSTANTIATE_TEST_SUITE_P(Sockets, UnknownPort, testing::ValuesIn(kSockets), NameOf);
INSTANTIATE_TEST_SUITE_P(Files, UnreadablePort, testing::ValuesIn(kFileSources), NameOf);

}  // namespace
}  // namespace tavo::test
