// Builds programs outside the source tree against an installation, as their authors do.
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "installed_tree.h"

namespace tavo::test {
namespace {

using ::testing::HasSubstr;

class Consumer : public InstalledTree {};

TEST_F(Consumer, IsServedByPkgConfig) {
    const ProgramResult result = RunPlainC(
        Compile(TAVO_SOURCE_DIR "/tests/e2e/install/plain_c.c", "tavoserviceconf"), Prefix("lib"));
    EXPECT_EQ(result.status, 0) << "failed at that line of plain_c.c\n" << result.err;
}

TEST_F(Consumer, OfOnePlatformLibraryIsServedByPkgConfig) {
    for (const std::string library : kPlatformLibraries) {
        WriteFile(Prefix("one.c"), "#include <" + library + ".h>\nint main(void) { return 0; }\n");
        Run({Compile(Prefix("one.c"), library)});
    }
}

TEST_F(Consumer, IsServedByFindPackage) {
    const ProgramResult result = RunPlainC(BuildWithCMake({Prefix()}), Prefix("lib"));
    EXPECT_EQ(result.status, 0) << "failed at that line of plain_c.c\n" << result.err;
}

TEST_F(Consumer, IsRefusedByFindPackageForAnotherMajorVersion) {
    const std::string lists = Prefix("CMakeLists.txt");
    WriteFile(lists,
              "cmake_minimum_required(VERSION 3.25)\nproject(wrong C)\n"
              "find_package(tavoserviceconf 6 REQUIRED)\n");
    const ProgramResult result = RunProgram(
        {TAVO_CMAKE, "-S", Prefix(), "-B", Prefix("consumer"), "-DCMAKE_PREFIX_PATH=" + Prefix()});
    EXPECT_NE(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("version: 7.0.0"));
}

// The text between ```c and ``` of the README.
std::string ReadmeExample() {
    const std::string readme = ReadFile(TAVO_SOURCE_DIR "/README.md");
    const std::string open = "```c\n";
    const std::size_t begin = readme.find(open) + open.size();
    return readme.substr(begin, readme.find("```", begin) - begin);
}

TEST_F(Consumer, IsTheExampleOfTheReadme) {
    WriteFile(Prefix("services.c"), ReadmeExample());
    const std::string program = Compile(Prefix("services.c"), "tavoserviceconf");
    const std::string names = Run(InAppliance({program}), {"LD_LIBRARY_PATH=" + Prefix("lib")});
    EXPECT_THAT(names, HasSubstr("\nntp\n")) << "a service of the system";
    EXPECT_THAT(names, HasSubstr("\nchat\n")) << "one of a package";
}

struct Language {
    const char *name;
    std::vector<std::string> compiler;
};

class PublicHeader : public Consumer, public ::testing::WithParamInterface<Language> {};

TEST_P(PublicHeader, CompilesAlone) {
    std::vector<std::string> headers(std::begin(kPlatformLibraries), std::end(kPlatformLibraries));
    headers.push_back("tavoserviceconf");
    for (const std::string &header : headers) {
        std::vector<std::string> command = GetParam().compiler;
        command.insert(command.end(), {"-pedantic", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                                       "-I", Prefix("include"), "-include",
                                       Prefix("include/") + header + ".h", "/dev/null"});
        const ProgramResult result = RunProgram(command);
        EXPECT_EQ(result.status, 0) << header << "\n" << result.err;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Languages, PublicHeader,
    ::testing::Values(Language{"GccC99", {"gcc", "-x", "c", "-std=c99"}},
                      Language{"GccCxx98", {"g++", "-x", "c++", "-std=c++98"}},
                      Language{"GccCxx20", {"g++", "-x", "c++", "-std=c++20"}},
                      Language{"ClangC99", {"clang", "-x", "c", "-std=c99"}},
                      Language{"ClangCxx98", {"clang++", "-x", "c++", "-std=c++98"}},
                      Language{"ClangCxx20", {"clang++", "-x", "c++", "-std=c++20"}}),
    [](const auto &language) { return language.param.name; });

}  // namespace
}  // namespace tavo::test
