#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "catalogue_test.h"
#include "failing_allocation.h"
#include "open_counter.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<std::string> kBuiltIn = {"ipp",       "lpr",        "kx20", "bonjour",
                                           "snmp",      "ftp",        "afp",  "nfs",
                                           "lanprobed", "ups_server", "ssh",  "telnet"};

// The names in `declared`, followed by the built-in services except `left_out`.
std::vector<std::string> BuiltInAfter(std::vector<std::string> declared,
                                      const std::vector<std::string> &left_out = {}) {
    for (const std::string &name : kBuiltIn) {
        if (std::find(left_out.begin(), left_out.end(), name) == left_out.end()) {
            declared.push_back(name);
        }
    }
    return declared;
}

std::string Section(const std::string &name, const std::string &ports) {
    return "[" + name + "]\ntitle=T\ndesc=D\ndst.ports=" + ports + "\n";
}

class ServiceEnum : public CatalogueTest {
  protected:
    // Reads the services into services_ and returns their number.
    int Enumerate() {
        TAVO_FW_SERVICE *list = nullptr;
        const int count = TAVOFwServiceEnum(&list);
        services_.reset(list);
        return count;
    }

    static void Install(const std::string &name, const std::string &contents) {
        WriteFile(std::string(kPackageServices) + "/" + name, contents);
    }

    // The service of that name; throws if it does not exist.
    const TAVO_FW_SERVICE &Service(const char *name) const {
        const TAVO_FW_SERVICE *service = TAVOFWServiceFind(services_.get(), name);
        if (service == nullptr) {
            throw std::runtime_error(std::string("no service ") + name);
        }
        return *service;
    }

    // The destination ports and protocol of service "s" when its service file declares `ports`.
    std::string PortsOf(const std::string &ports) {
        Install("s.sc", Section("s", ports));
        Enumerate();
        return Join(Service("s").pDstPortList) + " protocol " +
               std::to_string(Service("s").nDstProtocol);
    }

    Services services_;
};

// ---- Built-in services ----

TEST_F(ServiceEnum, ListsTheBuiltInServicesBackwards) {
    EXPECT_EQ(Enumerate(), 12);
    EXPECT_EQ(Names(services_.get()), BuiltInAfter({}));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ServiceEnum, FillsABuiltInServiceFromItsRow) {
    ASSERT_EQ(Enumerate(), 12);
    for (const auto *row = rgServices; row->szName != nullptr; ++row) {
        const TAVO_FW_SERVICE &service = Service(row->szName);
        EXPECT_EQ(service.blPortForward, row->blPortForward);
        EXPECT_EQ(Describe(service.strTitle), Describe(row->strTitle));
        EXPECT_EQ(Describe(service.strDesc), Describe(row->strDesc));
        EXPECT_EQ(service.nDstProtocol, row->nDstProtocol);
        EXPECT_EQ(service.nSrcProtocol, 0U);
        EXPECT_EQ(service.pSrcPortList, nullptr);
    }
    EXPECT_EQ(Describe(Service("afp").strTitle), "|network|apple_subject||");
    EXPECT_EQ(Describe(Service("afp").strDesc), "|firewall|firewall_service_desc_afp||");
}

TEST_F(ServiceEnum, ListsFixedPortsInTheirOrder) {
    ASSERT_EQ(Enumerate(), 12);
    EXPECT_THAT(Items(Service("telnet").pDstPortList), ElementsAre("23"));
    EXPECT_THAT(Items(Service("lanprobed").pDstPortList),
                ElementsAre("1234", "9997", "9998", "9999"));
}

TEST_F(ServiceEnum, AsksTheProvidersForTheirPorts) {
    WriteFile(kSshSettings, "Port 2200\n");
    WriteFile(kSettings, "rsync_sshd_port=873\nftpport=2121\nftplowport=6000\nftphighport=6010\n");
    WriteFile(kNfsSettings, "nfs_custom_port_enable=yes\nstatd_port=1\nnlm_port=2\n");
    ASSERT_EQ(Enumerate(), 12);
    EXPECT_EQ(Join(Service("ssh").pDstPortList), "2200,22,873");
    EXPECT_EQ(Join(Service("ftp").pDstPortList), "2121,6000-6010");
    EXPECT_EQ(Join(Service("nfs").pDstPortList), "111,892,2049,1,2");
}

