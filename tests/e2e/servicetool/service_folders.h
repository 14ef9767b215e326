// The service folders of a private appliance, filled by the test.
#ifndef TAVO_TESTS_SERVICETOOL_SERVICE_FOLDERS_H
#define TAVO_TESTS_SERVICETOOL_SERVICE_FOLDERS_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "require_appliance.h"

namespace tavo::test {

inline const std::string kSystem = "/usr/tavo/etc/services.d/";
inline const std::string kPackage = "/usr/local/etc/services.d/";

// The folders of this test's own appliance, emptied first: what is in them is up to the test.
class ServiceFolders : public testing::Test {
  protected:
    void SetUp() override {
        RequireAppliance();
        for (const std::string &folder : {kSystem, kPackage}) {
            for (const auto &entry : std::filesystem::directory_iterator(folder)) {
                std::filesystem::remove_all(entry);
            }
        }
    }
};

// A good section, unless `name` or `ports` make it a bad one; the ports stand in its fourth line.
inline std::string Section(const std::string &name, const std::string &ports,
                           const std::string &title = "T") {
    return "[" + name + "]\ntitle=\"" + title + "\"\ndesc=\"D\"\ndst.ports=\"" + ports + "\"\n";
}

}  // namespace tavo::test

#endif
