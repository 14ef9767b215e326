// bind_port PORT: exits with 0 if this TCP port of the loopback address can be bound and connected
// to.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char *argv[]) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(argc > 1 ? std::atoi(argv[1]) : 0));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto *name = reinterpret_cast<const sockaddr *>(&address);
    const int server = socket(AF_INET, SOCK_STREAM, 0);
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    if (bind(server, name, sizeof(address)) != 0 || listen(server, 1) != 0 ||
        connect(client, name, sizeof(address)) != 0) {
        std::perror("bind_port");
        return 1;
    }
    return 0;
}
