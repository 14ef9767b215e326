#include "check/socket_tables.h"

namespace tavo {

bool SocketTableExists(const Place &here, const char *path) {
    if (path != nullptr && TLIBCFileExist(path) != 0) {
        return true;
    }
    TAVO_FAIL_AT(here, path == nullptr ? TLIBC_ERR_BAD_PARAMETER : TLIBC_ERR_NO_FILE,
                 "Failed to access File: %s (Not Exist)", path == nullptr ? "(null)" : path);
    return false;
}

OwnedNames ReadSocketTable(const Place &here, const char *path) {
    constexpr int kLines = 512;  // initial capacity
    TLIBCSzList *list = TLIBCSzListAlloc(kLines);
    if (list == nullptr) {
        TAVO_FAIL_ALLOC_AT(here, "pNetRecords");
        return nullptr;
    }
    const int read = TLIBCFileReadLines(path, &list);
    OwnedNames lines(list);
    if (read >= 0) {
        return lines;
    }
    if (TLIBCErrGet() == TLIBC_ERR_FILE_UNUSABLE) {
        TAVO_LOG_AT(here, "Failed to open File: %s\n", path);
    } else {
        TAVO_LOG_AT(here, "Failed to parse File: %s.[0x%04X]", path, TLIBCErrGet());
    }
    return nullptr;
}

}  // namespace tavo
