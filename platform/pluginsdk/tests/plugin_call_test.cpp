// Tests which plugins receive which data in which order. The recorder quotes its input as for a
// shell.
//
// The locale of these tests sorts everything in reverse.
#include <dirent.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <iterator>
#include <string_view>

#include "exec_support.h"
#include "plugin_test.h"

// Symbols of the program take precedence over those of the C library.
extern "C" __attribute__((visibility("default"))) int strcoll(const char *a,
                                                              const char *b) noexcept {
    return std::strcmp(b, a);
}

extern "C" __attribute__((visibility("default"))) int alphasort(const dirent **a,
                                                                const dirent **b) noexcept {
    return strcoll((*a)->d_name, (*b)->d_name);
}

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

// Drops the right to override file permissions for the lifetime of the object; it can be regained
// at any time.
class WithoutOverride {
  public:
    WithoutOverride() {
        Get(saved_);
        Capabilities effective;
        Get(effective);
        effective[0].effective &= ~(1U << CAP_DAC_OVERRIDE);
        Set(effective);
    }
    ~WithoutOverride() { Set(saved_); }
    WithoutOverride(const WithoutOverride &) = delete;
    WithoutOverride &operator=(const WithoutOverride &) = delete;

  private:
    using Capabilities = __user_cap_data_struct[2];

    static void Get(Capabilities &capabilities) {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        EXPECT_EQ(syscall(SYS_capget, &header, capabilities), 0);
    }
    static void Set(const Capabilities &capabilities) {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        EXPECT_EQ(syscall(SYS_capset, &header, capabilities), 0);
    }

    Capabilities saved_ = {};
};

TEST_F(PluginTest, RunsSystemPluginsThenPackagePluginsInByteOrder) {
    for (const char *name : {"b", "10-b", "a", "Z", ".hidden", "9", "\xC3\xA4"}) {
        AddRecorder(kSystemPlugins, name);
    }
    for (const char *name : {"a2", "a10"}) {
        AddRecorder(kPackagePlugins, name);
    }
    EXPECT_SUCCESS(0, TLIBPluginAction(5, Update().get()));
    std::string expected;
    for (const char *name : {".hidden", "10-b", "9", "Z", "a", "b", "\xC3\xA4", "a10", "a2"}) {
        expected += std::string(name) + " port_config/update\n";
    }
    EXPECT_EQ(TakeCalls(), expected);
}

TEST_F(PluginTest, SkipsFilesThatAreNotExecutable) {
    AddScript(kSystemPlugins, "no-permission", "echo no-permission >> /run/calls/all", 0644);
    fs::create_directory(fs::path(kSystemPlugins) / "folder");
    fs::create_directory_symlink("/usr", fs::path(kSystemPlugins) / "link-to-a-folder");
    fs::create_symlink("nowhere", fs::path(kSystemPlugins) / "link-to-nothing");
    mkfifo((std::string(kSystemPlugins) + "/pipe").c_str(), 0755);
    AddRecorder(kSystemPlugins, "plugin");
    EXPECT_SUCCESS(0, TLIBPluginAction(5, Update().get()));
    EXPECT_EQ(TakeCalls(), "plugin port_config/update\n");
}

TEST_F(PluginTest, SkipsFilesThatItsEffectiveRightsDoNotAllow) {
    AddScript(kSystemPlugins, "of-others", "echo of-others >> /run/calls/all", 0601);
    AddRecorder(kSystemPlugins, "plugin");
    const WithoutOverride without;
    EXPECT_SUCCESS(0, TLIBPluginAction(5, Update().get()));
    EXPECT_EQ(TakeCalls(), "plugin port_config/update\n");
}

TEST_F(PluginTest, RunsThoseOfItsGroupOnly) {
    AddRecorder(kSystemPlugins, "plugin");
    fs::create_directory("/usr/local/lib/plugins/other");
    AddRecorder("/usr/local/lib/plugins", "of-no-group");
    AddRecorder("/usr/local/lib/plugins/other", "other");
    const PluginCall other(TLIBPluginSDKInit("other", "two words"));
    EXPECT_SUCCESS(0, TLIBPluginAction(5, other.get()));
    EXPECT_EQ(TakeCalls(), "other two\\ words\n");
}

TEST_F(PluginTest, SucceedsWithoutPlugins) {
    EXPECT_SUCCESS(0, TLIBPluginAction(5, Update().get()));
    fs::remove(kSystemPlugins);
    AddRecorder(kPackagePlugins, "plugin");
    EXPECT_SUCCESS(0, TLIBPluginAction(5, Update().get()));
    EXPECT_EQ(TakeCalls(), "plugin port_config/update\n");
    fs::remove_all("/usr/tavo/lib/plugins");
    fs::remove_all("/usr/local/lib/plugins");
    EXPECT_SUCCESS(0, TLIBPluginAction(5, Update().get()));
}

TEST_F(PluginTest, DoesTheSameInEveryMode) {
    AddRecorder(kSystemPlugins, "plugin");
    for (const int mode : {0, 5, -1}) {
        EXPECT_SUCCESS(0, TLIBPluginAction(mode, Update().get()));
        EXPECT_EQ(TakeCalls(), "plugin port_config/update\n");
    }
}

