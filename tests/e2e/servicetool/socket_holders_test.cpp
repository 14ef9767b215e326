// The holders of ports and whether they are programs of a service, tested without a command.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "check/held_sockets.h"
#include "held_socket.h"
#include "holding_program.h"
#include "output/report.h"
#include "port_world.h"
#include "ports/port_claims.h"
#include "support/failure.h"
#include "tavoserviceconf.h"

namespace {

// The number of scans of the processes that find no sockets, as if all sockets were new.
int blind_looks = 0;
int looks = 0;

// If set, the links to executables cannot be read.
bool without_programs = false;

// Called after the socket tables were read once.
std::function<void()> after_tables;

}  // namespace

namespace tavo {

// The linker names the library's functions __real_NAME and redirects their callers to __wrap_NAME.
bool LinkedCollect(InodeHolders *holders,
                   const Place &here) asm("__real__ZN4tavo12InodeHolders7CollectERKNS_5PlaceE");
bool StandInCollect(InodeHolders *holders,
                    const Place &here) asm("__wrap__ZN4tavo12InodeHolders7CollectERKNS_5PlaceE");
OwnedText LinkedProgram(std::uint32_t pid) asm("__real__ZN4tavo11ReadProgramEj");
OwnedText StandInProgram(std::uint32_t pid) asm("__wrap__ZN4tavo11ReadProgramEj");
OwnedNames LinkedTable(const Place &here,
                       const char *path) asm("__real__ZN4tavo15ReadSocketTableERKNS_5PlaceEPKc");
OwnedNames StandInTable(const Place &here,
                        const char *path) asm("__wrap__ZN4tavo15ReadSocketTableERKNS_5PlaceEPKc");

bool StandInCollect(InodeHolders *holders, const Place &here) {
    ++looks;
    if (blind_looks > 0) {
        --blind_looks;
        return true;
    }
    return LinkedCollect(holders, here);
}

OwnedText StandInProgram(std::uint32_t pid) {
    if (without_programs) {
        errno = EACCES;
        return nullptr;
    }
    return LinkedProgram(pid);
}

OwnedNames StandInTable(const Place &here, const char *path) {
    OwnedNames lines = LinkedTable(here, path);
    if (after_tables && std::string_view(path) == "/proc/net/udp6") {
        std::exchange(after_tables, nullptr)();
    }
    return lines;
}

}  // namespace tavo

namespace tavo::test {

using namespace tool;

namespace {

PortClaims ReadHeld() {
    Report report(false);
    return ReadPortClaims({}, TAVO_PORT_CHECK_RUNTIME, report);
}

// The holders of the ports from 8000 to 8099, as "8080 1 LISTEN 812" or "8080 1 LISTEN ?".
std::vector<std::string> Held() {
    const PortClaims held = ReadHeld();
    EXPECT_EQ(held.failed, 0);
    std::vector<std::string> texts;
    for (const PortClaim &socket : held.claims) {
        if (socket.range.first / 100 == 80) {
            texts.push_back(
                std::to_string(socket.range.first) + ' ' + std::to_string(socket.protocol) + ' ' +
                StateName(socket) + ' ' +
                (socket.process != nullptr ? std::to_string(socket.process->pid) : "?"));
        }
    }
    return texts;
}

class SocketHoldersTest : public ServiceFolders {
  protected:
    void SetUp() override {
        looks = 0;
        blind_looks = 0;
        without_programs = false;
        after_tables = nullptr;
    }

