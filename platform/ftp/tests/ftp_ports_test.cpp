// Each test writes the settings file of the appliance.
#include <filesystem>

#include "failing_allocation.h"
#include "file_support.h"
#include "require_appliance.h"
#include "tavoftp.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;

constexpr char kSettings[] = "/etc/tavoinfo.conf";

class FtpPorts : public testing::Test {
  protected:
    FtpPorts() {
        RequireAppliance();
        fs::remove_all(kSettings);
    }
    ~FtpPorts() override { TLIBCSzListFree(ports_); }

    // The list that TAVOFTPFwPorts returns for these settings.
    Strings Listed(const std::string &settings) {
        WriteFile(kSettings, settings);
        EXPECT_SUCCESS(0, TAVOFTPFwPorts(&ports_));
        Strings listed;
        for (int i = 0; i < TLIBCSzListCount(ports_); ++i) {
            listed.emplace_back(TLIBCSzListGet(ports_, i));
        }
        TLIBCSzListFree(std::exchange(ports_, nullptr));
        return listed;
    }

    // Both functions fail with the code and return no list.
    void ExpectBothFail(unsigned int code) {
        EXPECT_FAILURE(code, TAVOFTPHighPortGet());
        EXPECT_FAILURE(code, TAVOFTPFwPorts(&ports_));
        EXPECT_EQ(ports_, nullptr);
    }

    TLIBCSzList *ports_ = nullptr;
};

TEST_F(FtpPorts, AreTheFactoryDefaultsIfNoneIsSet) {
    EXPECT_THAT(Listed("hostname=\"appliance\"\n"), ElementsAre("21", "50000-50031"));
    EXPECT_SUCCESS(50031, TAVOFTPHighPortGet());
}

TEST_F(FtpPorts, AreTheFactoryDefaultsIfTheSettingIsEmpty) {
    EXPECT_THAT(Listed("ftpport=\nftplowport=\"\"\nftphighport=  \n"),
                ElementsAre("21", "50000-50031"));
    EXPECT_SUCCESS(50031, TAVOFTPHighPortGet());
}

TEST_F(FtpPorts, AreThoseOfTheSettings) {
    EXPECT_THAT(Listed("ftpport=\"2121\"\nftplowport=\"6000\"\nftphighport=\"6010\"\n"),
                ElementsAre("2121", "6000-6010"));
    EXPECT_SUCCESS(6010, TAVOFTPHighPortGet());
}

TEST_F(FtpPorts, AreSetIndependently) {
    EXPECT_THAT(Listed("ftphighport=50100\n"), ElementsAre("21", "50000-50100"));
    EXPECT_THAT(Listed("ftplowport=49000\n"), ElementsAre("21", "49000-50031"));
}

TEST_F(FtpPorts, AreReadAgainInEveryCall) {
    WriteFile(kSettings, "ftphighport=50100\n");
    EXPECT_EQ(TAVOFTPHighPortGet(), 50100);
    WriteFile(kSettings, "ftphighport=50200\n");
    EXPECT_EQ(TAVOFTPHighPortGet(), 50200);
}

TEST_F(FtpPorts, StartTheRangeWithTheLowerPort) {
    EXPECT_THAT(Listed("ftplowport=6010\nftphighport=6000\n"), ElementsAre("21", "6000-6010"));
    EXPECT_EQ(TAVOFTPHighPortGet(), 6000) << "the setting unchanged";
}

TEST_F(FtpPorts, WriteARangeOfOnePortAsThatPort) {
    EXPECT_THAT(Listed("ftplowport=6000\nftphighport=6000\n"), ElementsAre("21", "6000"));
}

TEST_F(FtpPorts, AcceptAnyPortAndNothingElse) {
    for (const char *value : {"0", "1", "65535", "00000000000000000000050031"}) {
        WriteFile(kSettings, std::string("ftphighport=") + value + "\n");
        EXPECT_SUCCESS(std::stoi(value), TAVOFTPHighPortGet());
    }
    for (const char *value : {"65536", "4294967296", "99999999999999999999", "-1", "+21", "21x",
                              "x", "2 1", "0x15", "21,22", "6000-6010", "\"\"21\"\""}) {
        WriteFile(kSettings, std::string("ftphighport=") + value + "\n");
        EXPECT_FAILURE(kBadParameterCode, TAVOFTPHighPortGet()) << value;
    }
}

TEST_F(FtpPorts, RejectAValueThatDoesNotFit) {
    WriteFile(kSettings, "ftphighport=" + std::string(31, '0') + "21\n");
    EXPECT_FAILURE(kBadParameterCode, TAVOFTPHighPortGet());
}

TEST_F(FtpPorts, FailIfAnyOfThemIsInvalid) {
    for (const char *key : {"ftpport", "ftplowport", "ftphighport"}) {
        WriteFile(kSettings, std::string(key) + "=many\n");
        EXPECT_FAILURE(kBadParameterCode, TAVOFTPFwPorts(&ports_)) << key;
        EXPECT_EQ(ports_, nullptr);
    }
    WriteFile(kSettings, "ftpport=many\n");
    EXPECT_EQ(TAVOFTPHighPortGet(), 50031) << "which does not read the others";
}

TEST_F(FtpPorts, FailWithoutSettings) {
    fs::remove(kSettings);
    ExpectBothFail(kMissingCode);
    fs::create_directory(kSettings);
    ExpectBothFail(kUnusableCode);
}

TEST_F(FtpPorts, LeaveTheCallersListUnchangedOnFailure) {
    ports_ = TLIBCSzListAlloc(1);
    TLIBCSzList *const before = ports_;
    WriteFile(kSettings, "ftplowport=x\n");
    EXPECT_FAILURE(kBadParameterCode, TAVOFTPFwPorts(&ports_));
    EXPECT_EQ(ports_, before);
    EXPECT_EQ(TLIBCSzListCount(ports_), 0);
}

TEST_F(FtpPorts, NeedAPlaceForTheList) {
    EXPECT_FAILURE(kBadParameterCode, TAVOFTPFwPorts(nullptr));
}

TEST_F(FtpPorts, FailCleanlyWhenMemoryRunsOut) {
    // Large enough that reading the settings needs memory.
    WriteFile(kSettings, "#" + std::string(20'000, '#') + "\nftpport=2121\n");
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        SetEarlierError();
        const int result = fail.During([&] { return TAVOFTPFwPorts(&ports_); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : kEarlierCode);
        EXPECT_EQ(ports_ == nullptr, fail.Hit());
        TLIBCSzListFree(std::exchange(ports_, nullptr));
    });
    EXPECT_EQ(allocations, 3 + 4) << "three readings; a list, its array and two strings";
}

TEST_F(FtpPorts, HighPortFailsWhenMemoryRunsOut) {
    WriteFile(kSettings, "#" + std::string(20'000, '#') + "\n");
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        SetEarlierError();
        const int result = fail.During([] { return TAVOFTPHighPortGet(); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 50031);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : kEarlierCode);
    });
    EXPECT_EQ(allocations, 1);
}

}  // namespace
}  // namespace tavo::test
