// The files of the template, which all other tests and `./dev try` rely on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using tavo::test::ReadFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char *kSystem = "/usr/tavo/etc/services.d";
constexpr const char *kPackages = "/usr/local/etc/services.d";

std::set<std::string> Names(const char *folder) {
    std::set<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
        names.insert(entry.path().filename());
    }
    return names;
}

std::vector<std::string> ServiceFiles() {
    std::vector<std::string> files;
    for (const char *folder : {kSystem, kPackages}) {
        for (const std::string &name : Names(folder)) {
            files.push_back(std::string(folder) + "/" + name);
        }
    }
    return files;
}

std::size_t Count(const std::string &text, const std::string &part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

TEST(ServiceFiles, AreNineOfTheSystemAndFourOfPackages) {
    EXPECT_THAT(Names(kSystem), ElementsAre("backup.sc", "directory.sc", "file-sharing.sc",
                                            "media-server.sc", "monitoring.sc", "print.sc",
                                            "time-server.sc", "vpn.sc", "web-station.sc"));
    EXPECT_THAT(Names(kPackages),
                ElementsAre("chat.sc", "download.sc", "mail.sc", "photo-frame.sc"));
}

TEST(ServiceFiles, AreReadableText) {
    for (const std::string &file : ServiceFiles()) {
        const std::string text = ReadFile(file);
        EXPECT_TRUE(text.ends_with("\n")) << file;
        EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) {
            return c == '\n' || (c >= ' ' && c <= '~');
        })) << file;
    }
}

TEST(ServiceFiles, AreWholeButForOne) {
    for (const std::string &file : ServiceFiles()) {
        const std::string text = ReadFile(file);
        const std::size_t services =
            Count(text, "\n[") + (text.starts_with('[') ? 1 : 0) - Count(text, "[global]");
        const bool broken = file.ends_with("/photo-frame.sc");
        EXPECT_EQ(Count(text, "\ntitle=\""), services) << file;
        EXPECT_EQ(Count(text, "\ndesc=\""), services) << file;
        EXPECT_EQ(Count(text, "\ndst.ports=\""), broken ? 0 : services) << file;
    }
}

TEST(ServiceFiles, OfAPackageMayBeALinkIntoItsFolder) {
    const fs::path link = std::string(kPackages) + "/mail.sc";
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::canonical(link), "/usr/local/packages/mail/mail.sc");
}

TEST(ServiceFiles, ShowEveryKindOfEntry) {
    const std::string system = kSystem;
    const std::string packages = kPackages;
    const std::vector<std::pair<std::string, const char *>> entries = {
        {system + "/web-station.sc", "dst.ports=\"80/tcp\""},
        {system + "/web-station.sc", "title_key=\"web_station:http_title\""},
        {system + "/web-station.sc", "port_forward=\"yes\""},
        {system + "/file-sharing.sc", "dst.ports=\"139,445/tcp\""},
        {system + "/file-sharing.sc", "port_forward=\"no\""},
        {system + "/media-server.sc", "version=\"2\""},
        {system + "/media-server.sc", "dst.ports=\"1900/udp\""},
        {system + "/media-server.sc", "dst.ports=\"41000:41010,41100/tcp,udp\""},
        {system + "/media-server.sc", "desc_extra=\"(local network only)\""},
        {system + "/backup.sc", "support_key=\"supportbackup\""},
        {system + "/backup.sc", "run_key=\"runbackup\""},
        {system + "/time-server.sc", "src.ports=\"123/udp\""},
        {system + "/monitoring.sc", "src.ports=\"1024:65535/tcp\""},
        {system + "/monitoring.sc", "support_key=\"supportmonitoring\""},
        {system + "/print.sc", "dst.ports=\"6566,10000:10010\""},
        {system + "/vpn.sc", "desc_key=\"network:vpn:tunnel_desc\""},
        {packages + "/mail.sc", "title_key=\"packages/mail/texts:app:smtp\""},
        {packages + "/download.sc", "dst.ports=\"16881:16890/tcp,udp\""},
        {packages + "/photo-frame.sc", "dst.port=\"7780/tcp\""}};
    for (const auto &[file, entry] : entries) {
        EXPECT_THAT(ReadFile(file), HasSubstr("\n" + std::string(entry) + "\n")) << file;
    }
    EXPECT_THAT(ReadFile(system + "/directory.sc"), Not(HasSubstr("[global]")));
    EXPECT_THAT(ReadFile(system + "/time-server.sc"), Not(HasSubstr("port_forward")));
}

