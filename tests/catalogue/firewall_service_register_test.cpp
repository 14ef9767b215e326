#include <gmock/gmock.h>

#include <dlfcn.h>

#include <set>

#include "catalogue_test.h"
#include "failing_allocation.h"
#include "tavoftp.h"

namespace {

// The texts that are pushed to any list; null if not recorded.
std::vector<std::string> *g_pushed = nullptr;

}  // namespace

extern "C" __attribute__((visibility("default"))) int TLIBCSzListPush(TLIBCSzList **list,
                                                                      const char *item) {
    static const auto next =
        reinterpret_cast<decltype(&TLIBCSzListPush)>(dlsym(RTLD_NEXT, "TLIBCSzListPush"));
    if (g_pushed != nullptr) {
        g_pushed->emplace_back(item);
    }
    return next(list, item);
}

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// ---- The table ----

std::string Text(const char *text) {
    return text == nullptr ? "NULL" : text;
}

std::string Provider(TAVO_FW_PORT_PROVIDER provider) {
    return provider == nullptr          ? "NULL"
           : provider == TAVOFwPortsSSH ? "TAVOFwPortsSSH"
           : provider == TAVOFwPortsNFS ? "TAVOFwPortsNFS"
           : provider == TAVOFTPFwPorts ? "TAVOFTPFwPorts"
                                        : "another";
}

// "NAME KEY default forward DESC TITLE", then for the source ports and the destination ports:
// whether there are any, protocol, text, provider.
std::string DescribeRow(const TAVO_FW_SERVICE_REG &row) {
    const auto side = [](uint32_t has, uint32_t protocol, const char *ports,
                         TAVO_FW_PORT_PROVIDER provider) {
        return " / " + std::to_string(has) + " " + std::to_string(protocol) + " " + Text(ports) +
               " " + Provider(provider);
    };
    return Text(row.szName) + " " + Text(row.szSupportKey) + " " +
           std::to_string(row.blSupportDefault) + " " + std::to_string(row.blPortForward) + " " +
           Describe(row.strDesc) + " " + Describe(row.strTitle) +
           side(row.blHasSrcPorts, row.nSrcProtocol, row.szSrcPorts, row.pfnSrcPorts) +
           side(row.blHasDstPorts, row.nDstProtocol, row.szDstPorts, row.pfnDstPorts);
}

TEST(ServiceTable, HoldsTheTwelveServicesInTheirOrder) {
    std::vector<std::string> rows;
    for (const auto &row : rgServices) {
        rows.push_back(DescribeRow(row));
    }
    const std::string firewall = "|firewall|firewall_service_";
    EXPECT_THAT(rows,
                ElementsAre("telnet NULL 1 1 " + firewall + "desc_telnet|| " + firewall +
                                "opt_telnet||"
                                " / 0 0 NULL NULL / 1 1 23 NULL",
                            "ssh NULL 1 1 " + firewall + "desc_ssh|| " + firewall +
                                "opt_ssh||"
                                " / 0 0 NULL NULL / 1 1 NULL TAVOFwPortsSSH",
                            "ups_server supportups 1 0 " + firewall +
                                "desc_ups|| |tree|leaf_ups||"
                                " / 0 0 NULL NULL / 1 1 3493 NULL",
                            "lanprobed NULL 1 0 " + firewall + "desc_lanprobed|| " + firewall +
                                "opt_lanprobed||"
                                " / 0 0 NULL NULL / 1 2 1234,9997,9998,9999 NULL",
                            "nfs supportNFS 1 1 " + firewall +
                                "desc_nfs|| |tree|leaf_nfs||"
                                " / 0 0 NULL NULL / 1 3 NULL TAVOFwPortsNFS",
                            "afp NULL 1 1 " + firewall +
                                "desc_afp|| |network|apple_subject||"
                                " / 0 0 NULL NULL / 1 1 548 NULL",
                            "ftp NULL 1 1 " + firewall +
                                "desc_ftp|| |tree|leaf_ftp||"
                                " / 0 0 NULL NULL / 1 1 NULL TAVOFTPFwPorts",
                            "snmp NULL 1 0 " + firewall +
                                "desc_snmp|| |tree|leaf_snmp||"
                                " / 0 0 NULL NULL / 1 2 161 NULL",
                            "bonjour NULL 1 0 " + firewall + "opt_bonjour|| " + firewall +
                                "desc_bonjour||"
                                " / 0 0 NULL NULL / 1 2 5353 NULL",
                            "kx20 cv_kx 1 0 " + firewall + "opt_kx20|| " + firewall +
                                "desc_kx20||"
                                " / 0 0 NULL NULL / 1 2 19999 NULL",
                            "lpr NULL 1 0 " + firewall + "desc_lpr|| " + firewall +
                                "opt_lpr||"
                                " / 0 0 NULL NULL / 1 1 515 NULL",
                            "ipp NULL 1 0 " + firewall + "desc_ipp|| " + firewall +
                                "opt_ipp||"
                                " / 0 0 NULL NULL / 1 1 631 NULL",
                            "NULL NULL 0 0 |||| |||| / 0 0 NULL NULL / 0 0 NULL NULL"));
}

