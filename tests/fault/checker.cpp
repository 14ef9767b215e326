// Runs one of the two checks of ports, for tests that inject faults: checker CHECK PORT... with
// CHECK "conf" or "runtime". For the runtime check, this program holds the first four ports, over
// TCP and UDP, each over IPv4 and IPv6. Prints to standard output, one per line: the result, the
// error code, the records, and the lines of the log.
//
// A call of getppid, which is made nowhere else, marks the start and the end of the check for the
// tests.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "captured_log.h"
#include "check_test.h"
#include "held_socket.h"
#include "tavocore.h"
#include "tavoserviceconf.h"

namespace {

using tavo::test::HeldSocket;

constexpr struct {
    int family;
    int type;
} kSockets[] = {
    {AF_INET, SOCK_STREAM}, {AF_INET6, SOCK_STREAM}, {AF_INET, SOCK_DGRAM}, {AF_INET6, SOCK_DGRAM}};

template <typename Record, auto Alloc, auto Check>
void Ask(const TLIBCSzList *ports) {
    const tavo::test::CapturedLog log;
    const tavo::test::Elements results(Alloc());
    getppid();
    const int result = Check(ports, TAVO_PROTO_BOTH, results.get());
    getppid();
    std::printf("%d\n0x%X\n", result, TLIBCErrGet());
    for (const std::string &record : tavo::test::Describe<Record>(results.get())) {
        std::printf("record %s\n", record.c_str());
    }
    for (const auto &message : log.Messages()) {
        std::printf("log %s\n", message.c_str());
    }
}

}  // namespace

int main(int argc, char **argv) {
    const std::string_view check = argc > 1 ? argv[1] : "";
    TLIBCSzList *ports = TLIBCSzListAlloc(argc);
    for (int i = 2; i < argc; ++i) {
        TLIBCSzListPush(&ports, argv[i]);
    }
    if (check == "conf") {
        Ask<TAVO_CONF_PORT_CONFLICT_RESULT, TAVOConfPortConflictResultListAlloc,
            TAVOConfPortConflictCheck>(ports);
    } else if (check == "runtime" && argc >= 6) {
        std::vector<std::unique_ptr<HeldSocket>> held;
        for (int i = 0; i < 4; ++i) {
            held.push_back(std::make_unique<HeldSocket>(kSockets[i].family, kSockets[i].type,
                                                        std::stoi(argv[2 + i])));
        }
        Ask<TAVO_RUNTIME_PORT_CONFLICT_RESULT, TAVORuntimePortConflictResultListAlloc,
            TAVORuntimePortConflictCheck>(ports);
    } else {
        return 2;
    }
    TLIBCSzListFree(ports);
    return 0;
}