TEST_F(ServiceEnum, ListsBuiltInServicesThatTheModelDoesNotSupport) {
    WriteFile(kFactorySettings, "supportups=yes\nsupportNFS=no\n");
    ASSERT_EQ(Enumerate(), 12);
    EXPECT_EQ(Service("ups_server").blSupported, 1U);
    EXPECT_EQ(Service("nfs").blSupported, 0U);
    EXPECT_EQ(Service("kx20").blSupported, 0U);
    EXPECT_EQ(Join(Service("nfs").pDstPortList), "111,892,2049,662,4045");
    for (const char *name :
         {"telnet", "ssh", "lanprobed", "afp", "ftp", "snmp", "bonjour", "lpr", "ipp"}) {
        EXPECT_EQ(Service(name).blSupported, 1U) << name;
    }
}

TEST_F(ServiceEnum, ComparesTheSupportKeyOfABuiltInServiceToTheLetter) {
    WriteFile(kFactorySettings, "supportups=YES\nsupportNFS=\"yes\"\ncv_kx=yes!\n");
    ASSERT_EQ(Enumerate(), 12);
    EXPECT_EQ(Service("ups_server").blSupported, 0U);
    EXPECT_EQ(Service("nfs").blSupported, 1U);
    EXPECT_EQ(Service("kx20").blSupported, 0U);
}

TEST_F(ServiceEnum, CountsEverySupportKeyAsNoWithoutFactorySettings) {
    std::filesystem::remove(kFactorySettings);
    Install("a.sc", "[global]\nsupport_key=supportups\n" + Section("a", "80"));
    EXPECT_EQ(Enumerate(), 13);
    EXPECT_EQ(Service("ups_server").blSupported, 0U);
    EXPECT_EQ(Service("a").blSupported, 0U);
    EXPECT_EQ(Service("telnet").blSupported, 1U);
    EXPECT_EQ(ErrorState(), "0x700 file_text.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceEnum, LeavesOutServicesWhosePortsCannotBeWorkedOut) {
    std::filesystem::remove(kNfsSettings);
    WriteFile(kSshSettings, "Port none\n");
    EXPECT_EQ(Enumerate(), 10);
    EXPECT_EQ(Names(services_.get()), BuiltInAfter({}, {"nfs", "ssh"}));
    EXPECT_THAT(Messages(), ElementsAre("Failed to get ssh_port",
                                        "Failed to enum dst ports in firewall services: ssh",
                                        "Failed to get val of 'NFS custom port', errno=0x700",
                                        "Failed to push statd nlockmgr ports",
                                        "Failed to enum dst ports in firewall services: nfs"));
}

TEST_F(ServiceEnum, LeavesOutWhatNeedsTheSettingsWithoutThem) {
    std::filesystem::remove(kSettings);
    EXPECT_EQ(Enumerate(), 10);
    EXPECT_EQ(Names(services_.get()), BuiltInAfter({}, {"ftp", "ssh"}));
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to get sftpPort of tavoinfo.conf. [0x0700 file_text.cpp:N]",
                            "Failed to enum dst ports in firewall services: ssh",
                            "Failed to enum dst ports in firewall services: ftp"));
}

// ---- Services of service files ----

// TAVOServiceConfEnum lists the last file and its last section first; the enumeration reverses
// this.
TEST_F(ServiceEnum, PutsTheServicesOfServiceFilesInFront) {
    WriteFile(std::string(kSystemServices) + "/b.sc", Section("b1", "1") + Section("b2", "2"));
    WriteFile(std::string(kSystemServices) + "/a.sc", Section("a1", "3"));
    Install("0.sc", Section("p1", "4") + Section("p2", "5") + Section("p3", "6"));
    EXPECT_EQ(Enumerate(), 18);
    EXPECT_EQ(Names(services_.get()), BuiltInAfter({"a1", "b1", "b2", "p1", "p2", "p3"}));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceEnum, FillsAServiceFromItsSection) {
    Install("web.sc",
            "[web]\n"
            "title_key=pkg:tree:leaf_web\ntitle=Web\n"
            "desc_key=own:more:desc_web\ndesc=Serves pages\ndesc_extra=all day\n"
            "port_forward=yes\nsrc.ports=1024:65535/udp\ndst.ports=80,443/tcp\n");
    ASSERT_EQ(Enumerate(), 13);
    const TAVO_FW_SERVICE &web = Service("web");
    EXPECT_STREQ(web.szName, "web");
    EXPECT_EQ(web.blSupported, 1U);
    EXPECT_EQ(web.blPortForward, 1U);
    EXPECT_EQ(Describe(web.strTitle), "pkg|tree|leaf_web|Web|");
    EXPECT_EQ(Describe(web.strDesc), "own|more|desc_web|Serves pages|all day");
    EXPECT_EQ(web.nSrcProtocol, 2U);
    EXPECT_EQ(Join(web.pSrcPortList), "1024-65535");
    EXPECT_EQ(web.nDstProtocol, 1U);
    EXPECT_EQ(Join(web.pDstPortList), "443,80");
}

