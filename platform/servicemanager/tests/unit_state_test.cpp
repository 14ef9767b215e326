// systemctl is the appliance's stand-in, which records its calls; /bin belongs to the appliance, so
// that systemctl can be removed or replaced.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "failing_allocation.h"
#include "file_support.h"
#include "require_appliance.h"
#include "tavocsystemd.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

constexpr char kSystemctl[] = "/bin/systemctl";
constexpr char kCalls[] = "/run/calls/systemctl";

class UnitState : public testing::Test {
  protected:
    UnitState() { RequireAppliance(); }

    static std::string Calls() {
        return std::filesystem::exists(kCalls) ? ReadFile(kCalls) : std::string();
    }

    static void ReplaceSystemctl(const std::string &script) {
        std::filesystem::remove(kSystemctl);
        WriteFile(kSystemctl, script);
        chmod(kSystemctl, 0755);
    }
};

TEST_F(UnitState, IsReportedBySystemctl) {
    WriteFile("/run/active-units", "tavorelayd\n");
    EXPECT_SUCCESS(1, TAVOCSystemdActiveStatusGet("tavorelayd"));
    EXPECT_SUCCESS(0, TAVOCSystemdActiveStatusGet("two words"));
    EXPECT_EQ(Calls(),
              "systemctl is-active --quiet tavorelayd\nsystemctl is-active --quiet two\\ words\n");
}

TEST_F(UnitState, IsInactiveWithoutSystemctl) {
    std::filesystem::remove(kSystemctl);
    EXPECT_SUCCESS(0, TAVOCSystemdActiveStatusGet("tavorelayd"));
}

TEST_F(UnitState, IsUnknownIfSystemctlFails) {
    ReplaceSystemctl("#!/bin/sh\nkill -KILL $$\n");
    EXPECT_FAILURE(kUnusableCode, TAVOCSystemdActiveStatusGet("tavorelayd"));
    ReplaceSystemctl("no program");
    EXPECT_FAILURE(kUnusableCode, TAVOCSystemdActiveStatusGet("tavorelayd"));
}

TEST_F(UnitState, TreatsEveryOtherStatusAsInactive) {
    for (const char *status : {"1", "2", "3", "4", "127"}) {
        ReplaceSystemctl("#!/bin/sh\nexit " + std::string(status) + "\n");
        EXPECT_SUCCESS(0, TAVOCSystemdActiveStatusGet("tavorelayd")) << status;
    }
}

TEST_F(UnitState, ReloadsThroughSystemctl) {
    EXPECT_SUCCESS(0, TAVOCSystemdReload("tavorelayd"));
    EXPECT_EQ(Calls(), "systemctl reload tavorelayd\n");
}

TEST_F(UnitState, ReloadFailsWhenSystemctlDoes) {
    WriteFile("/run/exit-status/systemctl", "1\n");
    EXPECT_FAILURE(kUnusableCode, TAVOCSystemdReload("tavorelayd"));
    ReplaceSystemctl("#!/bin/sh\nkill -KILL $$\n");
    EXPECT_FAILURE(kUnusableCode, TAVOCSystemdReload("tavorelayd"));
    std::filesystem::remove(kSystemctl);
    EXPECT_FAILURE(kMissingCode, TAVOCSystemdReload("tavorelayd"));
}

TEST_F(UnitState, NeedsTheNameOfAUnit) {
    for (const char *unit : {static_cast<const char *>(nullptr), "", "-H", "--help"}) {
        EXPECT_FAILURE(kBadParameterCode, TAVOCSystemdActiveStatusGet(unit));
        EXPECT_FAILURE(kBadParameterCode, TAVOCSystemdReload(unit));
    }
    EXPECT_EQ(Calls(), "");
}

TEST_F(UnitState, IsUnknownWithoutMemory) {
    WriteFile("/run/active-units", "tavorelayd\n");
    ForEachFailingAllocation([](FailingAllocation &fail) {
        SetEarlierError();
        const int state = fail.During([] { return TAVOCSystemdActiveStatusGet("tavorelayd"); });
        EXPECT_TRUE(state == 1 || (state == -1 && TLIBCErrGet() == kOutOfMemoryCode)) << state;
        const int reloaded = fail.During([] { return TAVOCSystemdReload("tavorelayd"); });
        EXPECT_TRUE(reloaded == 0 || (reloaded == -1 && TLIBCErrGet() == kOutOfMemoryCode))
            << reloaded;
    });
}

}  // namespace
}  // namespace tavo::test
