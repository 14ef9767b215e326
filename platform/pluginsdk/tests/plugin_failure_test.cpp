// Tests rejected calls, plugins that fail, and a plugin that does not end. The stand-in for the
// core's function shortens the time limit, so that no test waits for the full one.
#include <dlfcn.h>

#include <algorithm>
#include <csignal>
#include <utility>
#include <vector>

#include "failing_allocation.h"
#include "plugin_test.h"

namespace {

int g_limit = 0;     // the last requested limit
int g_longest = 60;  // the limit is reduced to this

}  // namespace

// Symbols of the program take precedence over those of the library.
extern "C" __attribute__((visibility("default"))) int TLIBCExecInput(const char *szProgram,
                                                                     const char *szArg,
                                                                     const void *pInput,
                                                                     size_t cbInput, int nSeconds) {
    static const auto next =
        reinterpret_cast<decltype(&TLIBCExecInput)>(dlsym(RTLD_NEXT, "TLIBCExecInput"));
    g_limit = nSeconds;
    return next(szProgram, szArg, pInput, cbInput, std::min(nSeconds, g_longest));
}

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

class PluginFailure : public PluginTest {};

TEST_F(PluginFailure, DoesNotPreventOtherPluginsFromRunning) {
    const char *const failures[] = {"exit 1", "exit 255", "kill -KILL $$", "kill -TERM $$"};
    for (const char *folder : {kSystemPlugins, kPackagePlugins}) {
        for (const char *failure : failures) {
            SCOPED_TRACE(failure);
            AddRecorder(kSystemPlugins, "1");
            AddScript(folder, "2", failure);
            AddRecorder(kSystemPlugins, "3");
            AddRecorder(kPackagePlugins, "4");
            EXPECT_FAILURE(kUnusableCode, TLIBPluginAction(5, Update().get()));
            EXPECT_EQ(TakeCalls(),
                      "1 port_config/update\n3 port_config/update\n4 port_config/update\n");
            for (const char *name : {"1", "2", "3"}) {
                fs::remove(fs::path(kSystemPlugins) / name);
            }
            for (const char *name : {"2", "4"}) {
                fs::remove(fs::path(kPackagePlugins) / name);
            }
        }
    }
}

TEST_F(PluginFailure, IncludesAPluginThatCannotBeRun) {
    WriteFile(std::string(kSystemPlugins) + "/no-interpreter", "#!/missing\n");
    chmod((std::string(kSystemPlugins) + "/no-interpreter").c_str(), 0755);
    AddRecorder(kSystemPlugins, "plugin");
    EXPECT_FAILURE(kUnusableCode, TLIBPluginAction(5, Update().get()));
    EXPECT_EQ(TakeCalls(), "plugin port_config/update\n");
}

TEST_F(PluginFailure, IncludesAFolderThatCannotBeListed) {
    fs::remove(kSystemPlugins);
    WriteFile(kSystemPlugins, "a file");
    AddRecorder(kPackagePlugins, "plugin");
    EXPECT_FAILURE(kUnusableCode, TLIBPluginAction(5, Update().get()));
    EXPECT_EQ(TakeCalls(), "plugin port_config/update\n");
}

TEST_F(PluginFailure, IsReportedWithThePathAndTheStatusOfThePlugin) {
    AddScript(kSystemPlugins, "1", "exit 0");
    AddScript(kSystemPlugins, "2", "exit 7");
    AddScript(kSystemPlugins, "3", "kill -TERM $$");
    WriteFile(std::string(kSystemPlugins) + "/4", "#!/missing\n");
    chmod((std::string(kSystemPlugins) + "/4").c_str(), 0755);
    fs::remove(kPackagePlugins);
    WriteFile(kPackagePlugins, "a file");
    using Reports = std::vector<std::pair<std::string, int>>;
    Reports reports;
    const auto report = [](const char *path, int status, void *context) {
        static_cast<Reports *>(context)->emplace_back(path, status);
    };
    EXPECT_FAILURE(kUnusableCode, TLIBPluginActionReport(5, Update().get(), report, &reports));
    const std::string folder = kSystemPlugins;
    EXPECT_EQ(reports, (Reports{{folder + "/1", 0},
                                {folder + "/2", 7},
                                {folder + "/3", 128 + SIGTERM},
                                {folder + "/4", -1},
                                {kPackagePlugins, -1}}));
    fs::remove(kPackagePlugins);
}

