// The firewall services as read by the commands. The test can change the library's catalogue before
// servicetool receives it.
#include <gmock/gmock.h>

#include <functional>

#include "ports/firewall_services.h"
#include "service_folders.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::ElementsAre;

std::function<void(ServiceCatalogue &)> change;

class FirewallServicesList : public ServiceFolders {
  protected:
    ~FirewallServicesList() override { change = nullptr; }

    static FirewallServices Read() {
        Report report(true);
        return ReadFirewallServices(report);
    }
};

TEST_F(FirewallServicesList, NamesTheOriginOfEachService) {
    WriteFile(kSystem + "a.sc", Section("a", "1") + Section("b", "2"));
    WriteFile("/usr/local/etc/services.d/c.sc", Section("a", "3"));
    std::vector<std::string> origins;
    for (const FirewallService &service : Read().services) {
        origins.push_back(service.record->szName + std::string(" ") + OriginText(service));
    }
    ASSERT_EQ(origins.size(), 15U);
    EXPECT_EQ(origins.front(), "telnet built-in");
    origins.erase(origins.begin(), origins.begin() + 11);
    EXPECT_THAT(origins,
                ElementsAre("ipp built-in", "a system/a.sc", "b system/a.sc", "a package/c.sc"));
}

TEST_F(FirewallServicesList, LintsOnlyFilesOfWhichSomethingIsLeftOut) {
    WriteFile(kSystem + "a.sc", Section("a", "1"));
    WriteFile(kSystem + "b.sc", Section("b", "2") + "[bad]\n");
    const FirewallServices read = Read();
    EXPECT_FALSE(read.complete);
    ASSERT_EQ(read.files.size(), 1U);
    EXPECT_EQ(read.files[0].path, kSystem + "b.sc");
}

// Services that are missing for lack of memory must not be reported as absent.
TEST_F(FirewallServicesList, IsRefusedWhenMemoryRanOutForTheCatalogue) {
    change = [](ServiceCatalogue &catalogue) {
        catalogue.report.NoteFault(Reading::Unknown(TLIBC_ERR_NO_MEMORY));
    };
    EXPECT_THROW(Read(), std::bad_alloc);
}

// A file that was left out when it was read but is readable now.
TEST_F(FirewallServicesList, IsIncompleteWithoutAFileThatRecovered) {
    WriteFile(kSystem + "a.sc", Section("a", "1"));
    change = [](ServiceCatalogue &catalogue) {
        catalogue.report.ResumeFile(catalogue.report.Files()[0]);
        catalogue.report.NoteSection(Reading::Unknown(TLIBC_ERR_FILE_UNUSABLE), "a");
    };
    EXPECT_FALSE(Read().complete);
}

}  // namespace
}  // namespace tavo::test

namespace tavo {

ServiceCatalogue LinkedCatalogue() asm("__real__ZN4tavo13ReadCatalogueEv");
ServiceCatalogue StandInCatalogue() asm("__wrap__ZN4tavo13ReadCatalogueEv");

// The linker redirects calls of ReadCatalogue to this function.
ServiceCatalogue StandInCatalogue() {
    ServiceCatalogue catalogue = LinkedCatalogue();
    if (test::change) {
        test::change(catalogue);
    }
    return catalogue;
}

}  // namespace tavo
