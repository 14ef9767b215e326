// An appliance whose port_config plugins are those of the test.
#ifndef TAVO_PLATFORM_PLUGINSDK_TESTS_PLUGIN_TEST_H
#define TAVO_PLATFORM_PLUGINSDK_TESTS_PLUGIN_TEST_H

#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>

#include "file_support.h"
#include "require_appliance.h"
#include "tavopluginsdk.h"
#include "temporary_folder.h"

namespace tavo::test {

constexpr char kSystemPlugins[] = "/usr/tavo/lib/plugins/port_config";
constexpr char kPackagePlugins[] = "/usr/local/lib/plugins/port_config";

struct EndCall {
    void operator()(TLIBPluginHandle *handle) const { TLIBPluginExit(handle); }
};
using PluginCall = std::unique_ptr<TLIBPluginHandle, EndCall>;

class PluginTest : public testing::Test {
  protected:
    PluginTest() {
        RequireAppliance();
        for (const char *folder : {kSystemPlugins, kPackagePlugins}) {
            std::filesystem::remove_all(folder);
            std::filesystem::create_directories(folder);
        }
    }

    static PluginCall Update() {
        return PluginCall(TLIBPluginSDKInit("port_config", "port_config/update"));
    }

    // A plugin that writes its action and the arguments of the call to the appliance's record.
    static void AddRecorder(const std::string &folder, const std::string &name) {
        std::filesystem::create_symlink("/usr/tavo/lib/stand-ins/record", folder + "/" + name);
    }

    static void AddScript(const std::string &folder, const std::string &name,
                          const std::string &commands, mode_t mode = 0755) {
        const std::string path = folder + "/" + name;
        WriteFile(path, "#!/bin/sh\n" + commands + "\n");
        chmod(path.c_str(), mode);
    }

    // Returns the record and empties it.
    static std::string TakeCalls() {
        constexpr char kCalls[] = "/run/calls/all";
        const std::string calls = std::filesystem::exists(kCalls) ? ReadFile(kCalls) : "";
        std::filesystem::remove(kCalls);
        return calls;
    }
};

}  // namespace tavo::test

#endif
