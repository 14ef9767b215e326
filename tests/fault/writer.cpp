// Makes one change for the tests that shoot at it: writer FILE SECTION KEY VALUE. Exit status 0
// when it succeeded; 1 when it failed, with the error code and the errno on standard output.
//
// A call of getppid, which nothing else makes, stands before and behind the change, for the tests
// to find its system calls between them.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tavocore.h"

int main(int argc, char **argv) {
    if (argc != 5) {
        return 2;
    }
    getppid();
    const int result = TLIBCFileSetSectionValue(argv[1], argv[2], argv[3], argv[4]);
    const int error = errno;
    getppid();
    if (result != 0) {
        std::printf("0x%X %s", TLIBCErrGet(), strerrorname_np(error));
    }
    return result == 0 ? 0 : 1;
}