    const std::string self_ = std::to_string(getpid());
};

TEST_F(SocketHoldersTest, AreInOrderAndEachThereOnce) {
    const HeldSocket udp(AF_INET, SOCK_DGRAM, 8001);
    const HeldSocket tcp4(AF_INET, SOCK_STREAM, 8001);
    const HeldSocket tcp6(AF_INET6, SOCK_STREAM, 8001);
    const HeldSocket first(AF_INET6, SOCK_STREAM, 8000);
    const TemporaryFolder folder;
    const int twice = dup(tcp4.Descriptor());
    const HoldingProgram child(folder / "child", tcp4.Descriptor());
    EXPECT_THAT(Held(), testing::ElementsAre("8000 1 LISTEN " + self_, "8001 1 LISTEN " + self_,
                                             "8001 1 LISTEN " + std::to_string(child.Pid()),
                                             "8001 2 UNCONNECTED " + self_));
    EXPECT_EQ(looks, 1);
    close(twice);
}

TEST_F(SocketHoldersTest, AreLookedForOnceMoreWhenTheyAreNew) {
    const HeldSocket one(AF_INET, SOCK_STREAM, 8000);
    const HeldSocket other(AF_INET, SOCK_STREAM, 8001);
    blind_looks = 1;
    EXPECT_THAT(Held(), testing::ElementsAre("8000 1 LISTEN " + self_, "8001 1 LISTEN " + self_));
    EXPECT_EQ(looks, 2);
    blind_looks = 2;
    EXPECT_THAT(Held(), testing::ElementsAre("8000 1 LISTEN ?", "8001 1 LISTEN ?"));
    EXPECT_EQ(looks, 4);
}

TEST_F(SocketHoldersTest, AreCalledAsTheyCallThemselvesWhereTheirProgramsAreUnknown) {
    const HeldSocket socket(AF_INET, SOCK_STREAM, 8000);
    ASSERT_EQ(prctl(PR_SET_NAME, "a (b)\n\n"), 0);
    without_programs = true;
    const PortClaims held = ReadHeld();
    ASSERT_EQ(held.claims.size(), 1U);
    EXPECT_EQ(held.claims[0].process->program, "");
    EXPECT_EQ(held.claims[0].process->name, "a (b)\n\n");
}

// A socket in transit from one process to another, so that neither process has it open.
class HandedOver {
  public:
    explicit HandedOver(int descriptor) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair_), 0);
        cmsghdr *control = Prepare();
        std::memcpy(CMSG_DATA(control), &descriptor, sizeof(descriptor));
        EXPECT_EQ(sendmsg(pair_[0], &message_, 0), 1);
    }
    ~HandedOver() {
        for (const int descriptor : {pair_[0], pair_[1], received_}) {
            close(descriptor);
        }
    }
    HandedOver(const HandedOver &) = delete;
    HandedOver &operator=(const HandedOver &) = delete;

    void Receive() {
        cmsghdr *control = Prepare();
        EXPECT_EQ(recvmsg(pair_[1], &message_, MSG_CMSG_CLOEXEC), 1);
        std::memcpy(&received_, CMSG_DATA(control), sizeof(received_));
    }

  private:
    cmsghdr *Prepare() {
        message_.msg_iov = &content_;
        message_.msg_iovlen = 1;
        message_.msg_control = control_;
        message_.msg_controllen = sizeof(control_);
        cmsghdr *control = CMSG_FIRSTHDR(&message_);
        control->cmsg_level = SOL_SOCKET;
        control->cmsg_type = SCM_RIGHTS;
        control->cmsg_len = CMSG_LEN(sizeof(int));
        return control;
    }

    int pair_[2] = {-1, -1};
    int received_ = -1;
    char byte_ = 0;
    iovec content_ = {&byte_, 1};
    alignas(cmsghdr) char control_[CMSG_SPACE(sizeof(int))] = {};
    msghdr message_ = {};
};

TEST_F(SocketHoldersTest, DoNotCountOnceTheyHaveEnded) {
    const TemporaryFolder folder;
    for (const bool noted : {false, true}) {
        std::optional<HeldSocket> socket(std::in_place, AF_INET, SOCK_STREAM, 8000);
        std::optional<HoldingProgram> child(std::in_place, folder / "child", socket->Descriptor());
        const auto end = [&] { noted ? child.reset() : child->End(); };
        after_tables = end;
        EXPECT_THAT(Held(), testing::ElementsAre("8000 1 LISTEN " + self_)) << noted;
        child.emplace(folder / "child", socket->Descriptor());
        socket.reset();
        after_tables = end;
        EXPECT_THAT(Held(), testing::IsEmpty()) << noted;
    }
}

TEST_F(SocketHoldersTest, MayHandTheirSocketsOverBeforeTheyEnd) {
    const TemporaryFolder folder;
    for (const bool received : {true, false}) {
        std::optional<HeldSocket> socket(std::in_place, AF_INET, SOCK_STREAM, 8000);
        HoldingProgram child(folder / "child", socket->Descriptor());
        HandedOver on_its_way(socket->Descriptor());
        socket.reset();
        after_tables = [&] {
            child.End();
            if (received) {
                on_its_way.Receive();
            }
        };
        EXPECT_THAT(Held(), testing::ElementsAre("8000 1 LISTEN " + (received ? self_ : "?")));
    }
}

TEST(SocketStates, HaveNames) {
    struct {
        std::uint32_t protocol;
        std::uint32_t state;
        const char *name;
    } const states[] = {
        {TAVO_PROTO_TCP, 10, "LISTEN"},     {TAVO_PROTO_TCP, 1, "ESTABLISHED"},
        {TAVO_PROTO_TCP, 7, "CLOSE"},       {TAVO_PROTO_TCP, 8, "CLOSE_WAIT"},
        {TAVO_PROTO_UDP, 7, "UNCONNECTED"}, {TAVO_PROTO_UDP, 1, "CONNECTED"},
        {TAVO_PROTO_TCP, 99, "STATE 99"},   {TAVO_PROTO_TCP, kNoState, ""},
    };
    for (const auto &[protocol, state, name] : states) {
        PortClaim socket = {{1, 1}, protocol, TAVO_PORT_CHECK_RUNTIME};
        socket.state = state;
        EXPECT_EQ(StateName(socket), name);
    }
}

