#include "service_files.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "tavoserviceconf.h"

namespace tavo::bench {
namespace {

// With references for the user interface beside the texts.
std::string Section(int file, int section) {
    const std::string name = "service-" + std::to_string(file) + "-" + std::to_string(section);
    const std::string port = std::to_string(1024 + (file * 7 + section * 3) % 60000);
    std::string text = "[" + name + "]\n";
    text += "title_key=\"tree:leaf_" + name + "\"\n";
    text += "title=\"Service " + name + "\"\n";
    text += "desc_key=\"tree:desc_" + name + "\"\n";
    text += "desc=\"What the service is for, in a line of ordinary length\"\n";
    text += "desc_extra=\"Whatever else an administrator should know of it\"\n";
    text += "port_forward=\"yes\"\n";
    text += "dst.ports=\"" + port + "," + port + ":65000/tcp,udp\"\n\n";
    return text;
}

}  // namespace

void WriteServiceFiles(int files, int sections) {
    static std::pair<int, int> written;
    if (written == std::pair(files, sections)) {
        return;
    }
    std::filesystem::remove_all(kServiceFolder);
    std::filesystem::create_directories(kServiceFolder);
    for (int file = 0; file < files; ++file) {
        std::ofstream out(std::string(kServiceFolder) + "/file-" + std::to_string(file) + ".sc");
        for (int section = 0; section < sections; ++section) {
            out << Section(file, section);
        }
    }
    written = {files, sections};
}

void EnumerateServiceFiles(benchmark::State &state) {
    const int files = static_cast<int>(state.range(0));
    WriteServiceFiles(files, static_cast<int>(state.range(1)));
    for (auto _ : state) {
        TAVO_SERVICE_CONF *list = nullptr;
        if (TAVOServiceConfEnum(&list, TAVO_SERVICE_CONF_DIR_PACKAGE) != files) {
            state.SkipWithError("not every file was read");
        }
        TAVOServiceConfFree(list);
    }
}

}  // namespace tavo::bench
