// Protocol lists: the result is a flag word or -1, and depends neither on case nor on blanks around
// the text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "tavoserviceconf.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
    std::string copy = text;
    const int result = TLIBServiceConfProtocolParse(copy.data());
    Require(result == -1 || IsLegalProtocol(result) == 1);
    if (text.empty()) {
        Require(result == 3);
        return 0;
    }
    std::string shouted = " " + text + "\t";
    for (char &c : shouted) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    Require(TLIBServiceConfProtocolParse(shouted.data()) == result);
    return 0;
}
