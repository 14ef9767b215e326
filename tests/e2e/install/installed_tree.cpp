#include "installed_tree.h"

#include <cstdlib>
#include <stdexcept>

namespace tavo::test {

FolderInBuildTree::FolderInBuildTree()
    : folder_((setenv("TMPDIR", TAVO_BUILD_DIR "/tests", 1), TemporaryFolder())) {}

InstalledTree::InstalledTree() {
    Run({TAVO_CMAKE, "--install", TAVO_BUILD_DIR, "--prefix", Prefix()});
}

std::string InstalledTree::Run(const std::vector<std::string> &command,
                               const std::vector<std::string> &environment) {
    const ProgramResult result = RunProgram(command, "", environment);
    if (result.status != 0) {
        throw std::runtime_error(command[0] + " ended with " + std::to_string(result.status) +
                                 "\n" + result.out + result.err);
    }
    return result.out;
}

std::string InstalledTree::Compile(const std::string &source, const std::string &packages) const {
    static const std::string command =
        "pkg-config --cflags --libs \"$2\" | "
        "xargs gcc -std=c99 -pedantic -Wall -Wextra -Werror \"$0\" -o \"$1\"";
    std::string program = Prefix("program");
    Run({"sh", "-c", command, source, program, packages},
        {"PKG_CONFIG_PATH=" + Prefix("lib/pkgconfig")});
    return program;
}

std::string InstalledTree::BuildWithCMake(const std::vector<std::string> &prefixes) const {
    static const std::string folder = TAVO_SOURCE_DIR "/tests/e2e/install";
    const std::string build = Prefix("consumer");
    std::string prefix_path = "-DCMAKE_PREFIX_PATH=";
    for (const std::string &prefix : prefixes) {
        prefix_path += prefix + ";";
    }
    Run({TAVO_CMAKE, "-S", folder + "/consumer", "-B", build, prefix_path,
         "-DPLAIN_C=" + folder + "/plain_c.c"});
    Run({TAVO_CMAKE, "--build", build});
    return build + "/consumer";
}

ProgramResult InstalledTree::RunPlainC(const std::string &program,
                                       const std::string &libraries) const {
    const std::string file = Prefix("plain.sc");
    WriteFile(file, "[plain-c]\ntitle=\"Plain C\"\ndesc=\"A program\"\ndst.ports=\"80/tcp\"\n");
    return RunProgram(InAppliance({program, file}), "", {"LD_LIBRARY_PATH=" + libraries});
}

std::vector<std::string> InstalledTree::InAppliance(std::vector<std::string> command) {
    command.insert(command.begin(), {TAVO_APPLIANCE, "run", "--"});
    return command;
}

std::string InstalledTree::Prefix(const std::string &path) const {
    const std::string prefix = *folder_ / "prefix";
    return path.empty() ? prefix : prefix + "/" + path;
}

}  // namespace tavo::test
