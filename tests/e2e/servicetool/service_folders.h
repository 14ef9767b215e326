// The service folders of a private appliance, filled by the test.
#ifndef TAVO_TESTS_SERVICETOOL_SERVICE_FOLDERS_H
#define TAVO_TESTS_SERVICETOOL_SERVICE_FOLDERS_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "appliance.h"

namespace tavo::test {

inline const std::string kSystem = "/usr/tavo/etc/services.d/";
inline const std::string kPackage = "/usr/local/etc/services.d/";

// A private appliance for each test.
class ServiceFolders : public testing::Test, protected Appliance {};

// A valid section, unless `name` or `ports` is invalid; the ports are in its fourth line.
inline std::string Section(const std::string &name, const std::string &ports,
                           const std::string &title = "T") {
    return "[" + name + "]\ntitle=\"" + title + "\"\ndesc=\"D\"\ndst.ports=\"" + ports + "\"\n";
}

}  // namespace tavo::test

#endif
