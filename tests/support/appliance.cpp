#include "appliance.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "require_appliance.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

constexpr char kSettingsFile[] = "/etc/tavoinfo.conf";
const std::string kRecords = "/run/calls/";

}  // namespace

Appliance::Appliance() : tmp_before_(Entries("/tmp")) {
    RequireAppliance();
    for (const char *folder : {kSystemServices, kPackageServices}) {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    for (const char *file : {kForwardingRules, kSettingsFile}) {
        fs::remove_all(file);
    }
    WriteFile(kSettingsFile, "");
}

std::vector<std::string> Appliance::InTmp() const {
    std::vector<std::string> names = Entries("/tmp");
    std::erase_if(names, [this](const std::string &name) {
        return std::find(tmp_before_.begin(), tmp_before_.end(), name) != tmp_before_.end();
    });
    return names;
}

std::string RecordOfCalls(const std::string &name) {
    return fs::exists(kRecords + name) ? ReadFile(kRecords + name) : "";
}

void ForgetCalls() {
    for (const std::string &name : Entries(kRecords)) {
        fs::remove(kRecords + name);
    }
}

void SetExitStatus(const std::string &name, const std::string &statuses) {
    WriteFile("/run/exit-status/" + name, statuses + "\n");
}

void ActivateRelayDaemon() {
    WriteFile("/run/active-units", "tavorelayd\n");
}

void WriteScript(const std::string &path, const std::string &lines) {
    fs::remove(path);
    WriteFile(path, "#!/bin/bash\n" + lines + "\n");
    fs::permissions(path, fs::perms::owner_all);
}

std::string SystemLogWith(const std::string &text) {
    std::string messages;
    for (int i = 0; i < 1000 && messages.find(text) == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        messages = ReadFile("/run/log/messages");
    }
    return messages;
}

}  // namespace tavo::test
