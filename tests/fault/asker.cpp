// Asks the library one question about a port, for tests that make its system calls fail:
//
//   asker engine FLAGS PORT PROTOCOL [SKIPPED]    TLIBIsPortConflict
//   asker conf PORT FLAG-WORD                     the check of the configuration
//   asker runtime PORT FLAG-WORD                  the check of live sockets
//
// Prints the answer to standard output: 1 taken, 0 free, -1 unknown. A call of getppid, which is
// made nowhere else, marks the start and the end of the question.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "tavocore.h"
#include "tavoserviceconf.h"

namespace {

int AskEngine(int count, char **words) {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int answer = TLIBIsPortConflict(count > 3 ? words[3] : "", words[1], words[2],
                                          std::atoi(words[0]), &conflicts);
    TAVOServiceConfPortsFree(conflicts);
    return answer;
}

template <typename Check, typename Verify>
int AskCheck(char **words, Check check, Verify verify, void (*free_results)(TLIBCDList *)) {
    const auto port = static_cast<uint16_t>(std::atoi(words[0]));
    const auto protocol = static_cast<uint16_t>(std::atoi(words[1]));
    TLIBCSzList *ports = TLIBCSzListAlloc(1);
    if (ports == nullptr || TLIBCSzListPush(&ports, words[0]) < 0) {
        TLIBCSzListFree(ports);
        return -1;
    }
    TLIBCDList *results = check(ports, protocol);
    const int answer = results == nullptr ? -1 : verify(results, port, protocol);
    free_results(results);
    TLIBCSzListFree(ports);
    return answer;
}

int Ask(int count, char **words) {
    const std::string_view question = words[0];
    if (question == "engine" && count >= 4) {
        return AskEngine(count - 1, words + 1);
    }
    if (question == "conf" && count == 3) {
        return AskCheck(words + 1, TAVOConfPortConflictResultListAllocAndCheck,
                        TAVOConfVerifyConflictPort, TAVOConfPortConflictResultListFree);
    }
    if (question == "runtime" && count == 3) {
        return AskCheck(words + 1, TAVORuntimePortConflictResultListAllocAndCheck,
                        TAVORuntimeVerifyConflictPort, TAVORuntimePortConflictResultListFree);
    }
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        return 2;
    }
    static_cast<void>(getppid());
    const int answer = Ask(argc - 1, argv + 1);
    static_cast<void>(getppid());
    std::printf("%d\n", answer);
    return 0;
}
