// Real sockets in every state that a test needs, on the loopback addresses.
#ifndef TAVO_PLATFORM_NET_TESTS_SOCKETS_H
#define TAVO_PLATFORM_NET_TESTS_SOCKETS_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tavo::test {

class Socket {
  public:
    // `family` is AF_INET or AF_INET6 (IPv6 only); `type` is SOCK_STREAM or SOCK_DGRAM.
    Socket(int family, int type) : family_(family), fd_(socket(family, type | SOCK_CLOEXEC, 0)) {
        Check(fd_, "socket");
        if (family == AF_INET6) {
            Set(IPPROTO_IPV6, IPV6_V6ONLY, 1);
        }
    }
    // Resets a connection, so that it does not stay in TIME_WAIT; Close does not.
    ~Socket() {
        if (fd_ >= 0) {
            const linger none = {1, 0};
            setsockopt(fd_, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
            Close();
        }
    }
    Socket(Socket &&other) noexcept
        : family_(other.family_), any_(other.any_), fd_(std::exchange(other.fd_, -1)) {}
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    int Get() const { return fd_; }

    Socket &Set(int level, int option, int value) {
        Check(setsockopt(fd_, level, option, &value, sizeof(value)), "setsockopt");
        return *this;
    }

    // Makes an IPv6 socket accept IPv4 too, and listen on all addresses.
    Socket &OverBoth() {
        any_ = true;
        return Set(IPPROTO_IPV6, IPV6_V6ONLY, 0);
    }

    Socket &Bind(int port) {
        const Address address(family_, port, any_);
        Check(bind(fd_, address.Get(), address.Size()), "bind");
        return *this;
    }

    Socket &Listen(int backlog = 16) {
        Check(listen(fd_, backlog), "listen");
        return *this;
    }

    Socket &Connect(int port) {
        const Address address(family_, port, false);
        Check(connect(fd_, address.Get(), address.Size()), "connect");
        return *this;
    }

    Socket Accept() const {
        return Socket(family_, Check(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC), "accept"), 0);
    }

    void ShutdownWriting() const { Check(shutdown(fd_, SHUT_WR), "shutdown"); }

    // Waits until the peer has closed its sending side.
    void ReadToEnd() const {
        char byte;
        while (Check(static_cast<int>(read(fd_, &byte, 1)), "read") > 0) {
        }
    }

    void Close() { close(std::exchange(fd_, -1)); }

  private:
    class Address {
      public:
        Address(int family, int port, bool any) : ipv4_{}, ipv6_{}, family_(family) {
            ipv4_.sin_family = AF_INET;
            ipv4_.sin_port = htons(static_cast<in_port_t>(port));
            ipv4_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            ipv6_.sin6_family = AF_INET6;
            ipv6_.sin6_port = ipv4_.sin_port;
            ipv6_.sin6_addr = any ? in6addr_any : in6addr_loopback;
        }
        const sockaddr *Get() const {
            return family_ == AF_INET6 ? reinterpret_cast<const sockaddr *>(&ipv6_)
                                       : reinterpret_cast<const sockaddr *>(&ipv4_);
        }
        socklen_t Size() const { return family_ == AF_INET6 ? sizeof(ipv6_) : sizeof(ipv4_); }

      private:
        sockaddr_in ipv4_;
        sockaddr_in6 ipv6_;
        int family_;
    };

    Socket(int family, int fd, int /*taken over*/) : family_(family), fd_(fd) {}

    static int Check(int result, const char *what) {
        if (result < 0) {
            throw std::system_error(errno, std::generic_category(), what);
        }
        return result;
    }

    int family_;
    bool any_ = false;
    int fd_;
};

inline Socket Listener(int family, int port) {
    Socket socket(family, SOCK_STREAM);
    // Other ends in TIME_WAIT do not prevent binding to the port.
    socket.Set(SOL_SOCKET, SO_REUSEADDR, 1).Bind(port).Listen();
    return socket;
}

inline Socket UdpSocket(int family, int port) {
    Socket socket(family, SOCK_DGRAM);
    socket.Bind(port);
    return socket;
}

// The two ends of a TCP connection: `server` was accepted by a listener that is closed.
struct Connection {
    Connection(int family, int server_port, int client_port)
        : Connection(Listener(family, server_port), family, server_port, client_port) {}

    Socket client;
    Socket server;

  private:
    Connection(Socket listener, int family, int server_port, int client_port)
        : client(Bound(family, client_port, server_port)), server(listener.Accept()) {}

    static Socket Bound(int family, int port, int server_port) {
        Socket socket(family, SOCK_STREAM);
        socket.Bind(port).Connect(server_port);
        return socket;
    }
};

}  // namespace tavo::test

#endif
