// The sockets that hold a port as a source: real ones, in a private network namespace.
#include <gmock/gmock.h>

#include "conflict_test.h"
#include "held_socket.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SocketsInUse : public ConflictTest {
  protected:
    int AskSockets(const std::string &ports, const std::string &protocols,
                   const std::string &skip = "") {
        return Ask(ports, protocols, TAVO_PORT_CHECK_RUNTIME, skip);
    }
};

TEST_F(SocketsInUse, CollideOverEachFamilyAndProtocol) {
    for (const int family : {AF_INET, AF_INET6}) {
        const HeldSocket tcp(family, SOCK_STREAM, 7000);
        const HeldSocket udp(family, SOCK_DGRAM, 7001);
        EXPECT_EQ(AskSockets("7000", "tcp"), 1);
        EXPECT_EQ(AskSockets("7000", "udp"), 0);
        EXPECT_EQ(AskSockets("7001", "udp"), 1);
        EXPECT_EQ(AskSockets("7001", "tcp"), 0);
        EXPECT_EQ(AskSockets("7000", "udp,tcp"), 1);
        EXPECT_EQ(AskSockets("7001", "TCP UDP"), 1);
    }
    EXPECT_EQ(AskSockets("7000:7001", "tcp,udp"), 0) << "they are closed by now";
    EXPECT_EQ(conflicts_, nullptr) << "the port is not listed";
}

TEST_F(SocketsInUse, CollideInsideARangeInAnyOrder) {
    const HeldSocket held(AF_INET, SOCK_STREAM, 7005);
    EXPECT_EQ(AskSockets("7000:7010", "tcp"), 1);
    EXPECT_EQ(AskSockets("7010:7000", "tcp"), 1);
    EXPECT_EQ(AskSockets("7005:7005", "tcp"), 1);
    EXPECT_EQ(AskSockets("7006:7010", "tcp"), 0);
    EXPECT_EQ(AskSockets("7000:7004", "tcp"), 0);
}

TEST_F(SocketsInUse, AreAskedForEveryToken) {
    const HeldSocket held(AF_INET, SOCK_STREAM, 7005);
    EXPECT_EQ(AskSockets("7000 7001,7005", "tcp"), 1);
    EXPECT_EQ(AskSockets("7000 7001,7006", "tcp"), 0);
    EXPECT_EQ(AskSockets("", "tcp"), 0);
}

TEST_F(SocketsInUse, AreNotAskedWithoutAProtocol) {
    const HeldSocket held(AF_INET, SOCK_STREAM, 7005);
    EXPECT_EQ(AskSockets("7005", ""), 0);
    EXPECT_EQ(AskSockets("7005", "sctp"), 0);
    EXPECT_EQ(AskSockets("7005", "tcp6"), 0);
}

TEST_F(SocketsInUse, CannotHoldPort0) {
    for (const char *ports : {"0", "0:0", "x", "-", "80,0"}) {
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        EXPECT_EQ(AskSockets(ports, "tcp"), -1) << ports;
        EXPECT_THAT(Messages(), ElementsAre("Invalid Argument!![0x0D00 "
                                            "service_is_port_conflict.cpp:N]"));
    }
    EXPECT_EQ(AskSockets("0", ""), -1) << "whatever the protocol";
    EXPECT_EQ(AskSockets("0:9", "tcp"), 0) << "a range may begin there";
}

TEST_F(SocketsInUse, AreFoundBeforeALaterTokenFails) {
    const HeldSocket held(AF_INET, SOCK_STREAM, 7005);
    EXPECT_EQ(AskSockets("7005,0", "tcp"), 1);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SocketsInUse, OfASkippedServiceOfThatProtocolDoNotCount) {
    Service("web", "7000,7100:7110/tcp");
    const HeldSocket single(AF_INET, SOCK_STREAM, 7000);
    const HeldSocket ranged(AF_INET, SOCK_STREAM, 7110);
    EXPECT_EQ(AskSockets("7000,7110", "tcp"), 1);
    EXPECT_EQ(AskSockets("7000,7110", "tcp", "web"), 0);
    EXPECT_EQ(AskSockets("7000:7200", "tcp", "other,web"), 0);
    const HeldSocket another(AF_INET, SOCK_STREAM, 7111);
    EXPECT_EQ(AskSockets("7000:7200", "tcp", "web"), 1);
}

TEST_F(SocketsInUse, OfASkippedServiceOfTheOtherProtocolCount) {
    Service("web", "7000/udp");
    const HeldSocket tcp(AF_INET, SOCK_STREAM, 7000);
    EXPECT_EQ(AskSockets("7000", "tcp", "web"), 1);
    const HeldSocket udp(AF_INET, SOCK_DGRAM, 7000);
    EXPECT_EQ(AskSockets("7000", "udp", "web"), 0);
}

TEST_F(SocketsInUse, OfABuiltInServiceMayBeSkippedToo) {
    const HeldSocket held(AF_INET, SOCK_STREAM, 3493);
    EXPECT_EQ(AskSockets("3493", "tcp"), 1);
    EXPECT_EQ(AskSockets("3493", "tcp", "ups_server"), 0);
}

TEST_F(SocketsInUse, OfTheFirstServiceOfASkippedNameDoNotCount) {
    WriteFile("/usr/tavo/etc/services.d/a.sc", "[web]\ntitle=T\ndesc=D\ndst.ports=7000/tcp\n");
    Service("web", "7001/tcp");
    const HeldSocket first(AF_INET, SOCK_STREAM, 7000);
    EXPECT_EQ(AskSockets("7000", "tcp", "web"), 0) << "the system's stands first in the list";
    const HeldSocket second(AF_INET, SOCK_STREAM, 7001);
    EXPECT_EQ(AskSockets("7001", "tcp", "web"), 1) << "the other one is not looked up";
}

TEST_F(SocketsInUse, TakeAHugeRange) {
    const HeldSocket held(AF_INET, SOCK_STREAM, 7000);
    EXPECT_EQ(AskSockets("1:65535", "tcp"), 1);
    EXPECT_EQ(AskSockets("1:1000000", "tcp"), 1);
    EXPECT_EQ(AskSockets("7001:7002,-5:9", "tcp"), 0);
}

TEST_F(SocketsInUse, OfARangeBeyondMemoryAreAnErrorAtWorst) {
    const int result = AskSockets("1:2147483647", "udp");
    EXPECT_TRUE(result == 0 || (result == -1 && TLIBCErrGet() == 0x200)) << result;
}

}  // namespace
}  // namespace tavo::test
