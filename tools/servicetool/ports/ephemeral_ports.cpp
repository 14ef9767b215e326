#include "ports/ephemeral_ports.h"

#include <sstream>

#include "input/input_file.h"

namespace tavo::tool {

std::string ReadEphemeralPorts(const std::string &path, PortRange &range) {
    const FileContents contents = ReadRegularFile(path);
    if (!contents.problem.empty()) {
        return contents.problem;
    }
    std::istringstream text(contents.text);
    PortRange read{};
    if (!(text >> read.first >> read.last) || read.first > read.last || read.last > kHighestPort) {
        return "holds no range of ports";
    }
    range = read;
    return {};
}

}  // namespace tavo::tool
