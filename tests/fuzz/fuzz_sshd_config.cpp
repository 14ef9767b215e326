// Any bytes as the configuration of the SSH server, compared with a second implementation of its
// grammar with regular expressions.
#include <regex.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_appliance.h"
#include "tavossh.h"

namespace {

constexpr std::size_t kLongestLine = 1024;

const std::string kBlank = "[ \t\r\f\v]";

// A pattern for the start of a line, after blanks. (Not std::regex, which takes ten seconds to
// compile.)
class Pattern {
  public:
    explicit Pattern(const std::string &text) {
        Require(regcomp(&compiled_, ("^" + kBlank + "*" + text).c_str(),
                        REG_EXTENDED | REG_ICASE) == 0);
    }
    ~Pattern() { regfree(&compiled_); }
    Pattern(const Pattern &) = delete;
    Pattern &operator=(const Pattern &) = delete;

    // The groups of the pattern in the line, all of the match first; nothing if it does not match.
    std::vector<std::string> Match(const std::string &line) const {
        std::vector<regmatch_t> found(compiled_.re_nsub + 1);
        found[0] = {0, static_cast<regoff_t>(line.size())};
        std::vector<std::string> groups;
        if (regexec(&compiled_, line.c_str(), found.size(), found.data(), REG_STARTEND) == 0) {
            for (const regmatch_t &group : found) {
                const bool is_set = group.rm_so >= 0;
                groups.push_back(
                    is_set ? line.substr(static_cast<std::size_t>(group.rm_so),
                                         static_cast<std::size_t>(group.rm_eo - group.rm_so))
                           : "");
            }
        }
        return groups;
    }

  private:
    regex_t compiled_;
};

const Pattern kMatch("match(" + kBlank + "|=|$)");
const Pattern kPort("port(" + kBlank + "|=|$)");
const Pattern kGoodPort("port(" + kBlank + "+|" + kBlank + "*=" + kBlank + "*)" +
                        "(([\"'])0*([1-9][0-9]{0,4})\\3" + kBlank + "*|0*([1-9][0-9]{0,4})($|" +
                        kBlank + "+))($|#)");

int PortOfLine(const std::string &line) {
    const std::vector<std::string> groups =
        line.size() > kLongestLine ? std::vector<std::string>() : kGoodPort.Match(line);
    if (groups.empty()) {
        return -1;
    }
    const int port = std::stoi(groups[4].empty() ? groups[5] : groups[4]);
    return port <= 65535 ? port : -1;
}

int ExpectedPort(const std::string &text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string start = line.substr(0, kLongestLine);
        if (!kMatch.Match(start).empty()) {
            break;
        }
        if (!kPort.Match(start).empty()) {
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
