// Reads service files and reports what was read, from which file, and what was left out.
#ifndef TAVO_SRC_MODEL_SERVICE_FILES_H
#define TAVO_SRC_MODEL_SERVICE_FILES_H

#include "model/reading.h"
#include "support/growing_array.h"
#include "support/owners.h"
#include "support/service_directory.h"
#include "tavoserviceconf.h"

namespace tavo {

// A file in a service folder.
struct ServiceFileRecord {
    const ServiceFolder *folder;
    const char *path;
    const TAVO_SERVICE_CONF *conf;  // null if the file is left out or was passed to a visitor
};

// A folder, file, section or built-in service that is left out: a built-in service if `row` is set,
// otherwise a section if `section` is set, otherwise a file if `path` is set, otherwise a folder.
// The reading of a folder is good if it contains no service files because it is not a directory.
struct LeftOut {
    const ServiceFolder *folder;
    const char *path;     // of the file; null for a folder or row
    const char *section;  // null if the whole file is left out
    const TAVO_FW_SERVICE_REG *row;
    Reading reading;
    int error = 0;  // for a folder, the errno of listing it
};

// Looks at files that need not be kept. A pointer to a function, because the library is compiled
// without the type information that the sanitizers need for virtual functions.
struct FileVisitor {
    // Called once for each file that is not left out, before the next one is read. The record of
    // the file is freed afterwards.
    void (*visit)(void *context, const ServiceFileRecord &file);
    void *context;
};

// Owns its texts. The records of the files point into the list of files that was read with it.
class ReadingReport {
  public:
    ReadingReport() = default;

    // The files are passed to the visitor, unless it is null, and are missing from the list.
    explicit ReadingReport(const FileVisitor *visitor) : visitor_(visitor) {}

    // Every file that was tried: those of the system folder, then those of the package folder,
    // sorted by name.
    const GrowingArray<ServiceFileRecord> &Files() const { return files_; }

    // In reading order. A file without any readable section comes after its sections.
    const GrowingArray<LeftOut> &Omissions() const { return omissions_; }

    // The error code of the first unknown reading, or 0x200 when memory ran out for the report
    // itself. 0 if there was none: everything that is left out is absent or invalid.
    unsigned int Fault() const { return fault_; }

    bool LeftNothingOut() const { return !left_out_; }

    // For the readers. A good reading is not noted, apart from that of a folder.
    void BeginFile(const ServiceFolder &folder, const char *path);
    void EndFile(Reading reading, TAVO_SERVICE_CONF **list);  // the file is the first of the list
    void NoteSection(Reading reading, const char *section);
    void NoteFolder(Reading reading, const ServiceFolder &folder, int error);
    void NoteRow(Reading reading, const TAVO_FW_SERVICE_REG &row);

    // Notes a failure that belongs to no file, section or service.
    void NoteFault(Reading reading);

  private:
    void Note(const LeftOut &omission);
    void NoteNoMemory();
    const char *Keep(const char *text);

    const FileVisitor *visitor_ = nullptr;
    GrowingArray<ServiceFileRecord> files_;
    GrowingArray<LeftOut> omissions_;
    KeptTexts texts_;
    const ServiceFolder *folder_ = nullptr;  // of the file being read
    const char *path_ = nullptr;
    unsigned int fault_ = 0;
    bool left_out_ = false;
};

// These do the same as the exported function named above each, with the same log lines. `report`
// may be null.

// TAVOServiceConfSectionGet. The keys are read into `keys`, which is allocated if it is null, so
// that all sections of a file can use one table.
Reading ReadServiceSection(const char *path, const char *name, OwnedTable &keys,
                           TAVO_SERVICE_CONF_SECTION **list);

// TAVOServiceConfGet. Notes sections that are left out; the caller notes the file itself.
Reading ReadServiceFile(const char *path, TAVO_SERVICE_CONF **list, ReadingReport *report);

// TAVOServiceConfEnum.
int ReadServiceFiles(TAVO_SERVICE_CONF **list, int folders, ReadingReport *report);

}  // namespace tavo

#endif
