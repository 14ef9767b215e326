// An installation of the project, for tests that check it from outside.
#ifndef TAVO_TESTS_E2E_INSTALL_INSTALLED_TREE_H
#define TAVO_TESTS_E2E_INSTALL_INSTALLED_TREE_H

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "run_program.h"
#include "temporary_folder.h"

namespace tavo::test {

constexpr const char *kPlatformLibraries[] = {"tavocore", "tavopf",       "tavoftp",      "tavossh",
                                              "tavonet",  "tavocsystemd", "tavopluginsdk"};

// A folder inside the build tree. A private appliance shows the build tree at the same path, but
// not the host's /tmp.
class FolderInBuildTree {
  public:
    FolderInBuildTree();
    const TemporaryFolder &operator*() const { return folder_; }

  private:
    TemporaryFolder folder_;
};

class InstalledTree : public ::testing::Test {
  protected:
    // Installs into an empty prefix.
    InstalledTree();

    // Runs a program that must succeed and returns its standard output.
    static std::string Run(const std::vector<std::string> &command,
                           const std::vector<std::string> &environment = {});

    // Compiles a C file as a user does who has only a compiler and pkg-config. `packages` is
    // separated by spaces. Returns the path of the program.
    std::string Compile(const std::string &source, const std::string &packages) const;

    // Builds plain_c.c as a CMake project outside the tree that finds the library in one of the
    // prefixes. Returns the path of the program.
    std::string BuildWithCMake(const std::vector<std::string> &prefixes) const;

    // Runs such a program in a private appliance with a service file and the libraries of these
    // folders, separated by colons. Its status is 0, or the number of the line of plain_c.c that
    // failed.
    ProgramResult RunPlainC(const std::string &program, const std::string &libraries) const;

    static std::vector<std::string> InAppliance(std::vector<std::string> command);

    std::string Prefix(const std::string &path = {}) const;

  private:
    FolderInBuildTree folder_;
};

}  // namespace tavo::test

#endif
