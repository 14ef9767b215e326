#include "check/declared_ports.h"

#include <cstddef>
#include <cstdio>

#include "base/system_files.h"
#include "model/port_text.h"
#include "support/failure.h"

namespace tavo {

SystemDeclaration ReadSystemPort(const Place &here, const SystemPort &row) {
    if (row.key == nullptr) {
        return {ToUPort(row.port), Reading::Good()};
    }
    constexpr std::size_t kValueSize = 1024;
    char value[kValueSize] = "";
    const int found = TLIBCFileGetKeyValue(kSettingsFile, row.key, value, sizeof(value));
    if (found == 1) {
        uint32_t number = 0;
        const bool valid = *value == '\0' || ReadPortNumber(value, number);
        return {ToUPort(value), valid ? Reading::Good() : Reading::Invalid()};
    }
    Reading reading = Reading::Good();
    if (found < 0) {
        const unsigned int error = TLIBCErrGet();
        // If there is no settings file, nothing is set. After any other error the port is unknown.
        reading = error == TLIBC_ERR_NO_FILE ? Reading::Good() : Reading::Unknown();
        TAVO_LOG_AT(here, "Failed to get %s from %s, errno=0x%X", row.key, kSettingsFile, error);
    }
    return {ToUPort(""), reading};
}

bool ReadPortString(const Place &here, const char *text, const char *service, uint16_t &first,
                    uint16_t &last) {
    unsigned short numbers[2] = {};
    const int count = std::sscanf(text, "%hu-%hu", &numbers[0], &numbers[1]);
    if (count < 1) {
        TAVO_LOG_AT(here, "Failed to fetch port from service: %s", service);
        return false;
    }
    first = numbers[0];
    last = count == 1 ? first : numbers[1];
    if (first > last) {
        TAVO_LOG_AT(here, "Illegal port range: %hu~%hu", first, last);
        return false;
    }
    return true;
}

}  // namespace tavo
