// A real socket that holds a port for the lifetime of the object.
#ifndef TAVO_TESTS_SUPPORT_HELD_SOCKET_H
#define TAVO_TESTS_SUPPORT_HELD_SOCKET_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace tavo::test {

class HeldSocket {
  public:
    // Listens on (SOCK_STREAM) or is bound to (SOCK_DGRAM) `port` of the loopback address.
    HeldSocket(int family, int type, int port) : socket_(socket(family, type | SOCK_CLOEXEC, 0)) {
        sockaddr_in v4 = {};
        v4.sin_family = AF_INET;
        v4.sin_port = htons(static_cast<in_port_t>(port));
        v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        sockaddr_in6 v6 = {};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = v4.sin_port;
        v6.sin6_addr = in6addr_loopback;
        const bool is_v4 = family == AF_INET;
        const auto *address = is_v4 ? reinterpret_cast<const sockaddr *>(&v4)
                                    : reinterpret_cast<const sockaddr *>(&v6);
        if (bind(socket_, address, is_v4 ? sizeof(v4) : sizeof(v6)) != 0 ||
            (type == SOCK_STREAM && listen(socket_, 1) != 0)) {
            throw std::runtime_error("the port cannot be held");
        }
    }
    ~HeldSocket() { close(socket_); }
    HeldSocket(const HeldSocket &) = delete;
    HeldSocket &operator=(const HeldSocket &) = delete;

    int Descriptor() const { return socket_; }

  private:
    int socket_;
};

}  // namespace tavo::test

#endif