// ---- Providers ----

class Providers : public CatalogueTest {
  protected:
    // The result of the provider and the strings of the list that it stores.
    int Ask(TAVO_FW_PORT_PROVIDER provider) {
        TLIBCSzList *list = Sentinel();
        const int result = provider(&list);
        stored_ = list != Sentinel();
        ports_ = stored_ ? Strings(list) : nullptr;
        return result;
    }

    // The value that must remain in *ppPortList if a provider fails. It is never dereferenced.
    static TLIBCSzList *Sentinel() {
        static char place;
        return reinterpret_cast<TLIBCSzList *>(&place);
    }

    // The log lines of the provider when each of its allocations fails in turn. It must then fail
    // and leave *ppPortList unchanged, unless it can work without the allocation.
    static std::set<std::string> LinesWithoutMemory(TAVO_FW_PORT_PROVIDER provider,
                                                    CapturedLog &log,
                                                    const std::vector<std::string> &expected) {
        std::set<std::string> lines;
        const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
            TLIBCSzList *list = Sentinel();
            log.Clear();
            TLIBCErrSetEx(0, nullptr, 0);
            const int result = fail.During([&] { return provider(&list); });
            if (result == 0) {
                const Strings ports(list);
                EXPECT_EQ(Items(list), expected);
            } else {
                EXPECT_EQ(result, -1);
                EXPECT_EQ(list, Sentinel());
            }
            EXPECT_TRUE(fail.Hit() || result == 0);
            for (const std::string &line : log.Messages()) {
                lines.insert(line);
            }
        });
        EXPECT_GT(allocations, 5);
        return lines;
    }

    bool stored_ = false;
    Strings ports_;
};

// Long enough that reading the file needs memory.
const std::string kLongComment = "#" + std::string(100000, '.') + "\n";

class NfsPorts : public Providers {
  protected:
    int AskWith(const std::string &settings) {
        WriteFile(kNfsSettings, settings);
        return Ask(TAVOFwPortsNFS);
    }
};

