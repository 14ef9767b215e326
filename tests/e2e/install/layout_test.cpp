// The contents of an installation, and how its programs and libraries were linked.
#include <filesystem>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "installed_tree.h"
#include "patterns.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::Not;

class InstalledLayout : public InstalledTree {
  protected:
    // All files and links of the tree, relative to its root.
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
                             "include/tavoserviceconf.h",
                             "lib/cmake/tavoserviceconf/tavoserviceconf-config-version.cmake",
                             "lib/cmake/tavoserviceconf/tavoserviceconf-config.cmake",
                             "lib/cmake/tavoserviceconf/tavoserviceconf-targets.cmake",
                             "lib/libtavoserviceconf.so",
                             "lib/libtavoserviceconf.so.7",
                             "lib/pkgconfig/tavoserviceconf.pc",
                             "share/doc/tavoserviceconf/LICENSE",
                             "share/doc/tavoserviceconf/README.md",
                             "share/man/man1/servicetool.1",
                             "share/man/man3/tavoserviceconf.3",
                             "share/man/man5/tavoserviceconf.5",
                         }));
}

TEST_F(InstalledLayout, HoldsThePlatformLibraries) {
    const std::vector<std::string> files = Files();
    for (const std::string library : kPlatformLibraries) {
        EXPECT_THAT(files, IsSupersetOf({"include/" + library + ".h", "lib/lib" + library + ".so",
                                         "lib/lib" + library + ".so.7",
                                         "lib/pkgconfig/" + library + ".pc"}));
    }
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

std::vector<std::string> Libraries() {
    std::vector<std::string> libraries = {"libtavoserviceconf.so"};
    for (const std::string library : kPlatformLibraries) {
        libraries.push_back("lib" + library + ".so");
    }
    return libraries;
}

// The library may need all platform libraries, and these only the core library.
bool MayNeed(const std::string &library, const std::string &other) {
    return library == "libtavoserviceconf.so"
               ? other.starts_with("libtavo")
               : library != "libtavocore.so" && other == "libtavocore.so.7";
}

TEST_F(InstalledLayout, LibrariesCarryTheirSoname) {
    for (const std::string &library : Libraries()) {
        EXPECT_THAT(ReadElf("--dynamic", "lib/" + library),
                    HasSubstr("Library soname: [" + library + ".7]"));
    }
}

TEST_F(InstalledLayout, LibrariesNeedNothingButEachOtherAndTheRuntime) {
    constexpr char kRuntime[] = R"(lib(c|m|stdc\+\+)\.so\.6|libgcc_s\.so\.1|ld-linux.*)";
    for (const std::string &library : Libraries()) {
        const std::string dynamic = ReadElf("--dynamic", "lib/" + library);
        for (const Groups &needed : AllMatches(dynamic, R"(\(NEEDED\).*\[(.*)\])")) {
            EXPECT_TRUE(IsMatch(needed[1], kRuntime) || MayNeed(library, needed[1]))
                << library << " " << needed[1];
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
}

INSTANTIATE_TEST_SUITE_P(Every, InstalledObject,
                         ::testing::Values("lib/libtavoserviceconf.so", "lib/libtavocore.so",
                                           "lib/libtavopf.so", "lib/libtavoftp.so",
                                           "lib/libtavossh.so", "lib/libtavonet.so",
                                           "lib/libtavocsystemd.so", "lib/libtavopluginsdk.so",
                                           "bin/servicetool"));

// Only objects with local arrays and calls that fill them contain these guards.
TEST_F(InstalledLayout, ObjectsGuardTheirArrays) {
    for (const char *object :
         {"lib/libtavoserviceconf.so", "lib/libtavocore.so", "bin/servicetool"}) {
        const std::string symbols = ReadElf("--dyn-syms", object);
        EXPECT_THAT(symbols, HasSubstr("__stack_chk_fail")) << object << ": stack protector";
        EXPECT_THAT(symbols, ContainsRegex("__[a-z]+_chk@")) << object << ": _FORTIFY_SOURCE";
    }
}

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
