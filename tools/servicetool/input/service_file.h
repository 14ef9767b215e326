// Service files for the commands that read them: the library's records, and the reasons for what it
// leaves out.
#ifndef TAVO_SERVICETOOL_INPUT_SERVICE_FILE_H
#define TAVO_SERVICETOOL_INPUT_SERVICE_FILE_H

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lint/lint.h"
#include "model/service_files.h"
#include "output/report.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// The service folder that contains the path; null if none does.
const ServiceFolder *ServiceFolderOf(const std::string &path);

// What the library read in service folders.
struct ServiceFiles {
    ReadingReport report;
    OwnedConf list;  // the records of the files
};

// Reads the service folders selected by the bits of `selector`.
ServiceFiles ReadServiceFolders(int selector);

// The services that the library reads in a file with that text; null if it rejects the file. Throws
// std::bad_alloc or std::runtime_error if a system error prevents reading a service.
OwnedConf ReadServices(const std::string &text);

// ---- What is left out ----

// The names of the services that are left out. The section [global] is not a service.
std::vector<std::string> NamesLeftOut(std::span<const LeftOut> omissions);

// What a reading leaves out.
struct Omissions {
    std::vector<Diagnostic> diagnostics;
    bool any_change = false;  // a file was changed between the reading and lint
};

// Explains which folders and files cannot be read, and which services are missing from the other
// files, with the reason according to lint. Built-in services are ignored. If `names` is not empty,
// services of other names are, too. Throws std::bad_alloc if the reading ran out of memory.
//
// `severity` is that of services missing from files that were read. A whole file or folder that
// cannot be read is always an error, because it may contain any service.
Omissions ExplainOmissions(const ReadingReport &read, const std::vector<std::string> &names = {},
                           Severity severity = Severity::kError);

// Reports the omissions. If any of them is an error, raises the status and returns true.
bool TellOmissions(const Omissions &omissions, Report &report, Status status = Status::kFailed);

// The result of read(), which has a report, with its omissions. Reads again if a file is changed
// in between, at most three times in all.
template <typename Read>
auto ReadAndExplain(Read read, const std::vector<std::string> &names = {}) {
    constexpr int kAttempts = 3;
    for (int attempt = 1;; ++attempt) {
        auto result = read();
        Omissions omissions = ExplainOmissions(result.report, names);
        if (!omissions.any_change || attempt == kAttempts) {
            return std::pair(std::move(result), std::move(omissions));
        }
    }
}

// Why the library leaves services out of a linted file; empty if it leaves out none. `names` and
// `severity` are those of ExplainOmissions.
std::vector<Diagnostic> WhyLeftOut(const LintedFile &file,
                                   const std::vector<std::string> &names = {},
                                   Severity severity = Severity::kError);

// ---- Records as text and JSON ----

// The records of a list of the library in file order; the library's lists are in reverse order.
template <typename Record>
std::vector<const Record *> InFileOrder(const Record *list) {
    std::vector<const Record *> records;
    for (; list != nullptr; list = list->pNext) {
        records.push_back(list);
    }
    std::reverse(records.begin(), records.end());
    return records;
}

// Calls look(file, service) for each service of the files, in file order.
template <typename Look>
void ForEachService(const ReadingReport &read, Look look) {
    for (const ServiceFileRecord &file : read.Files()) {
        const auto *services = file.conf == nullptr ? nullptr : file.conf->pSections;
        for (const TAVO_SERVICE_CONF_SECTION *service : InFileOrder(services)) {
            look(file, *service);
        }
    }
}

// A port list in the notation of the file, such as "80,6000:6010/tcp,udp"; "" for none.
std::string PortsText(const TAVO_SERVICE_CONF_PORT *list);

// The reference in the notation of the file, "SOURCE:SECTION:KEY" or "SECTION:KEY"; "" for none.
std::string ReferenceText(const TAVO_SERVICE_CONF_STRING &string);

// The JSON object of a service, the same in every command.
Json ServiceJson(const ServiceFileRecord &file, const TAVO_SERVICE_CONF_SECTION &section);

// The part of ServiceJson that does not depend on a file: ports and texts.
Json SectionJson(const TAVO_SERVICE_CONF_SECTION &section);

}  // namespace tavo::tool

#endif