TEST_F(ServiceEnum, LeavesAbsentFieldsOfASectionEmpty) {
    Install("web.sc", Section("web", "80"));
    ASSERT_EQ(Enumerate(), 13);
    const TAVO_FW_SERVICE &web = Service("web");
    EXPECT_EQ(web.blPortForward, 0U);
    EXPECT_EQ(Describe(web.strTitle), "|||T|");
    EXPECT_EQ(Describe(web.strDesc), "|||D|");
    EXPECT_EQ(web.nSrcProtocol, 0U);
    EXPECT_EQ(web.pSrcPortList, nullptr);
}

TEST_F(ServiceEnum, WritesRangesWithADash) {
    EXPECT_EQ(PortsOf("1000:2000/tcp"), "1000-2000 protocol 1");
    EXPECT_EQ(PortsOf("0,65535,1:2/udp"), "1-2,65535,0 protocol 2");
    EXPECT_EQ(PortsOf("2000:1000"), "2000-1000 protocol 3");
    EXPECT_EQ(PortsOf("80/udp,tcp"), "80 protocol 3");
    EXPECT_EQ(PortsOf("7:7/tcp"), "7-7 protocol 1");
}

TEST_F(ServiceEnum, AsksTheSupportKeyOfTheFileForAllItsSections) {
    WriteFile(kFactorySettings, "good=yes\nshouted=YES\nbad=no\nlong=yesyes\n");
    const std::pair<const char *, uint32_t> cases[] = {
        {"good", 1}, {"shouted", 1}, {"bad", 0}, {"long", 0}, {"absent", 0}, {"GOOD", 0}, {"", 1},
    };
    for (const auto &[key, supported] : cases) {
        Install("a.sc", "[global]\nsupport_key=" + std::string(key) + "\n" + Section("a", "1") +
                            Section("b", "2"));
        EXPECT_EQ(Enumerate(), 14);
        EXPECT_EQ(Service("a").blSupported, supported) << key;
        EXPECT_EQ(Service("b").blSupported, supported) << key;
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceEnum, LeavesOutASectionWithoutDestinationPorts) {
    Install("a.sc", "[a]\ntitle=T\ndesc=D\nsrc.ports=80\n" + Section("b", "80"));
    EXPECT_EQ(Enumerate(), 13);
    EXPECT_EQ(Names(services_.get()), BuiltInAfter({"b"}));
}

TEST_F(ServiceEnum, LeavesOutFilesThatAreNoServiceFiles) {
    Install("a.sc", Section("a", "80"));
    Install("b.sc", "just text\n");
    Install("c.sc", Section("c", "eighty"));
    EXPECT_EQ(Enumerate(), 13);
    EXPECT_EQ(Names(services_.get()), BuiltInAfter({"a"}));
}

TEST_F(ServiceEnum, ListsServicesOfOneNameEachForItself) {
    Install("a.sc", Section("ssh", "1"));
    Install("b.sc", Section("ssh", "2"));
    EXPECT_EQ(Enumerate(), 14);
    EXPECT_EQ(Names(services_.get()), BuiltInAfter({"ssh", "ssh"}));
    EXPECT_EQ(Join(services_->pDstPortList), "1");
    EXPECT_EQ(Join(services_->pNext->pDstPortList), "2");
}

TEST_F(ServiceEnum, AcceptsMissingServiceFolders) {
    std::filesystem::remove_all(kSystemServices);
    std::filesystem::remove_all(kPackageServices);
    EXPECT_EQ(Enumerate(), 12);
    EXPECT_EQ(ErrorState(), "0x2A00 service_conf_enum.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
}

// ---- The call as a whole ----

TEST_F(ServiceEnum, ReplacesWhatTheCallerStored) {
    TAVO_FW_SERVICE own = {};
    TAVO_FW_SERVICE *list = &own;
    EXPECT_EQ(TAVOFwServiceEnum(&list), 12);
    services_.reset(list);
    EXPECT_EQ(Names(list), BuiltInAfter({}));
}

TEST_F(ServiceEnum, RejectsNull) {
    EXPECT_EQ(TAVOFwServiceEnum(nullptr), -1);
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters"));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
}

TEST_F(ServiceEnum, KeepsTheErrorStateOfTheCallerOnSuccess) {
    TLIBCErrSetEx(0x123, "caller.cpp", 1);
    EXPECT_EQ(Enumerate(), 12);
    EXPECT_EQ(ErrorState(), "0x123 caller.cpp");
}

TEST_F(ServiceEnum, LeavesOutOnlyWhatLacksMemory) {
    Install("a.sc", "[global]\nsupport_key=supportups\n" + Section("a", "80,90:99") +
                        Section("b", "80") + "src.ports=1\n");
    WriteFile(std::string(kSystemServices) + "/c.sc", Section("c", "1:2/tcp"));
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TAVO_FW_SERVICE *list = nullptr;
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int count = fail.During([&] { return TAVOFwServiceEnum(&list); });
        const Services services(list);
        EXPECT_EQ(count, static_cast<int>(Names(list).size()));
        EXPECT_TRUE(fail.Hit() || count == 15);
        // A missing service must have a log line, or the error code of a folder that could not be
        // listed.
        EXPECT_TRUE(count == 15 || !Messages().empty() || TLIBCErrGet() == 0x2A00U);
        for (; list != nullptr; list = list->pNext) {
            EXPECT_GT(TLIBCSzListCount(list->pDstPortList), 0) << list->szName;
        }
    });
    EXPECT_GT(allocations, 50);
}

