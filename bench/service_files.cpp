#include "service_files.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

namespace tavo::bench {
namespace {

// The section has references for the user interface in addition to the texts.
std::string Section(int file, int section, PortLists ports) {
    const std::string name = "service-" + std::to_string(file) + "-" + std::to_string(section);
    const int first = 1024 + (file * 7 + section * 3) % 60000;
    const std::string port = std::to_string(first);
    const std::string range = ports == PortLists::kWide
                                  ? port + ":65000"
                                  : std::to_string(first + 1) + ":" + std::to_string(first + 10);
    std::string text = "[" + name + "]\n";
    text += "title_key=\"tree:leaf_" + name + "\"\n";
    text += "title=\"Service " + name + "\"\n";
    text += "desc_key=\"tree:desc_" + name + "\"\n";
    text += "desc=\"What the service is for, in a line of ordinary length\"\n";
    text += "desc_extra=\"Whatever else an administrator should know of it\"\n";
    text += "port_forward=\"yes\"\n";
    text += "dst.ports=\"" + port + "," + range + "/tcp,udp\"\n\n";
    return text;
}

}  // namespace

void WriteServiceFiles(int files, int sections, PortLists ports) {
    static std::tuple<int, int, PortLists> written;
    if (written == std::tuple(files, sections, ports)) {
        return;
    }
    std::filesystem::remove_all(kServiceFolder);
    std::filesystem::create_directories(kServiceFolder);
    for (int file = 0; file < files; ++file) {
        std::ofstream out(std::string(kServiceFolder) + "/file-" + std::to_string(file) + ".sc");
        for (int section = 0; section < sections; ++section) {
            out << Section(file, section, ports);
        }
    }
    written = {files, sections, ports};
}

}  // namespace tavo::bench