TEST_F(PluginTest, SendsTheArgumentsInTheOrderOfTheirFirstSetting) {
    AddRecorder(kSystemPlugins, "plugin");
    const PluginCall call = Update();
    EXPECT_SUCCESS(0, TLIBPluginSetArg(call.get(), "Z", "first"));
    EXPECT_SUCCESS(0, TLIBPluginSetArg(call.get(), "A", ""));
    EXPECT_SUCCESS(0, TLIBPluginSetArg(call.get(), "M", "[s]\ndst.ports=\"80/tcp\"\n\xFF"));
    EXPECT_SUCCESS(0, TLIBPluginSetArg(call.get(), "Z", "a longer second"));
    EXPECT_SUCCESS(0, TLIBPluginAction(5, call.get()));
    EXPECT_EQ(TakeCalls(),
              "plugin port_config/update\n"
              "< Z=a\\ longer\\ second\n"
              "< A=\n"
              "< $'M=[s]\\ndst.ports=\"80/tcp\"\\n\\377'\n");
}

TEST_F(PluginTest, TerminatesEachArgumentWithANul) {
    AddScript(kSystemPlugins, "plugin", "cat > /run/input");
    const PluginCall call = Update();
    TLIBPluginSetArg(call.get(), "a b", "1");
    TLIBPluginSetArg(call.get(), "NOTIFY_PF", "x=\n");
    EXPECT_SUCCESS(0, TLIBPluginAction(5, call.get()));
    EXPECT_EQ(ReadFile("/run/input"), std::string("a b=1\0NOTIFY_PF=x=\n\0", 20));
}

TEST_F(PluginTest, MayBeCalledAgainWithOtherArguments) {
    AddRecorder(kSystemPlugins, "plugin");
    const PluginCall call = Update();
    EXPECT_SUCCESS(0, TLIBPluginAction(5, call.get()));
    TLIBPluginSetArg(call.get(), "KEY", "value");
    EXPECT_SUCCESS(0, TLIBPluginAction(5, call.get()));
    EXPECT_EQ(TakeCalls(), "plugin port_config/update\nplugin port_config/update\n< KEY=value\n");
}

TEST_F(PluginTest, CopiesItsArguments) {
    AddRecorder(kSystemPlugins, "plugin");
    std::string group = "port_config";
    std::string action = "action";
    std::string key = "key";
    std::string value = "value";
    const PluginCall call(TLIBPluginSDKInit(group.c_str(), action.c_str()));
    TLIBPluginSetArg(call.get(), key.c_str(), value.c_str());
    group[0] = action[0] = key[0] = value[0] = 'X';
    EXPECT_SUCCESS(0, TLIBPluginAction(5, call.get()));
    EXPECT_EQ(TakeCalls(), "plugin action\n< key=value\n");
}

TEST_F(PluginTest, SendsMegabytesToEachPlugin) {
    AddScript(kSystemPlugins, "1-reads-nothing", "exit 0");
    AddScript(kSystemPlugins, "2-reads-some", "head -c 5 > /dev/null");
    AddScript(kSystemPlugins, "3-writes", "printf nonsense 1<>/proc/self/fd/0");
    AddScript(kSystemPlugins, "4-reads-all", "cat > /run/input-4");
    AddScript(kPackagePlugins, "5-reads-all", "cat > /run/input-5");
    const std::string text(std::size_t{6} << 20, 'x');
    const PluginCall call = Update();
    TLIBPluginSetArg(call.get(), "OLD", text.c_str());
    TLIBPluginSetArg(call.get(), "NEW", text.c_str());
    EXPECT_SUCCESS(0, TLIBPluginAction(5, call.get()));
    const std::string expected = "OLD=" + text + '\0' + "NEW=" + text + '\0';
    EXPECT_TRUE(ReadFile("/run/input-4") == expected);
    EXPECT_TRUE(ReadFile("/run/input-5") == expected);
}

TEST_F(PluginTest, ChecksAnEntryOnlyWhenItIsRun) {
    AddScript(kSystemPlugins, "1", "cd /usr/tavo/lib/plugins/port_config && rm 2 && cp -P 3 4");
    AddRecorder(kSystemPlugins, "2");
    AddRecorder(kSystemPlugins, "3");
    EXPECT_SUCCESS(0, TLIBPluginAction(5, Update().get()));
    EXPECT_EQ(TakeCalls(), "3 port_config/update\n");
}

TEST_F(PluginTest, LeavesNoDescriptorsAndNoProcesses) {
    const auto descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptors();
    fs::create_symlink("/bin/ls", fs::path(kSystemPlugins) / "lists");
    AddScript(kSystemPlugins, "fails", "exit 1");
    const PluginCall call(TLIBPluginSDKInit("port_config", "/proc/self/fd"));
    const std::string output = OutputOf([&] { EXPECT_EQ(TLIBPluginAction(5, call.get()), -1); });
    EXPECT_EQ(output, "0\n1\n2\n3\n") << "its own three and the listed folder";
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

}  // namespace
}  // namespace tavo::test
