// Makes one change, for tests that inject faults: writer FILE SECTION KEY VALUE. Exits with 0 if it
// succeeded; with 1 if it failed, with the error code and the errno on standard output.
//
// A call of getppid, which is made nowhere else, marks the start and the end of the change for the
// tests.
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
