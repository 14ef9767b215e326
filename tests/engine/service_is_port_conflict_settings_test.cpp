// The settings of the system as a source.
#include <gmock/gmock.h>

#include "conflict_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SystemSettings : public ConflictTest {
  protected:
    int AskSettings(const std::string &ports, const std::string &skip = "",
                    const std::string &protocols = "tcp") {
        return Ask(ports, protocols, TAVO_PORT_CHECK_SYS_KEY, skip);
    }
};

constexpr char kAll[] =
    "ftpport=\"21\"\nWebDavPort=\"5005\"\nsecure_WebDavPort=\"5006\"\nsyslogport=\"514\"\n";

TEST_F(SystemSettings, CollideByEachOfTheirKeys) {
    Settings(kAll);
    for (const char *port : {"21", "5005", "5006", "514"}) {
        EXPECT_EQ(AskSettings(port), 1) << port;
        TAVOServiceConfPortsFree(std::exchange(conflicts_, nullptr));
    }
    EXPECT_EQ(AskSettings("22,5000,5007"), 0);
    EXPECT_EQ(conflicts_, nullptr);
}

TEST_F(SystemSettings, CollideOnAnyProtocol) {
    Settings(kAll);
    EXPECT_EQ(AskSettings("21", "", "udp"), 1);
    EXPECT_EQ(AskSettings("514", "", ""), 1);
}

TEST_F(SystemSettings, HandOverTheNodesOfARangeSet) {
    Settings(kAll);
    EXPECT_EQ(AskSettings("500:600,5000:6000,21"), 1);
    EXPECT_THAT(Conflicts(),
                ElementsAre("src 21 with end 21 protocol 0", "src 514 with end 514 protocol 0",
                            "src 5005:5006 protocol 0"));
}

TEST_F(SystemSettings, AreLeftOutByTheWordOfTheirService) {
    Settings(kAll);
    EXPECT_EQ(AskSettings("21", "ftp"), 0);
    EXPECT_EQ(AskSettings("5005", "webdav_http"), 0);
    EXPECT_EQ(AskSettings("5006", "webdavs_https"), 0);
    EXPECT_EQ(AskSettings("514", "syslog_server"), 0);
    EXPECT_EQ(AskSettings("21,514,5005,5006", "ftp,syslog_server webdav_http webdavs_https"), 0);
    EXPECT_EQ(AskSettings("5006", "ftp,webdav_http,syslog_server"), 1);
    EXPECT_EQ(AskSettings("21", "ftpport"), 1) << "the key is no word of it";
}

TEST_F(SystemSettings, DoNotCollideWhereAKeyIsAbsentOrEmpty) {
    Settings("ftpport=\"\"\n");
    EXPECT_EQ(AskSettings("21"), 0);
    EXPECT_EQ(AskSettings("0"), 0);
    EXPECT_EQ(ErrorState(), "0x0 ");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SystemSettings, LeaveThePassiveRangeOfFtpOut) {
    Settings("ftpport=\"21\"\nftplowport=\"50000\"\nftphighport=\"50031\"\n");
    EXPECT_EQ(AskSettings("50000:50031"), 0);
    EXPECT_EQ(AskSettings("50031"), 0);
}

