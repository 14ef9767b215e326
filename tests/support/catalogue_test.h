// An appliance without service files, with settings that a test can change, and firewall services
// formatted as text.
#ifndef TAVO_TESTS_CATALOGUE_CATALOGUE_TEST_H
#define TAVO_TESTS_CATALOGUE_CATALOGUE_TEST_H

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "appliance.h"
#include "library_test.h"
#include "temporary_folder.h"

namespace tavo::test {

constexpr char kSettings[] = "/etc/tavoinfo.conf";
constexpr char kFactorySettings[] = "/etc.defaults/tavoinfo.conf";
constexpr char kNfsSettings[] = "/etc/nfs/tavo_nfs_conf";
constexpr char kSshSettings[] = "/etc/ssh/sshd_config";

class CatalogueTest : public LibraryTest, protected Appliance {};

struct FreeStrings {
    void operator()(TLIBCSzList *list) const { TLIBCSzListFree(list); }
};
using Strings = std::unique_ptr<TLIBCSzList, FreeStrings>;

struct FreeServices {
    void operator()(TAVO_FW_SERVICE *list) const { TAVOFwServiceFree(list); }
};
using Services = std::unique_ptr<TAVO_FW_SERVICE, FreeServices>;

// Replaces a file with a folder, which cannot be read as a file by any user, root included.
inline void MakeUnreadable(const char *path) {
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
}

inline std::vector<std::string> Items(const TLIBCSzList *list) {
    std::vector<std::string> items;
    for (int i = 0; i < TLIBCSzListCount(list); ++i) {
        items.emplace_back(TLIBCSzListGet(list, i));
    }
    return items;
}

// "80,1000-2000"; "none" if there is no list.
inline std::string Join(const TLIBCSzList *list) {
    if (list == nullptr) {
        return "none";
    }
    std::string text;
    for (const std::string &item : Items(list)) {
        text += (text.empty() ? "" : ",") + item;
    }
    return text;
}

// The fields in their order, separated by bars: "SOURCE|SECTION|KEY|TEXT|EXTRA".
inline std::string Describe(const TAVO_SERVICE_CONF_STRING &string) {
    return std::string(string.szSource) + "|" + string.szSection + "|" + string.szKey + "|" +
           string.szText + "|" + string.szExtra;
}

// The names of a list, starting at its head.
inline std::vector<std::string> Names(const TAVO_FW_SERVICE *list) {
    std::vector<std::string> names;
    for (; list != nullptr; list = list->pNext) {
        names.emplace_back(list->szName);
    }
    return names;
}

}  // namespace tavo::test

#endif
