// Service files as the reading commands see them: what the library reads, and why it leaves
// something out.
#ifndef TAVO_SERVICETOOL_INPUT_SERVICE_FILE_H
#define TAVO_SERVICETOOL_INPUT_SERVICE_FILE_H

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "input/library_owners.h"
#include "lint/lint.h"
#include "model/service_files.h"
#include "output/report.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// The service folders of the appliance that the bits of `selector` name, system first.
std::vector<ServiceFolder> ServiceFolders(int selector);

// What service folder a path lies in: "system", "package" or "" for neither.
std::string_view LocationOf(const std::string &path);

// The path without symbolic links; "" when there is none, as for standard input.
std::string RealPathOf(const std::string &path);

struct ServiceFile {
    std::string path;
    std::string_view location = {};  // as LocationOf
    std::string problem = {};        // why nothing could be read; else empty
    OwnedConf conf = {};             // NULL when the library refuses the file
    LintResult lint = {};
};

// Reads one file, "-" for standard input.
ServiceFile ReadServiceFile(const std::string &path);

struct FolderContents {
    bool complete = true;            // the folder could be listed
    std::vector<ServiceFile> files;  // names ascending
};

// Reads the files of a folder, and reports one that cannot be listed. Only files of which something
// is left out are linted.
FolderContents ReadServiceFolder(const ServiceFolder &folder, Report &report);

// Reports a service folder that cannot be listed; false when there was nothing to report. One that
// is absent holds no service.
bool TellUnlistedFolder(const ServiceFolder &folder, Report &report);

// The files of which the library leaves something out, linted to say why.
std::vector<ServiceFile> FilesWithOmissions(const ReadingReport &read);

// Throws std::bad_alloc when memory ran out for the reading.
void CheckMemory(const ReadingReport &read);

// Whether the library read just the services that lint takes for readable. It does unless the file
// changed between their looks at it, or the system kept the library from reading a service.
bool LibraryAndLintAgree(const TAVO_SERVICE_CONF *conf, const LintResult &lint);

// Tells what of the file could not be read: the file itself, or the services that the library
// leaves out of it. True when there was something to tell.
bool TellWhatIsMissing(const ServiceFile &file, Report &report,
                       Severity severity = Severity::kError);

// Tells why the library leaves the service out.
void TellLeftOut(const ServiceFile &file, const LintedService &service, Report &report,
                 Severity severity = Severity::kError);

// The library's lists are in reverse: what was read last is first.
template <typename Record>
std::vector<const Record *> InFileOrder(const Record *list) {
    std::vector<const Record *> records;
    for (; list != nullptr; list = list->pNext) {
        records.push_back(list);
    }
    std::reverse(records.begin(), records.end());
    return records;
}

// A port list in the notation of the file, such as "80,6000:6010/tcp,udp"; "" for none.
std::string PortsText(const TAVO_SERVICE_CONF_PORT *list);

// Whether the text has a reference into a string table beside it.
bool HasReference(const TAVO_SERVICE_CONF_STRING &string);

// The reference as a file has it, "SOURCE:SECTION:KEY" or "SECTION:KEY"; "" for none.
std::string ReferenceText(const TAVO_SERVICE_CONF_STRING &string);

// The JSON object of a service, the same in every command.
Json ServiceJson(const std::string &path, std::string_view location, const TAVO_SERVICE_CONF &conf,
                 const TAVO_SERVICE_CONF_SECTION &section);

// The part of it that does not need a file: ports and texts.
Json SectionJson(const TAVO_SERVICE_CONF_SECTION &section);

}  // namespace tavo::tool

#endif