TEST_F(SystemSettings, MustNamePorts) {
    Settings("ftpport=\"65536\"\n");
    EXPECT_EQ(AskSettings("80"), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_get.cpp");
    EXPECT_THAT(Messages(), ElementsAre("illegal ports number, port=65536, tavoerr=[0x0D00 "
                                        "service_conf_ports_get.cpp:N]",
                                        "Failed to GetServicePort(), service = [ftpport]",
                                        "Failed to GetAllNonSkipServicePort()"));
    EXPECT_EQ(AskSettings("80", "ftp"), 0) << "what is skipped is not read";
}

TEST_F(SystemSettings, NameTheKeyThatFails) {
    for (const auto &[key, skip] :
         {std::pair("WebDavPort", "webdav_http"), std::pair("secure_WebDavPort", "webdavs_https"),
          std::pair("syslogport", "syslog_server")}) {
        Settings(std::string(key) + "=\"x\"\n");
        log_.Clear();
        EXPECT_EQ(AskSettings("80"), -1);
        ASSERT_EQ(Messages().size(), 3u);
        EXPECT_EQ(Messages()[1],
                  "Failed to GetServicePort(), service = [" + std::string(key) + "]");
        EXPECT_EQ(AskSettings("80", skip), 0);
    }
}

TEST_F(SystemSettings, AreReadInTheOrderOfTheirKeys) {
    const std::string all = "syslogport=x\nsecure_WebDavPort=x\nWebDavPort=x\nftphighport=x\n";
    const auto first_to_fail = [this](const std::string &skip) {
        log_.Clear();
        EXPECT_EQ(AskSettings("80", skip), -1);
        const std::vector<std::string> messages = Messages();
        return messages[messages.size() - 2];
    };
    const std::string failed = "Failed to GetServicePort(), service = ";
    Settings(all + "ftpport=x\n");
    EXPECT_EQ(first_to_fail(""), failed + "[ftpport]");
    EXPECT_EQ(first_to_fail("ftp"), failed + "[WebDavPort]");
    EXPECT_EQ(first_to_fail("ftp,webdav_http"), failed + "[secure_WebDavPort]");
    EXPECT_EQ(first_to_fail("ftp,webdav_http,webdavs_https"), failed + "[syslogport]");
    Settings(all + "ftpport=21\n");
    EXPECT_EQ(first_to_fail(""), failed + "[ftplowport]");
}

TEST_F(SystemSettings, ThatAreMissingAreAnError) {
    std::filesystem::remove(kSettings);
    EXPECT_EQ(AskSettings("80"), -1);
    EXPECT_EQ(TLIBCErrGet(), 0x700u);
    EXPECT_THAT(Messages(), ElementsAre("Failed to get [ftpport] info from [/etc/tavoinfo.conf].",
                                        "Failed to GetServicePort(), service = [ftpport]",
                                        "Failed to GetAllNonSkipServicePort()"));
    EXPECT_EQ(AskSettings("80", "ftp,webdav_http,webdavs_https,syslog_server"), 0)
        << "with all of them skipped nothing is read";
}

TEST_F(SystemSettings, AskForThePassivePortOfFtpThough) {
    Settings("ftphighport=\"x\"\n");
    EXPECT_EQ(AskSettings("80"), -1);
    const std::vector<std::string> tail = {"failed to get ftp low port",
                                           "Failed to GetServicePort(), service = [ftplowport]",
                                           "Failed to GetAllNonSkipServicePort()"};
    EXPECT_THAT(Messages(), testing::IsSupersetOf(tail));
    EXPECT_EQ(AskSettings("80", "ftp"), 0);
}

TEST_F(SystemSettings, ImportTheQueryAsItIsGiven) {
    Settings("ftpport=\"21\"\nsyslogport=\"514\"\n");
    EXPECT_EQ(AskSettings("100:20"), 0) << "a reversed range stays reversed";
    EXPECT_EQ(AskSettings("20:100"), 1);
    TAVOServiceConfPortsFree(std::exchange(conflicts_, nullptr));
    EXPECT_EQ(AskSettings("21 514"), 1) << "read up to the blank";
    EXPECT_THAT(Conflicts(), ElementsAre("src 21 with end 21 protocol 0"));
}

TEST_F(SystemSettings, TakeWordsForPort0) {
    Settings("ftpport=\"0\"\n");
    EXPECT_EQ(AskSettings("web"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 0 protocol 0"));
}

TEST_F(SystemSettings, CountWhatTheCallerHandedOver) {
    Settings(kAll);
    HandOver(80, 0);
    EXPECT_EQ(AskSettings("9"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 80 with end 80 protocol 0"));
}

TEST_F(SystemSettings, MergeWhatTheCallerHandedOver) {
    Settings(kAll);
    HandOver(513, 0);
    HandOver(400, 500);
    HandOver(1, 0);
    EXPECT_EQ(AskSettings("514"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 1 with end 1 protocol 0", "src 400:500 protocol 0",
                                         "src 513:514 protocol 0"));
}

TEST_F(SystemSettings, LeaveTheMergedListWhereALaterSourceFails) {
    HandOver(80, 0);
    EXPECT_EQ(Ask("0", "tcp", TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME), -1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 80 with end 80 protocol 0"));
}

TEST_F(SystemSettings, LeaveTheCallersListOnAFailure) {
    HandOver(80, 0);
    Settings("ftpport=\"x\"\n");
    EXPECT_EQ(AskSettings("80"), -1);
    EXPECT_THAT(Conflicts(), ElementsAre("dst 80 protocol 1"));
}

TEST_F(SystemSettings, NameTheStepThatRanOutOfMemory) {
    Settings(kAll);
    std::vector<std::string> said;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TAVOServiceConfPortsFree(std::exchange(conflicts_, nullptr));
        HandOver(80, 0);
        HandOver(81, 0);
        const int result = fail.During([this] { return AskSettings("21,514"); });
        if (!fail.Hit()) {
            EXPECT_EQ(result, 1);
            return;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(TLIBCErrGet(), 0x200u);
        EXPECT_THAT(Conflicts(), ElementsAre("dst 81 protocol 1", "dst 80 protocol 1"))
            << "the caller's list survives";
        const std::vector<std::string> messages = Messages();
        said.insert(said.end(), messages.begin(), messages.end());
    });
    EXPECT_GT(allocations, 10);
    EXPECT_THAT(said, testing::IsSupersetOf(
                          {"Failed to TLIBPortRangeCreate()", "Out of memory",
                           "Failed to TLIBPortRangeAdd().", "Failed to TLIBPortRangeImport().",
                           "Failed to TLIBPortRangeOverlap()", "Failed to TLIBPortRangeJoin()"}));
}

}  // namespace
}  // namespace tavo::test