TEST_F(PluginFailure, IncludesAPluginThatDoesNotEnd) {
    AddScript(kSystemPlugins, "1", "trap '' TERM; while :; do sleep 1; done");
    AddRecorder(kSystemPlugins, "2");
    g_longest = 1;
    EXPECT_FAILURE(kUnusableCode, TLIBPluginAction(5, Update().get()));
    EXPECT_EQ(TakeCalls(), "2 port_config/update\n");
    EXPECT_EQ(g_limit, 60);
}

TEST_F(PluginFailure, IsReportedWhenMemoryRunsOut) {
    AddScript(kSystemPlugins, "plugin", "exit 0");
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        TLIBPluginHandle *handle = nullptr;
        SetEarlierError();
        const int result = fail.During([&handle] {
            handle = TLIBPluginSDKInit("port_config", "port_config/update");
            return handle == nullptr || TLIBPluginSetArg(handle, "KEY", "value") != 0
                       ? -1
                       : TLIBPluginAction(5, handle);
        });
        TLIBPluginExit(handle);
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : kEarlierCode);
    });
    EXPECT_GT(allocations, 5);
}

TEST_F(PluginFailure, InOneFolderForLackOfMemoryLeavesTheOther) {
    AddRecorder(kPackagePlugins, "plugin");
    const PluginCall call = Update();
    bool reported = false;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        SetEarlierError();
        const int result = fail.During([&] { return TLIBPluginAction(5, call.get()); });
        const bool ran = !TakeCalls().empty();
        reported = reported || (result == -1 && ran);
    });
    EXPECT_TRUE(reported);
}

TEST_F(PluginFailure, IncludesAGroupThatIsNotAFileName) {
    const std::string too_long(256, 'g');
    for (const char *group : {static_cast<const char *>(nullptr), "", ".", "..", "/", "a/b",
                              "../port_config", "port_config/", too_long.c_str()}) {
        SetEarlierError();
        EXPECT_EQ(TLIBPluginSDKInit(group, "action"), nullptr);
        EXPECT_EQ(TLIBCErrGet(), kBadParameterCode);
    }
    for (const std::string &group : {std::string("..."), std::string(255, 'g')}) {
        const PluginCall call(TLIBPluginSDKInit(group.c_str(), ""));
        EXPECT_SUCCESS(0, TLIBPluginAction(5, call.get())) << "a valid name without a folder";
    }
}

TEST_F(PluginFailure, IncludesNullAndAKeyThatWouldNotBeReadBack) {
    SetEarlierError();
    EXPECT_EQ(TLIBPluginSDKInit("port_config", nullptr), nullptr);
    EXPECT_EQ(TLIBCErrGet(), kBadParameterCode);
    AddRecorder(kSystemPlugins, "plugin");
    const PluginCall call = Update();
    TLIBPluginSetArg(call.get(), "KEY", "value");
    for (const char *key : {static_cast<const char *>(nullptr), "", "=", "KEY=", "=KEY"}) {
        EXPECT_FAILURE(kBadParameterCode, TLIBPluginSetArg(call.get(), key, "other"));
    }
    EXPECT_FAILURE(kBadParameterCode, TLIBPluginSetArg(call.get(), "KEY", nullptr));
    EXPECT_FAILURE(kBadParameterCode, TLIBPluginSetArg(nullptr, "KEY", "value"));
    EXPECT_FAILURE(kBadParameterCode, TLIBPluginAction(5, nullptr));
    TLIBPluginExit(nullptr);
    EXPECT_SUCCESS(0, TLIBPluginAction(5, call.get()));
    EXPECT_EQ(TakeCalls(), "plugin port_config/update\n< KEY=value\n");
}

}  // namespace
}  // namespace tavo::test
