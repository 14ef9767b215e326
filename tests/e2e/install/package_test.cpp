// The builds for distribution: the Debian packages, and the library built on platform libraries
// that are already installed.
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

    // The output of dpkg-deb about the only package of that name.
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
    const std::string platform = Contents("libtavoplatform7");
    const std::string library = Contents("libtavoserviceconf7");
    const std::string development = Contents("libtavoserviceconf-dev");
    EXPECT_THAT(platform, Not(HasSubstr(".so ")));
    EXPECT_THAT(library, AllOf(HasSubstr("/libtavoserviceconf.so.7 "), Not(HasSubstr(".so ")),
                               Not(HasSubstr("/usr/include"))));
    EXPECT_THAT(
        development,
        AllOf(HasSubstr("/usr/include/tavoserviceconf.h"), HasSubstr("/libtavoserviceconf.so "),
              HasSubstr("/tavoserviceconf.pc"), HasSubstr("/tavoserviceconf-config.cmake")));
    for (const std::string name : kPlatformLibraries) {
        EXPECT_THAT(platform, HasSubstr("/lib" + name + ".so.7 "));
        EXPECT_THAT(library, Not(HasSubstr("lib" + name)));
        EXPECT_THAT(development,
                    AllOf(HasSubstr("/usr/include/" + name + ".h"),
                          HasSubstr("/lib" + name + ".so "), HasSubstr("/" + name + ".pc")));
    }
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
    // Builds the library with the platform libraries of the installation.
    SystemPlatform() {
        Run({TAVO_CMAKE, "-S", TAVO_SOURCE_DIR, "-B", build_, "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=", "-DTAVO_SYSTEM_PLATFORM=ON",
             "-DCMAKE_PREFIX_PATH=" + Prefix()});
        Run({TAVO_CMAKE, "--build", build_, "--target", "tavoserviceconf"});
    }

    void ExpectUsed();
    void ExpectLeftOutOfTheInstallation();

    const std::string build_ = Prefix("build");
};

void SystemPlatform::ExpectUsed() {
    const std::string dynamic =
        Run({"readelf", "--dynamic", build_ + "/lib/libtavoserviceconf.so"});
    const std::string loaded = Run({"ldd", build_ + "/lib/libtavoserviceconf.so"});
    const std::string steps = Run({"ninja", "-C", build_, "-n"});
    EXPECT_THAT(steps, HasSubstr("bin/servicetool"));
    for (const std::string library : kPlatformLibraries) {
        const std::string soname = "lib" + library + ".so.7";
        EXPECT_THAT(dynamic, HasSubstr("Shared library: [" + soname + "]"));
        EXPECT_THAT(loaded, HasSubstr(Prefix("lib/" + soname)));
        EXPECT_THAT(steps, Not(HasSubstr("lib" + library)));
    }
}

void SystemPlatform::ExpectLeftOutOfTheInstallation() {
    const std::string installed = Prefix("installed");
    for (const char *component : {"library", "development"}) {
        Run({TAVO_CMAKE, "--install", build_, "--component", component, "--prefix", installed});
    }
    const std::string consumer = BuildWithCMake({installed, Prefix()});
    // A test cannot install into the default folders of the loader, which an appliance uses.
    const std::string folders = installed + "/lib:" + Prefix("lib");
    const std::string loaded = Run({"ldd", consumer}, {"LD_LIBRARY_PATH=" + folders});
    EXPECT_THAT(loaded, HasSubstr(installed + "/lib/libtavoserviceconf.so.7"));
    for (const std::string library : kPlatformLibraries) {
        EXPECT_FALSE(fs::exists(installed + "/lib/lib" + library + ".so"));
        EXPECT_FALSE(fs::exists(installed + "/include/" + library + ".h"));
        EXPECT_FALSE(fs::exists(installed + "/lib/pkgconfig/" + library + ".pc"));
        EXPECT_THAT(loaded, HasSubstr(Prefix("lib/lib" + library + ".so.7")));
    }
    const ProgramResult result = RunPlainC(consumer, folders);
    EXPECT_EQ(result.status, 0) << "failed at that line of plain_c.c\n" << result.err;
    EXPECT_THAT(ReadFile(installed + "/lib/pkgconfig/tavoserviceconf.pc"),
                Not(HasSubstr("tavocore")))
        << "which no pkg-config file need describe";
}

// A single test, because the build takes most of its time.
TEST_F(SystemPlatform, IsUsedInPlaceOfTheBundledOneAndFoundFromAnInstallationWithoutIt) {
    ExpectUsed();
    ExpectLeftOutOfTheInstallation();
}

}  // namespace
}  // namespace tavo::test
