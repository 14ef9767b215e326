// The builds that are handed to others: the Debian packages, and the library on top of platform
// libraries that are there already.
#include <filesystem>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "installed_tree.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

class DebianPackages : public InstalledTree {
  protected:
    DebianPackages() {
        const std::string config = TAVO_BUILD_DIR "/CPackConfig.cmake";
        Run({TAVO_CPACK, "-G", "DEB", "--config", config, "-B", Prefix("packages")});
    }

    // What dpkg-deb tells of the one package of that name.
    std::string Ask(const std::string &option, const std::string &name) const {
        for (const auto &entry : fs::directory_iterator(Prefix("packages"))) {
            if (entry.path().filename().string().starts_with(name + "_7.0.0_")) {
                return Run({"dpkg-deb", option, entry.path()});
            }
        }
        ADD_FAILURE() << "no package " << name;
        return {};
    }

    std::string Control(const std::string &name) const { return Ask("--info", name); }
    std::string Contents(const std::string &name) const { return Ask("--contents", name); }
};

TEST_F(DebianPackages, DependOnEachOtherInTheSameVersionAndOnTheRuntime) {
    EXPECT_THAT(Control("libtavoplatform7"), ContainsRegex("Depends: .*libc6 "));
    EXPECT_THAT(Control("libtavoserviceconf7"),
                ContainsRegex("Depends: libtavoplatform7 .= 7.0.0., .*libc6 "));
    EXPECT_THAT(Control("libtavoserviceconf-dev"),
                ContainsRegex("Depends: libtavoserviceconf7 .= 7.0.0.,"));
    EXPECT_THAT(Control("servicetool"), ContainsRegex("Depends: libtavoserviceconf7 .= 7.0.0., "
                                                      ".*libc6 .*libstdc..6 "));
}

TEST_F(DebianPackages, HoldWhatTheirNamesSay) {
    EXPECT_THAT(Contents("libtavoplatform7"), HasSubstr("/libtavocore.so.7 "));
    EXPECT_THAT(Contents("libtavoserviceconf7"),
                AllOf(HasSubstr("/libtavoserviceconf.so.7 "), Not(HasSubstr("libtavocore")),
                      Not(HasSubstr(".so ")), Not(HasSubstr("/usr/include"))));
    EXPECT_THAT(
        Contents("libtavoserviceconf-dev"),
        AllOf(HasSubstr("/usr/include/tavoserviceconf.h"), HasSubstr("/libtavoserviceconf.so "),
              HasSubstr("/tavoserviceconf.pc"), HasSubstr("/tavoserviceconf-config.cmake")));
    EXPECT_THAT(Contents("servicetool"),
                AllOf(HasSubstr("/usr/bin/servicetool"), HasSubstr("/man1/servicetool.1"),
                      Not(HasSubstr("libtavo"))));
    for (const std::string name :
         {"libtavoplatform7", "libtavoserviceconf7", "libtavoserviceconf-dev", "servicetool"}) {
        EXPECT_THAT(Contents(name), HasSubstr("/usr/share/doc/" + name + "/copyright"));
    }
}

class SystemPlatform : public InstalledTree {
  protected:
    // Builds the library on the platform libraries of the installation.
    SystemPlatform() {
        Run({TAVO_CMAKE, "-S", TAVO_SOURCE_DIR, "-B", build_, "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=Debug", "-DTAVO_SYSTEM_PLATFORM=ON",
             "-DCMAKE_PREFIX_PATH=" + Prefix()});
        Run({TAVO_CMAKE, "--build", build_, "--target", "tavoserviceconf"});
    }

    const std::string build_ = Prefix("build");
};

TEST_F(SystemPlatform, IsUsedInPlaceOfTheBundledOne) {
    EXPECT_THAT(Run({"readelf", "--dynamic", build_ + "/lib/libtavoserviceconf.so"}),
                HasSubstr("Shared library: [libtavocore.so.7]"));
    EXPECT_THAT(Run({"ldd", build_ + "/lib/libtavoserviceconf.so"}),
                HasSubstr(Prefix("lib/libtavocore.so.7")));
    const std::string steps = Run({"ninja", "-C", build_, "-n"});
    EXPECT_THAT(steps, HasSubstr("bin/servicetool"));
    EXPECT_THAT(steps, Not(HasSubstr("libtavocore")));
}

TEST_F(SystemPlatform, IsLeftOutOfTheInstallationAndFoundFromThere) {
    const std::string installed = Prefix("installed");
    for (const char *component : {"library", "development"}) {
        Run({TAVO_CMAKE, "--install", build_, "--component", component, "--prefix", installed});
    }
    EXPECT_FALSE(fs::exists(installed + "/lib/libtavocore.so"));
    EXPECT_FALSE(fs::exists(installed + "/include/tavocore.h"));
    EXPECT_FALSE(fs::exists(installed + "/lib/pkgconfig/tavocore.pc"));

    const std::string consumer = BuildWithCMake({installed, Prefix()});
    EXPECT_THAT(Run({"ldd", consumer}), AllOf(HasSubstr(installed + "/lib/libtavoserviceconf.so.7"),
                                              HasSubstr(Prefix("lib/libtavocore.so.7"))));
}

}  // namespace
}  // namespace tavo::test
