// The project as an installation lays it out, for tests that look at it from outside.
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

// A folder inside the build tree, since a private appliance shows that at the same path, and not
// the host's /tmp.
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

    // Runs a program that must succeed, and gives what it wrote to standard output.
    static std::string Run(const std::vector<std::string> &command,
                           const std::vector<std::string> &environment = {});

    // Compiles a C file as a user would, who has a compiler and pkg-config, with the packages that
    // are named, blanks between. Gives the program.
    std::string Compile(const std::string &source, const std::string &packages) const;

    // Builds plain_c.c as a CMake project outside the tree does, which finds the library in one of
    // the prefixes. Gives the program.
    std::string BuildWithCMake(const std::vector<std::string> &prefixes) const;

    // Runs such a program in a private appliance with a service file of its own and the libraries
    // of these folders, colons between. Its status is 0, or the line of plain_c.c that failed.
    ProgramResult RunPlainC(const std::string &program, const std::string &libraries) const;

    static std::vector<std::string> InAppliance(std::vector<std::string> command);

    std::string Prefix(const std::string &path = {}) const;

  private:
    FolderInBuildTree folder_;
};

}  // namespace tavo::test

#endif
