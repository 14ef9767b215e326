// Why a source of taken ports cannot tell. The library says no more than that it cannot; the reason
// is looked for in what it reads.
#ifndef TAVO_SERVICETOOL_PORTS_SOURCE_FAILURE_H
#define TAVO_SERVICETOOL_PORTS_SOURCE_FAILURE_H

#include <string>
#include <string_view>

#include "output/diagnostic.h"
#include "output/report.h"
#include "ports/firewall_services.h"
#include "ports/port_question.h"
#include "ports/rule_file.h"

namespace tavo::tool {

inline constexpr char kSettingsFile[] = "/etc/tavoinfo.conf";

// A setting that declares a port, and the word that leaves it out of a comparison.
struct ServiceSetting {
    std::string_view service;
    std::string_view key;
};

inline constexpr ServiceSetting kServiceSettings[] = {
    {"ftp", "ftpport"},
    {"webdav_http", "WebDavPort"},
    {"webdavs_https", "secure_WebDavPort"},
    {"syslog_server", "syslogport"},
};

// `reason` is the system's part in it, else "".
Diagnostic WhyRulesAreUnknown(const RuleFile &file, const SkippedNames &skipped,
                              const std::string &reason);
Diagnostic WhyServicesAreUnknown(const FirewallServices &services, const SkippedNames &skipped,
                                 const std::string &reason);
Diagnostic WhySettingIsUnknown(const ServiceSetting &setting, const std::string &reason);

// Whether it is unknown which port a key of the settings names, of which the library says that it
// is `port`, 0 for none. False when there is nothing to tell.
bool FindUnknownSetting(std::string_view key, std::uint32_t port, Diagnostic &finding);

// `problem` is what is known to be in the way, else "".
Diagnostic WhySocketsAreUnknown(const PortRanges &set, const std::string &problem);

// What is there, but means nothing to the library, which answers for the rest without a word. False
// when there is nothing to tell.
bool FindDisregardedRules(const RuleFile &file, Diagnostic &finding);
bool FindDisregardedSettings(Diagnostic &finding);

// Tells which service files and folders could not be read, as errors, and which services they leave
// out, as warnings: what is left out is there to be seen, and declares nothing. False when there
// was an error.
bool TellUnreadServiceFiles(const FirewallServices &services, Report &report);

}  // namespace tavo::tool

#endif
