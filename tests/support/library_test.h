// Shared by the tests of the library: the error state around a call, and lists formatted as text.
#ifndef TAVO_TESTS_SUPPORT_LIBRARY_TEST_H
#define TAVO_TESTS_SUPPORT_LIBRARY_TEST_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "captured_log.h"
#include "tavocore.h"
#include "tavoserviceconf.h"

namespace tavo::test {

// Each test starts without an error and with an empty log.
class LibraryTest : public testing::Test {
  protected:
    LibraryTest() { TLIBCErrSetEx(0, nullptr, 0); }

    // The log lines, in the form of CapturedLog::Messages.
    std::vector<std::string> Messages() const { return log_.Messages(); }

    CapturedLog log_;
};

// The current error code and the source file that set it, as "0xD00 service_conf_get.cpp".
inline std::string ErrorState() {
    char code[16];
    snprintf(code, sizeof(code), "0x%X ", TLIBCErrGet());
    return code + std::string(TLIBCErrorGetFile());
}

// One entry, as in "dst 80:90 protocol 3" or "src 80 protocol 1".
inline std::string Describe(const TAVO_SERVICE_CONF_PORT &port) {
    std::string text = port.nDirection == 0 ? "src " : "dst ";
    text += std::to_string(port.nPortStart);
    if (port.nPortType == 1) {
        text += ":" + std::to_string(port.nPortEnd);
    } else if (port.nPortEnd != 0) {
        text += " with end " + std::to_string(port.nPortEnd);
    }
    return text + " protocol " + std::to_string(port.nProtocol);
}

// The entries of a port list, starting at its head.
inline std::vector<std::string> Describe(const TAVO_SERVICE_CONF_PORT *pList) {
    std::vector<std::string> texts;
    for (; pList != nullptr; pList = pList->pNext) {
        texts.push_back(Describe(*pList));
    }
    return texts;
}

// The names of a section list, starting at its head.
inline std::vector<std::string> Names(const TAVO_SERVICE_CONF_SECTION *pList) {
    std::vector<std::string> names;
    for (; pList != nullptr; pList = pList->pNext) {
        names.emplace_back(pList->szName);
    }
    return names;
}

}  // namespace tavo::test

#endif
