// Service files for the commands that read them: the library's records, and the reasons for what it
// leaves out.
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

// The service folders selected by the bits of `selector`, system first.
std::vector<ServiceFolder> ServiceFolders(int selector);

// The service folder that contains the path: "system", "package", or "" for neither.
std::string_view LocationOf(const std::string &path);

// The path without symbolic links; "" if there is none, as for standard input.
std::string RealPathOf(const std::string &path);

struct ServiceFile {
    std::string path;
    std::string_view location = {};  // as LocationOf
    std::string problem = {};        // why nothing could be read; else empty
    OwnedConf conf = {};             // null if the library rejects the file
    LintResult lint = {};
};

// Reads one file, "-" for standard input.
ServiceFile ReadServiceFile(const std::string &path);

struct FolderContents {
    bool complete = true;            // the folder could be listed
    std::vector<ServiceFile> files;  // by name
};

// Reads the files of a folder, and reports a folder that cannot be listed. Only files of which
// something is left out are linted.
FolderContents ReadServiceFolder(const ServiceFolder &folder, Report &report);

// Reports the service folders that could not be listed; returns false if there was nothing to
// report. A missing folder contains no services and is not an error.
bool TellUnlistedFolders(const ReadingReport &read, Report &report);

// The files of which the library leaves something out, with the findings of lint.
std::vector<ServiceFile> FilesWithOmissions(const ReadingReport &read);

// Throws std::bad_alloc if the reading ran out of memory.
void CheckMemory(const ReadingReport &read);

// Whether the library read exactly the services that are readable according to lint. If not, the
// file changed in between, or a system error kept the library from reading a service.
bool LibraryAndLintAgree(const TAVO_SERVICE_CONF *conf, const LintResult &lint);

// Reports what could not be read: the whole file, or services that the library leaves out. Returns
// true if anything was reported.
bool TellWhatIsMissing(const ServiceFile &file, Report &report,
                       Severity severity = Severity::kError);

// Reports why the library leaves the service out.
void TellLeftOut(const ServiceFile &file, const LintedService &service, Report &report,
                 Severity severity = Severity::kError);

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

// A port list in the notation of the file, such as "80,6000:6010/tcp,udp"; "" for none.
std::string PortsText(const TAVO_SERVICE_CONF_PORT *list);

// Whether the text also has a reference into a string table.
bool HasReference(const TAVO_SERVICE_CONF_STRING &string);

// The reference in the notation of the file, "SOURCE:SECTION:KEY" or "SECTION:KEY"; "" for none.
std::string ReferenceText(const TAVO_SERVICE_CONF_STRING &string);

// The JSON object of a service, the same in every command.
Json ServiceJson(const std::string &path, std::string_view location, const TAVO_SERVICE_CONF &conf,
                 const TAVO_SERVICE_CONF_SECTION &section);

// The part of ServiceJson that does not depend on a file: ports and texts.
Json SectionJson(const TAVO_SERVICE_CONF_SECTION &section);

}  // namespace tavo::tool

#endif