TEST_F(NfsPorts, AreTheUsualOnesUnlessCustomOnesAreEnabled) {
    for (const char *settings :
         {"", "statd_port=1\nnlm_port=2\n", "nfs_custom_port_enable=\nstatd_port=1\nnlm_port=2\n",
          "nfs_custom_port_enable=no\nstatd_port=1\nnlm_port=2\n",
          "nfs_custom_port_enable=YES\nstatd_port=1\nnlm_port=2\n",
          "nfs_custom_port_enable=yes!\nstatd_port=1\nnlm_port=2\n"}) {
        EXPECT_EQ(AskWith(settings), 0) << settings;
        EXPECT_THAT(Items(ports_.get()), ElementsAre("111", "892", "2049", "662", "4045"))
            << settings;
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(NfsPorts, EndWithTheCustomOnesOfStatdAndTheLockManager) {
    EXPECT_EQ(AskWith("nlm_port=\"7002\"\nstatd_port=\"7001\"\nnfs_custom_port_enable=\"yes\"\n"),
              0);
    EXPECT_THAT(Items(ports_.get()), ElementsAre("111", "892", "2049", "7001", "7002"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(NfsPorts, TakeCustomOnesAsTheyAreWritten) {
    EXPECT_EQ(AskWith("nfs_custom_port_enable=yes\nstatd_port=seven,-1\nnlm_port=70000:1\n"), 0);
    EXPECT_THAT(Items(ports_.get()), ElementsAre("111", "892", "2049", "seven,-1", "70000:1"));
}

TEST_F(NfsPorts, CutLongValuesToFifteenBytes) {
    EXPECT_EQ(AskWith("nfs_custom_port_enable=yes\nstatd_port=12345678901234567\nnlm_port=1\n"), 0);
    EXPECT_THAT(Items(ports_.get()), ElementsAre("111", "892", "2049", "123456789012345", "1"));
    EXPECT_EQ(AskWith("nfs_custom_port_enable=yes            .\n"), 0);
    EXPECT_THAT(Items(ports_.get()), ElementsAre("111", "892", "2049", "662", "4045"));
}

TEST_F(NfsPorts, FailWithoutTheCustomPortOfStatd) {
    for (const char *settings : {"nfs_custom_port_enable=yes\nnlm_port=2\n",
                                 "nfs_custom_port_enable=yes\nstatd_port=\nnlm_port=2\n"}) {
        log_.Clear();
        EXPECT_EQ(AskWith(settings), -1) << settings;
        EXPECT_FALSE(stored_);
        EXPECT_THAT(Messages(), ElementsAre("Failed to get val of 'NFS statd port', errno=0xD00",
                                            "Failed to push statd nlockmgr ports"));
    }
    EXPECT_EQ(ErrorState(), "0xD00 firewall_service_register.cpp");
}

TEST_F(NfsPorts, FailWithoutTheCustomPortOfTheLockManager) {
    for (const char *settings : {"nfs_custom_port_enable=yes\nstatd_port=1\n",
                                 "nfs_custom_port_enable=yes\nstatd_port=1\nnlm_port=\"\"\n"}) {
        log_.Clear();
        EXPECT_EQ(AskWith(settings), -1) << settings;
        EXPECT_FALSE(stored_);
        EXPECT_THAT(Messages(), ElementsAre("Failed to get val of 'NFS nlockmgr port', errno=0xD00",
                                            "Failed to push statd nlockmgr ports"));
    }
    EXPECT_EQ(ErrorState(), "0xD00 firewall_service_register.cpp");
}

TEST_F(NfsPorts, FailWhenTheSettingsCannotBeRead) {
    std::filesystem::remove(kNfsSettings);
    EXPECT_EQ(Ask(TAVOFwPortsNFS), -1);
    EXPECT_FALSE(stored_);
    EXPECT_EQ(ErrorState(), "0x700 file_text.cpp");
    MakeUnreadable(kNfsSettings);
    EXPECT_EQ(Ask(TAVOFwPortsNFS), -1);
    EXPECT_FALSE(stored_);
    EXPECT_EQ(ErrorState(), "0x900 file_text.cpp");
    EXPECT_THAT(Messages(), ElementsAre("Failed to get val of 'NFS custom port', errno=0x700",
                                        "Failed to push statd nlockmgr ports",
                                        "Failed to get val of 'NFS custom port', errno=0x900",
                                        "Failed to push statd nlockmgr ports"));
}

TEST_F(NfsPorts, RejectNullInTheirOwnWay) {
    EXPECT_EQ(TAVOFwPortsNFS(nullptr), -22);
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters"));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
}

TEST_F(NfsPorts, ReportEveryFailedAllocation) {
    WriteFile(kNfsSettings, "nfs_custom_port_enable=no\n" + kLongComment);
    EXPECT_THAT(LinesWithoutMemory(TAVOFwPortsNFS, log_, {"111", "892", "2049", "662", "4045"}),
                UnorderedElementsAre("Failed to allocate for ports number, errno=0x200",
                                     "Failed to strdup, errno=0xC",
                                     "Failed to get val of 'NFS custom port', errno=0x200",
                                     "Failed to push statd nlockmgr ports"));
}

TEST_F(NfsPorts, ReportEveryFailedAllocationOfCustomOnes) {
    WriteFile(kNfsSettings, "nfs_custom_port_enable=yes\nstatd_port=1\nnlm_port=2\n");
    const auto lines = LinesWithoutMemory(TAVOFwPortsNFS, log_, {"111", "892", "2049", "1", "2"});
    EXPECT_TRUE(lines.contains("Failed to push statd nlockmgr ports"));
}

class SshPorts : public Providers {
  protected:
    int AskWith(const std::string &settings, const std::string &server = "Port 22\n") {
        WriteFile(kSshSettings, server);
        WriteFile(kSettings, settings);
        return Ask(TAVOFwPortsSSH);
    }
};

TEST_F(SshPorts, AreTheDistinctOnesOfTheServerSftpAndRsync) {
    const struct {
        const char *server;
        const char *settings;
        std::vector<std::string> ports;
    } cases[] = {
        {"Port 22\n", "rsync_sshd_port=873\n", {"22", "873"}},
        {"Port 22\n", "", {"22"}},
        {"Port 22\n", "sftpPort=22\nrsync_sshd_port=22\n", {"22"}},
        {"Port 22\n", "sftpPort=2222\nrsync_sshd_port=2222\n", {"22", "2222"}},
        {"Port 22\n", "sftpPort=2222\nrsync_sshd_port=22\n", {"22", "2222"}},
        {"Port 2200\n", "sftpPort=2222\nrsync_sshd_port=873\n", {"2200", "2222", "873"}},
        {"Port 2200\n", "", {"2200", "22"}},
        {"Port 2200\n", "sftpPort=2200\n", {"2200", "22"}},
        {"Port 65535\n", "sftpPort=1\nrsync_sshd_port=65535\n", {"65535", "1"}},
    };
    for (const auto &[server, settings, ports] : cases) {
        EXPECT_EQ(AskWith(settings, server), 0) << settings;
        EXPECT_EQ(Items(ports_.get()), ports) << settings;
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SshPorts, ReadValuesAsNumbersAndCountOthersAsTwentyTwo) {
    const std::pair<const char *, const char *> cases[] = {
        {"1", "1"},      {"65535", "65535"},
        {"+80", "80"},   {"0080", "80"},
        {"80abc", "80"}, {"\" 80\"", "80"},
        {"0", "22"},     {"65536", "22"},
        {"70000", "22"}, {"-5", "22"},
        {"", "22"},      {"abc", "22"},
        {"0x50", "22"},  {"999999999999999999999", "22"},
    };
    for (const auto &[value, port] : cases) {
        EXPECT_EQ(
            AskWith("sftpPort=" + std::string(value) + "\nrsync_sshd_port=2001\n", "Port 2000\n"),
            0);
        EXPECT_THAT(Items(ports_.get()), ElementsAre("2000", port, "2001")) << value;
        EXPECT_EQ(
            AskWith("sftpPort=2001\nrsync_sshd_port=" + std::string(value) + "\n", "Port 2000\n"),
            0);
        EXPECT_THAT(Items(ports_.get()), ElementsAre("2000", "2001", port)) << value;
    }
}

TEST_F(SshPorts, FailWhenTheServerCannotTellItsPort) {
    EXPECT_EQ(AskWith("", "Port none\n"), -1);
    EXPECT_FALSE(stored_);
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
    EXPECT_THAT(Messages(), ElementsAre("Failed to get ssh_port"));
}

TEST_F(SshPorts, FailWhenTheSettingsCannotBeRead) {
    std::filesystem::remove(kSettings);
    EXPECT_EQ(Ask(TAVOFwPortsSSH), -1);
    EXPECT_FALSE(stored_);
    EXPECT_EQ(ErrorState(), "0x700 file_text.cpp");
    MakeUnreadable(kSettings);
    EXPECT_EQ(Ask(TAVOFwPortsSSH), -1);
    EXPECT_FALSE(stored_);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to get sftpPort of tavoinfo.conf. [0x0700 file_text.cpp:N]",
                            "Failed to get sftpPort of tavoinfo.conf. [0x0900 file_text.cpp:N]"));
}

TEST_F(SshPorts, RejectNull) {
    EXPECT_EQ(TAVOFwPortsSSH(nullptr), -1);
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters"));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
}

TEST_F(SshPorts, ReportEveryFailedAllocation) {
    WriteFile(kSshSettings, "Port 2200\n");
    WriteFile(kSettings, "sftpPort=2222\nrsync_sshd_port=873\n" + kLongComment);
    EXPECT_THAT(LinesWithoutMemory(TAVOFwPortsSSH, log_, {"2200", "2222", "873"}),
                UnorderedElementsAre(
                    "Failed to allocate for ports number, errno=0x200",
                    "Failed to get sftpPort of tavoinfo.conf. [0x0200 file_text.cpp:N]",
                    "Failed to get rsync_sshd_port of tavoinfo.conf. [0x0200 file_text.cpp:N]"));
}

struct RangeProvider {
    TAVO_FW_PORT_PROVIDER ask;
    const char *range;
};

class RangePorts : public Providers, public testing::WithParamInterface<RangeProvider> {};

// The stored list is already released, so the range is recorded when it is pushed to the list.
TEST_P(RangePorts, StoreAListThatIsReleased) {
    std::vector<std::string> pushed;
    g_pushed = &pushed;
    TLIBCSzList *list = Sentinel();
    EXPECT_EQ(GetParam().ask(&list), 0);
    g_pushed = nullptr;
    EXPECT_TRUE(list != Sentinel() && list != nullptr);
    EXPECT_THAT(pushed, ElementsAre(GetParam().range));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_P(RangePorts, RejectNull) {
    EXPECT_EQ(GetParam().ask(nullptr), -1);
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters"));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
}

TEST_P(RangePorts, ReportEveryFailedAllocation) {
    std::set<std::string> lines;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCSzList *list = Sentinel();
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During([&] { return GetParam().ask(&list); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(list == Sentinel(), fail.Hit());
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? 0x200U : 0U);
        for (const std::string &line : Messages()) {
            lines.insert(line);
        }
    });
    EXPECT_GE(allocations, 2);
    EXPECT_THAT(lines, ElementsAre("Failed to allocate for ports number, errno=0x200"));
}

INSTANTIATE_TEST_SUITE_P(CamerasAndPrinters, RangePorts,
                         testing::Values(RangeProvider{TAVOFwPortsSurveillanceCamSearch,
                                                       "55900-55910"},
                                         RangeProvider{TAVOFwPortsMFP, "3240-3259"}));

TEST(PortRanges, AreSupported) {
    EXPECT_EQ(TAVOFwIsSupportPortRange(), 1);
}

}  // namespace
}  // namespace tavo::test