TEST(Settings, HoldEveryKeyThatIsRead) {
    const std::string settings = ReadFile("/etc/tavoinfo.conf");
    for (const char *entry :
         {"ftpport=\"21\"", "ftplowport=\"50000\"", "ftphighport=\"50031\"", "WebDavPort=\"5005\"",
          "secure_WebDavPort=\"5006\"", "syslogport=\"514\"", "smsport=\"5000\"", "sftpPort=\"22\"",
          "rsync_sshd_port=\"22\"", "runbackup=\"yes\"", "runmonitoring=\"no\"",
          "runprint=\"yes\""}) {
        EXPECT_THAT(settings, HasSubstr("\n" + std::string(entry) + "\n"));
    }
}

TEST(Settings, SayWhatTheModelSupports) {
    const std::string defaults = ReadFile("/etc.defaults/tavoinfo.conf");
    for (const char *entry :
         {"supportups=\"yes\"", "supportNFS=\"yes\"", "cv_kx=\"no\"", "supportbackup=\"yes\"",
          "supportmonitoring=\"no\"", "supportprint=\"yes\""}) {
        EXPECT_THAT(defaults, HasSubstr("\n" + std::string(entry) + "\n"));
    }
}

TEST(Settings, OfTheOtherServicesAreThere) {
    EXPECT_THAT(ReadFile("/etc/nfs/tavo_nfs_conf"), HasSubstr("nfs_custom_port_enable=\"no\"\n"));
    EXPECT_THAT(ReadFile("/etc/nfs/tavo_nfs_conf"), HasSubstr("statd_port=\"662\"\n"));
    EXPECT_THAT(ReadFile("/etc/nfs/tavo_nfs_conf"), HasSubstr("nlm_port=\"4045\"\n"));
    EXPECT_THAT(ReadFile("/etc/ssh/sshd_config"), HasSubstr("Port 22\n"));
    EXPECT_THAT(ReadFile("/etc/systemd/system/directory.service"),
                HasSubstr("[X-TavoFirewall]\nSections=ldap,ldaps\n"));
}

TEST(MappingTables, OfTheSystemOverrideTheFactorys) {
    const std::string factory = ReadFile("/usr/tavo/etc.defaults/firewall_service_mapping_table");
    const std::string system = ReadFile("/usr/tavo/etc/firewall_service_mapping_table");
    EXPECT_THAT(factory, HasSubstr("web-station=\"web_http,web_https\"\n"));
    EXPECT_THAT(system, HasSubstr("web-station=\"web_http\"\n"));
    EXPECT_THAT(factory, HasSubstr("media-server=\"media_stream,media_discovery,media_cast\"\n"));
    EXPECT_THAT(system, HasSubstr("media-server=\"\"\n"));
    EXPECT_THAT(factory, Not(HasSubstr("time-server")));
    EXPECT_THAT(system, HasSubstr("time-server=\"ntp\"\n"));
}

TEST(PortForwardingRules, NameTheirServiceProtocolAndPorts) {
    const std::string rules = ReadFile("/usr/tavo/etc/portforward/rule.conf");
    EXPECT_EQ(Count(rules, "\n["), 3u);
    for (const char *key : {"\nprotocol name=\"", "\ns_port=\"", "\nr_port=\""}) {
        EXPECT_EQ(Count(rules, key), 3u) << key;
    }
    EXPECT_EQ(Count(rules, "\nservice_id=\""), 2u);
    EXPECT_THAT(rules, HasSubstr("s_port=\"27015-27030\"\n"));
}

TEST(FirewallRules, AreThere) {
    EXPECT_THAT(ReadFile("/usr/tavo/etc/firewall.d/rules.conf"), HasSubstr("[1]\n"));
}

}  // namespace