// Opening the settings for each file or section would make long lists slow.
TEST_F(ServiceEnum, OpensTheFactorySettingsOnceForAllFiles) {
    const auto opened = [this] {
        return CountOpens(kFactorySettings, [this] { EXPECT_GT(Enumerate(), 0); });
    };
    const int without_files = opened();
    EXPECT_GT(without_files, 0);
    for (int i = 0; i < 50; ++i) {
        const std::string name = "s" + std::to_string(i);
        Install(name + ".sc", "[global]\nsupport_key=supportups\n" + Section(name, "80"));
    }
    EXPECT_EQ(opened(), without_files);
    EXPECT_EQ(Service("s49").blSupported, 1U);
}

TEST_F(ServiceEnum, ListsAThousandFilesOfFiveSections) {
    for (int file = 0; file < 1000; ++file) {
        std::string text;
        for (int section = 0; section < 5; ++section) {
            text += Section("s" + std::to_string(file) + "-" + std::to_string(section), "80,443");
        }
        Install("f" + std::to_string(file) + ".sc", text);
    }
    EXPECT_EQ(Enumerate(), 5012);
    EXPECT_EQ(Names(services_.get()).size(), 5012U);
}

TEST(ServiceFree, AcceptsNullAndServicesWithoutPorts) {
    TAVOFwServiceFree(nullptr);
    TAVOFwServiceFree(static_cast<TAVO_FW_SERVICE *>(calloc(1, sizeof(TAVO_FW_SERVICE))));
}

TEST(ProtocolMapping, IsTheFlagWordOfOneToThree) {
    EXPECT_EQ(TAVOProtocolMapping(1), 1U);
    EXPECT_EQ(TAVOProtocolMapping(2), 2U);
    EXPECT_EQ(TAVOProtocolMapping(3), 3U);
    for (int protocol : {0, 4, 6, 17, 65537, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(TAVOProtocolMapping(protocol), 0U) << protocol;
    }
}

}  // namespace
}  // namespace tavo::test
