// A list of firewall services that does not fit to the service files. Here the test gives the list
// in the library's place.
#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>

#include "ports/firewall_services.h"
#include "service_folders.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> names;  // of the list, its head first
int result = 0;

// What is read where the library lists services of these names.
FirewallServices ReadListed(std::vector<std::string> listed) {
    names = std::move(listed);
    result = static_cast<int>(names.size());
    Report report(true);
    return ReadFirewallServices(report);
}

std::vector<std::string> Origins(const FirewallServices &read) {
    std::vector<std::string> origins;
    for (const FirewallService &service : read.services) {
        origins.push_back(service.record->szName + std::string(" ") + OriginText(service));
    }
    return origins;
}

class FirewallServicesList : public ServiceFolders {};

TEST_F(FirewallServicesList, NamesTheOriginOfEachService) {
    WriteFile(kSystem + "a.sc", Section("a", "1") + Section("b", "2"));
    const FirewallServices read = ReadListed({"a", "b", "ipp", "telnet"});
    EXPECT_THAT(Origins(read),
                ElementsAre("telnet built-in", "ipp built-in", "a system/a.sc", "b system/a.sc"));
    EXPECT_EQ(read.left_out.size(), 10U);
}

TEST_F(FirewallServicesList, ThatDoesNotFitToTheFilesIsIncomplete) {
    WriteFile(kSystem + "a.sc", Section("a", "1") + Section("b", "2"));
    for (const std::vector<std::string> &listed :
         {std::vector<std::string>{"b", "a", "ipp", "telnet"},
          {"b", "telnet"},
          {"a", "b", "c", "telnet"}}) {
        const FirewallServices read = ReadListed(listed);
        EXPECT_FALSE(read.complete);
        EXPECT_THAT(read.left_out, IsEmpty());
        ASSERT_EQ(read.services.size(), listed.size());
        for (const FirewallService &service : read.services) {
            const bool known = service.row != nullptr || service.file != nullptr;
            EXPECT_EQ(OriginText(service).empty(), !known);
        }
    }
}

TEST_F(FirewallServicesList, ThatCannotBeMadeIsIncomplete) {
    result = -1;
    names = {};
    Report report(true);
    const FirewallServices read = ReadFirewallServices(report);
    EXPECT_FALSE(read.complete);
    EXPECT_THAT(read.services, IsEmpty());
}

}  // namespace
}  // namespace tavo::test

// The linker lets the callers of the library's TAVOFwServiceEnum call this one.
extern "C" int __wrap_TAVOFwServiceEnum(TAVO_FW_SERVICE **list) {
    *list = nullptr;
    for (auto name = tavo::test::names.rbegin(); name != tavo::test::names.rend(); ++name) {
        auto *service = static_cast<TAVO_FW_SERVICE *>(std::calloc(1, sizeof(TAVO_FW_SERVICE)));
        std::memcpy(service->szName, name->c_str(), name->size());
        service->pNext = *list;
        *list = service;
    }
    return tavo::test::result;
}
