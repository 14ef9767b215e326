// Any bytes as the configuration of the SSH server, compared with a second implementation of its
// grammar with regular expressions.
#include <cstddef>
#include <cstdint>
#include <regex>
#include <sstream>
#include <string>

#include "fuzz_appliance.h"
#include "tavossh.h"

namespace {

constexpr std::size_t kLongestLine = 1024;

const std::string kBlank = "[ \\t\\r\\f\\v]";

std::regex Pattern(const std::string &text) {
    return std::regex("^" + kBlank + "*" + text, std::regex::icase | std::regex::optimize);
}

const std::regex kMatch = Pattern("match(" + kBlank + "|=|$)");
const std::regex kPort = Pattern("port(" + kBlank + "|=|$)");
const std::regex kGoodPort = Pattern("port(?:" + kBlank + "+|" + kBlank + "*=" + kBlank + "*)" +
                                     "(?:([\"'])0*([1-9][0-9]{0,4})\\1" + kBlank +
                                     "*|0*([1-9][0-9]{0,4})(?:$|" + kBlank + "+))(?:$|#)");

int PortOfLine(const std::string &line) {
    std::smatch match;
    if (line.size() > kLongestLine || !std::regex_search(line, match, kGoodPort)) {
        return -1;
    }
    const int port = std::stoi(match[match[2].matched ? 2 : 3]);
    return port <= 65535 ? port : -1;
}

int ExpectedPort(const std::string &text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string start = line.substr(0, kLongestLine);
        if (std::regex_search(start, kMatch)) {
            break;
        }
        if (std::regex_search(start, kPort)) {
            return PortOfLine(line);
        }
    }
    return 22;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    PlaceFile("/etc/ssh/sshd_config", text);
    Require(TAVOServiceSSHPortGet() == ExpectedPort(text));
    return 0;
}