// ---- Programs of a service

struct Kinship {
    const char *program;
    const char *unit;
    const char *service;
    const char *file;  // "" for a built-in service
    std::optional<bool> same;
};

constexpr char kSiteFile[] = "/usr/local/etc/services.d/site.sc";

const Kinship kKinships[] = {
    {"/usr/bin/web", "", "web", "", true},         // the service's name
    {"/usr/sbin/sshd", "", "ssh", "", true},       // the service's daemon
    {"/usr/bin/ssh", "", "sshd", "", false},       // not in reverse
    {"/usr/bin/webdd", "", "web", "", false},      // only one letter may be added
    {"/usr/bin/python3", "web", "web", "", true},  // its systemd unit
    {"/usr/bin/python3", "webd", "web", "", true},
    {"/usr/bin/web", "", "site", "/x/web.sc", true},  // its file's name
    {"/usr/bin/python3", "web", "site", "/x/web.sc", true},
    {"/usr/bin/web.sc", "", "site", "/x/web.sc", false},
    {"/usr/bin/web", "", "site", "/etc/web.conf", false},                // not a service file
    {"/usr/local/packages/site/bin/python3", "", "x", kSiteFile, true},  // its package's folder
    {"/usr/local/packages/site/python3 (deleted)", "", "x", kSiteFile, true},
    {"/usr/local/packages/site", "", "x", "/usr/local/etc/services.d/y.sc", false},
    {"/usr/local/packages/sites/python3", "", "x", kSiteFile, false},
    {"/usr/local/packages/other/site/python3", "", "x", kSiteFile, false},
    {"/tmp/site/x/evil", "", "x", kSiteFile, false},
    {"/home/usr/local/packages/site/evil", "", "x", kSiteFile, false},
    {"/usr/local/packages/site/python3", "", "x", "/usr/tavo/etc/services.d/site.sc", false},
    {"/usr/local/packages/site/python3", "", "site", "", false},  // the service has no package
    {"", "", "web", "", {}},                                      // unknown program
    {"", "", "", "", {}},
    {"", "web", "web", "", true},
    {"/usr/bin/mapped", "", "mapped_http", "", true},  // sections named after the program
    {"/usr/bin/python3", "mapped", "mapped_https", "", true},
    {"/usr/bin/mapped", "", "other", "", false},
    {"/usr/bin/chatty", "", "chat_room", "/x/y.sc", true},  // of a package of that name
    {"/usr/bin/..", "../services.d/chatty", "chat_room", "", false},
};

TEST_F(SocketHoldersTest, BelongToAServiceByTheirNames) {
    WriteFile("/usr/tavo/etc/firewall_service_mapping_table", "mapped=mapped_http,mapped_https\n");
    WriteFile(kPackage + "chatty.sc", Section("chat_room", "8000/tcp"));
    ProgramsOfServices programs;
    for (const Kinship &kinship : kKinships) {
        HoldingProcess process;
        process.program = kinship.program;
        process.name = process.program.substr(process.program.rfind('/') + 1);
        process.unit = kinship.unit;
        const PortDeclarer service = {
            .name = kinship.service, .file = kinship.file, .entry = kinship.service};
        EXPECT_EQ(programs.Owns(service, process), kinship.same)
            << kinship.program << ' ' << kinship.unit << ' ' << kinship.service;
    }
}

TEST_F(SocketHoldersTest, AreComparedWithoutReadingFilesAgain) {
    WriteFile("/usr/tavo/etc/firewall_service_mapping_table", "mapped=mapped_http\n");
    HoldingProcess process;
    process.program = "/usr/bin/mapped";
    process.name = "mapped";
    ProgramsOfServices programs;
    EXPECT_EQ(programs.Owns({"mapped_http"}, process), true);
    WriteFile("/usr/tavo/etc/firewall_service_mapping_table", "mapped=other\n");
    EXPECT_EQ(programs.Owns({"mapped_http"}, process), true);
    EXPECT_EQ(programs.Owns({"other"}, process), false);
    EXPECT_EQ(ProgramsOfServices().Owns({"other"}, process), true);
}

// A process can choose its own name.
TEST_F(SocketHoldersTest, BelongToNoServiceByWhatTheyCallThemselves) {
    HoldingProcess process;
    process.name = "web";
    EXPECT_EQ(ProgramsOfServices().Owns({"web"}, process), std::nullopt);
    process.program = "/usr/bin/other";
    process.name = "other";
    EXPECT_EQ(ProgramsOfServices().Owns({"web"}, process), false);
}

}  // namespace
}  // namespace tavo::test
