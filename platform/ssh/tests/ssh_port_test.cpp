// Each test writes the configuration of the SSH server.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "failing_allocation.h"
#include "file_support.h"
#include "require_appliance.h"
#include "tavossh.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr char kConfiguration[] = "/etc/ssh/sshd_config";

class SshPort : public testing::Test {
  protected:
    SshPort() {
        RequireAppliance();
        fs::remove_all("/etc/ssh");
        fs::create_directory("/etc/ssh");
    }

    static int PortOf(const std::string &configuration) {
        WriteFile(kConfiguration, configuration);
        SetEarlierError();
        return TAVOServiceSSHPortGet();
    }

    static void ExpectRefused(const std::string &configuration) {
        WriteFile(kConfiguration, configuration);
        EXPECT_FAILURE(kBadParameterCode, TAVOServiceSSHPortGet()) << configuration.substr(0, 80);
    }
};

TEST_F(SshPort, IsTheConfiguredOne) {
    WriteFile(kConfiguration, "AddressFamily any\nPort 2222\nPermitRootLogin no\n");
    EXPECT_SUCCESS(2222, TAVOServiceSSHPortGet());
}

TEST_F(SshPort, Is22IfNoneIsConfigured) {
    for (const char *configuration :
         {"", "\n", "PermitRootLogin no\n", "#Port 2222\n", "  # Port 2222\n", "Ports 2222\n",
          "Por 2222\n", "ListenAddress 0.0.0.0:2222\n", "GatewayPorts 2222\n", "=2222\n",
          "\"Port\" 2222\n", "Include /etc/ssh/sshd_config.d/*.conf\n"}) {
        WriteFile(kConfiguration, configuration);
        EXPECT_SUCCESS(22, TAVOServiceSSHPortGet()) << configuration;
    }
}

TEST_F(SshPort, Is22WithoutAFile) {
    EXPECT_SUCCESS(22, TAVOServiceSSHPortGet());
    fs::create_symlink("nowhere", kConfiguration);
    EXPECT_SUCCESS(22, TAVOServiceSSHPortGet());
    fs::remove_all("/etc/ssh");
    EXPECT_SUCCESS(22, TAVOServiceSSHPortGet());
    WriteFile("/etc/ssh", "");
    EXPECT_SUCCESS(22, TAVOServiceSSHPortGet());
}

TEST_F(SshPort, IsTheFirstOfSeveral) {
    EXPECT_EQ(PortOf("Port 2222\nPort 22\n"), 2222);
}

TEST_F(SshPort, MustComeBeforeTheFirstMatch) {
    EXPECT_EQ(PortOf("Match User guest\nPort 2222\n"), 22);
    EXPECT_EQ(PortOf("\tmatch=User guest\nPort 2222\n"), 22);
    EXPECT_EQ(PortOf("Port 2222\nMatch User guest\nPort 4444\n"), 2222);
    EXPECT_EQ(PortOf("Matches none\nPort 2222\n"), 2222);
}

TEST_F(SshPort, IsReadAsTheServerReadsIt) {
    for (const char *line :
         {"port 2222", "PORT 2222", "pOrT\t2222", "  Port 2222", "\tPort   2222  ", "Port=2222",
          "Port = 2222", "Port =2222", "Port= 2222", "Port \"2222\"", "Port = \"2222\"",
          "Port '2222'", "Port=\"2222\"", "Port 2222 # not 22", "Port \"2222\" #", "Port 2222\r",
          "Port 2222\f", "Port 02222"}) {
        EXPECT_EQ(PortOf(line + "\n"s), 2222) << line;
        EXPECT_EQ(PortOf(line), 2222) << line << ", a last line without its newline";
        EXPECT_EQ(TLIBCErrGet(), kEarlierCode);
    }
}

TEST_F(SshPort, IsAnyPort) {
    EXPECT_EQ(PortOf("Port 1\n"), 1);
    EXPECT_EQ(PortOf("Port 65535\n"), 65535);
}

TEST_F(SshPort, IsRejectedIfInvalid) {
    for (const char *value :
         {"",      "=",      "0",    "65536", "4294967318", "99999999999999999999",
          "-22",   "+22",    "ssh",  "22x",   "22#",        "0x16",
          "== 22", "\"\"",   "\"22", "'22\"", "22 23",      "\"22\" 23",
          "22,23", "\"2 2\""}) {
        ExpectRefused("Port "s + value + "\nPort 2222\n");
    }
    ExpectRefused("Port 22\0\n"s);
}

TEST_F(SshPort, IsReadAfterAnyOtherLines) {
    EXPECT_EQ(PortOf(std::string(3'000'000, 'x') + "\nPort 2222\n"), 2222) << "a long line";
    EXPECT_EQ(PortOf(std::string(3'000'000, '\n') + "Port 2222\n"), 2222) << "many lines";
    EXPECT_EQ(PortOf("\0\xFF\x01Port 4444\n\0\nPort 2222\n"s), 2222) << "binary";
    for (const std::size_t size : {4095U, 4096U, 4097U}) {
        EXPECT_EQ(PortOf(std::string(size, '\n') + "Port 2222\n"), 2222) << "around the buffer";
        EXPECT_EQ(PortOf(std::string(size - 5, '\n') + "Port 2222\n"), 2222) << "across it";
    }
}

TEST_F(SshPort, IsRejectedOnALineThatIsTooLong) {
    const std::string line = "Port 2222";
    EXPECT_EQ(PortOf(line + std::string(1024 - line.size(), ' ') + "\n"), 2222);
    ExpectRefused(line + std::string(1025 - line.size(), ' ') + "\n");
    ExpectRefused("Port " + std::string(1024, ' ') + "2222\n");
}

TEST_F(SshPort, CannotBeReadUnlessItIsAFile) {
    fs::create_directory(kConfiguration);
    EXPECT_FAILURE(kUnusableCode, TAVOServiceSSHPortGet());
    fs::remove(kConfiguration);
    mkfifo(kConfiguration, 0644);
    EXPECT_FAILURE(kUnusableCode, TAVOServiceSSHPortGet()) << "a pipe must not hang the caller";
    fs::remove(kConfiguration);
    fs::create_symlink("/dev/zero", kConfiguration);
    EXPECT_FAILURE(kUnusableCode, TAVOServiceSSHPortGet()) << "which has no end";
    fs::remove(kConfiguration);
    fs::create_symlink("sshd_config", kConfiguration);
    EXPECT_FAILURE(kUnusableCode, TAVOServiceSSHPortGet()) << "a link to itself";
}

TEST_F(SshPort, CannotBeReadWithoutDescriptors) {
    WriteFile(kConfiguration, "Port 2222\n");
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_FAILURE(kUnusableCode, TAVOServiceSSHPortGet());
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_SUCCESS(2222, TAVOServiceSSHPortGet());
}

TEST_F(SshPort, IsReadThroughALink) {
    WriteFile("/etc/ssh/real", "Port 2222\n");
    fs::create_symlink("real", kConfiguration);
    EXPECT_EQ(TAVOServiceSSHPortGet(), 2222);
}

TEST_F(SshPort, LeavesNoDescriptorOpen) {
    const int before = dup(0);
    close(before);
    PortOf("Port 2222\n");
    PortOf("Port x\n");
    fs::remove(kConfiguration);
    TAVOServiceSSHPortGet();
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(SshPort, NeedsNoMemory) {
    WriteFile(kConfiguration, std::string(100'000, '#') + "\nPort 2222\n");
    EXPECT_EQ(WithoutMemory([] { return TAVOServiceSSHPortGet(); }), 2222);
}

}  // namespace
}  // namespace tavo::test
