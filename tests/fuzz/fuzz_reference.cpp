// References into string tables: every field stays terminated, and unnamed fields stay unchanged.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "tavoserviceconf.h"

namespace {

template <std::size_t Size>
bool IsTerminated(const char (&field)[Size]) {
    return std::memchr(field, '\0', Size) != nullptr;
}

template <std::size_t Size>
bool IsUntouched(const char (&field)[Size]) {
    return std::all_of(field, field + Size, [](char c) { return c == 'u'; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
    TAVO_SERVICE_CONF_STRING string;
    std::memset(&string, 'u', sizeof(string));
    const int result = TAVOServiceConfServiceStringGet(text.c_str(), &string);
    Require((result == -1) == text.empty());
    Require(IsUntouched(string.szExtra));
    const bool reference = text.find(':') != std::string::npos;
    if (result == -1 || !reference) {
        Require(IsUntouched(string.szSource) && IsUntouched(string.szSection) &&
                IsUntouched(string.szKey));
    }
    if (result == 0 && reference) {
        Require(IsTerminated(string.szSource) && IsTerminated(string.szSection) &&
                IsTerminated(string.szKey) && IsUntouched(string.szText));
    }
    if (result == 0 && !reference) {
        Require(IsTerminated(string.szText) && text.starts_with(string.szText));
    }
    return 0;
}
