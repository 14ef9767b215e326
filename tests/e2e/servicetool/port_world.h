// Declarers of ports in a private appliance, and sockets that hold some.
#ifndef TAVO_TESTS_SERVICETOOL_PORT_WORLD_H
#define TAVO_TESTS_SERVICETOOL_PORT_WORLD_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "held_socket.h"
#include "run_program.h"
#include "service_folders.h"
#include "temporary_folder.h"

namespace tavo::test {

inline const std::string kRules = kForwardingRules;
inline const std::string kSettings = "/etc/tavoinfo.conf";
inline const std::string kNfsSettings = "/etc/nfs/tavo_nfs_conf";

// Compares the output and the exit status of a run of servicetool exactly.
inline void ExpectRun(const ProgramResult &result, int status, const std::string &out,
                      const std::string &err = "") {
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, err);
    EXPECT_EQ(result.status, status);
}

// A rule of the port-forwarding library, in five lines.
inline std::string Rule(const std::string &name, const std::string &service,
                        const std::string &appliance_ports, const std::string &router_ports) {
    return "[" + name + "]\nservice_id=\"" + service + "\"\nprotocol name=\"tcp\"\ns_port=\"" +
           appliance_ports + "\"\nr_port=\"" + router_ports + "\"\n";
}

enum class Family { kV4 = AF_INET, kV6 = AF_INET6 };
enum class Protocol { kTcp = SOCK_STREAM, kUdp = SOCK_DGRAM };

// Holds a port on the loopback interface. Programs that the test runs do not inherit the socket.
class HeldPort {
  public:
    HeldPort(Family family, Protocol protocol, std::uint32_t port)
        : socket_(static_cast<int>(family), static_cast<int>(protocol), static_cast<int>(port)) {}

  private:
    HeldSocket socket_;
};

// Removes the IPv4 address of the loopback interface, and with it IPv4 from the appliance.
class WithoutIpv4 {
  public:
    WithoutIpv4() { SetAddress(INADDR_ANY); }
    ~WithoutIpv4() {
        SetAddress(INADDR_LOOPBACK);
        close(descriptor_);
    }
    WithoutIpv4(const WithoutIpv4 &) = delete;
    WithoutIpv4 &operator=(const WithoutIpv4 &) = delete;

  private:
    void SetAddress(in_addr_t address) const {
        ifreq request{};
        request.ifr_name[0] = 'l';
        request.ifr_name[1] = 'o';
        auto &ipv4 = reinterpret_cast<sockaddr_in &>(request.ifr_addr);
        ipv4.sin_family = AF_INET;
        ipv4.sin_addr.s_addr = htonl(address);
        if (ioctl(descriptor_, SIOCSIFADDR, &request) != 0) {
            ADD_FAILURE() << "the address of lo cannot be set";
        }
    }

    int descriptor_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

}  // namespace tavo::test

#endif
