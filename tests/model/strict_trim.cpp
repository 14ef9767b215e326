#include "strict_trim.h"

#include <dlfcn.h>

#include "tavocore.h"

namespace {

bool g_strict = false;

}  // namespace

extern "C" __attribute__((visibility("default"))) int TLIBCStrTrimSpace(char *text) {
    static const auto next =
        reinterpret_cast<decltype(&TLIBCStrTrimSpace)>(dlsym(RTLD_NEXT, "TLIBCStrTrimSpace"));
    if (g_strict && text != nullptr && *text == '\0') {
        TLIBCErrSetEx(0xD00, "strict_trim.cpp", 1);
        return -1;
    }
    return next(text);
}

namespace tavo::test {

StrictTrim::StrictTrim() {
    g_strict = true;
}

StrictTrim::~StrictTrim() {
    g_strict = false;
}

}  // namespace tavo::test
