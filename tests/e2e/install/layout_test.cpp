// What an installation holds, and how its programs and libraries were linked.
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "installed_tree.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::Not;

class InstalledLayout : public InstalledTree {
  protected:
    // Every file and link of the tree, relative to its root.
    std::vector<std::string> Files() const {
        std::vector<std::string> files;
        for (const auto &entry : fs::recursive_directory_iterator(Prefix())) {
            if (!entry.is_directory() || entry.is_symlink()) {
                files.push_back(fs::relative(entry.path().parent_path(), Prefix()) /
                                entry.path().filename());
            }
        }
        return files;
    }

    std::string ReadElf(const std::string &option, const std::string &path) const {
        return Run({"readelf", "--wide", option, Prefix(path)});
    }
};

TEST_F(InstalledLayout, HoldsWhatUsersAndDevelopersNeed) {
    EXPECT_THAT(Files(), IsSupersetOf({
                             "bin/servicetool",
                             "include/tavocore.h",
                             "include/tavoserviceconf.h",
                             "lib/cmake/tavoserviceconf/tavoserviceconf-config-version.cmake",
                             "lib/cmake/tavoserviceconf/tavoserviceconf-config.cmake",
                             "lib/cmake/tavoserviceconf/tavoserviceconf-targets.cmake",
                             "lib/libtavocore.so",
                             "lib/libtavocore.so.7",
                             "lib/libtavoserviceconf.so",
                             "lib/libtavoserviceconf.so.7",
                             "lib/pkgconfig/tavocore.pc",
                             "lib/pkgconfig/tavoserviceconf.pc",
                             "share/doc/tavoserviceconf/LICENSE",
                             "share/doc/tavoserviceconf/README.md",
                             "share/man/man1/servicetool.1",
                             "share/man/man3/tavoserviceconf.3",
                             "share/man/man5/tavoserviceconf.5",
                         }));
}

TEST_F(InstalledLayout, LeavesOutWhatOnlyTheSourceTreeUses) {
    for (const std::string &file : Files()) {
        EXPECT_THAT(file, Not(HasSubstr("appliance")));
        EXPECT_THAT(file, Not(HasSubstr("test")));
        EXPECT_THAT(file, Not(HasSubstr(".a")));
    }
}

TEST_F(InstalledLayout, NamesNoFolderOfTheBuild) {
    for (const std::string &file : Files()) {
        if (file.ends_with(".cmake") || file.ends_with(".pc")) {
            EXPECT_THAT(ReadFile(Prefix(file)), Not(HasSubstr(TAVO_SOURCE_DIR))) << file;
            EXPECT_THAT(ReadFile(Prefix(file)), Not(HasSubstr(Prefix()))) << file;
        }
    }
    EXPECT_THAT(ReadElf("--dynamic", "lib/libtavoserviceconf.so"), Not(HasSubstr(TAVO_BUILD_DIR)));
    EXPECT_THAT(ReadElf("--dynamic", "bin/servicetool"), Not(HasSubstr(TAVO_BUILD_DIR)));
}

TEST_F(InstalledLayout, LibrariesCarryTheirSoname) {
    EXPECT_THAT(ReadElf("--dynamic", "lib/libtavoserviceconf.so"),
                HasSubstr("Library soname: [libtavoserviceconf.so.7]"));
    EXPECT_THAT(ReadElf("--dynamic", "lib/libtavocore.so"),
                HasSubstr("Library soname: [libtavocore.so.7]"));
}

TEST_F(InstalledLayout, LibrariesNeedNothingButEachOtherAndTheRuntime) {
    const std::regex needed(R"(\(NEEDED\).*\[(.*)\])");
    const std::regex allowed(
        R"((libtavocore\.so\.7|lib(c|m|stdc\+\+)\.so\.6|libgcc_s\.so\.1|ld-linux.*))");
    for (const char *library : {"lib/libtavoserviceconf.so", "lib/libtavocore.so"}) {
        const std::string dynamic = ReadElf("--dynamic", library);
        for (std::sregex_iterator it(dynamic.begin(), dynamic.end(), needed), end; it != end;
             ++it) {
            EXPECT_TRUE(std::regex_match((*it)[1].str(), allowed)) << library << " " << (*it)[1];
        }
    }
}

class InstalledObject : public InstalledLayout,
                        public ::testing::WithParamInterface<const char *> {};

TEST_P(InstalledObject, IsHardened) {
    const std::string dynamic = ReadElf("--dynamic", GetParam());
    const std::string segments = ReadElf("--segments", GetParam());
    EXPECT_THAT(segments, HasSubstr("GNU_RELRO"));
    EXPECT_THAT(dynamic, ContainsRegex("FLAGS_1.*NOW"))
        << "RELRO is full only with bindings made at start";
    EXPECT_THAT(segments, ContainsRegex("GNU_STACK [^\n]* RW  ")) << "no executable stack";
    EXPECT_THAT(dynamic, Not(HasSubstr("TEXTREL")));
    const std::string symbols = ReadElf("--dyn-syms", GetParam());
    EXPECT_THAT(symbols, HasSubstr("__stack_chk_fail")) << "stack protector";
    EXPECT_THAT(symbols, ContainsRegex("__[a-z]+_chk@")) << "_FORTIFY_SOURCE";
}

INSTANTIATE_TEST_SUITE_P(Every, InstalledObject,
                         ::testing::Values("lib/libtavoserviceconf.so", "lib/libtavocore.so",
                                           "bin/servicetool"));

TEST_F(InstalledLayout, ServicetoolIsPositionIndependent) {
    EXPECT_THAT(ReadElf("--dynamic", "bin/servicetool"), ContainsRegex("FLAGS_1.*PIE"));
}

TEST_F(InstalledLayout, ServicetoolRunsFromWhereverTheTreeIsMoved) {
    const std::string moved = Prefix() + "-moved";
    fs::rename(Prefix(), moved);
    EXPECT_THAT(Run({moved + "/bin/servicetool", "--version"}), HasSubstr("7.0.0"));
}

}  // namespace
}  // namespace tavo::test
