// Reading service files with a report of what was read from where, and of what was left out.
#ifndef TAVO_SRC_MODEL_SERVICE_FILES_H
#define TAVO_SRC_MODEL_SERVICE_FILES_H

#include "model/reading.h"
#include "support/growing_array.h"
#include "support/kept_texts.h"
#include "support/owners.h"
#include "support/service_directory.h"
#include "tavoserviceconf.h"

namespace tavo {

// A file of a service folder.
struct ServiceFileRecord {
    const ServiceFolder *folder;
    const char *path;
    const TAVO_SERVICE_CONF *conf;  // null when the file is left out
};

// A folder, file, section or built-in service that is left out. Exactly one of these describes it:
// the row; the section of the file; the file; the folder.
struct LeftOut {
    const ServiceFolder *folder;
    const char *path;     // of the file, null where a folder or row is left out
    const char *section;  // null where the file as a whole is left out
    const TAVO_FW_SERVICE_REG *row;
    Reading reading;
};

// Owns its texts. The records of the files point into the list that was read with it.
class ReadingReport {
  public:
    // Every file that was tried: the system folder's, then the package folder's, by name.
    const GrowingArray<ServiceFileRecord> &Files() const { return files_; }

    // In the order of reading. A file of which no section could be read comes after its sections.
    const GrowingArray<LeftOut> &Omissions() const { return omissions_; }

    // The error code of the first reading that is unknown, 0x200 also when memory runs out for the
    // report itself. 0 when there was none: whatever is left out is absent or not valid.
    unsigned int Fault() const { return fault_; }

    bool LeftNothingOut() const { return !left_out_; }

    // For those who read: notes nothing where the reading is good.
    void BeginFile(const ServiceFolder &folder, const char *path);
    void EndFile(Reading reading, const TAVO_SERVICE_CONF *conf);
    void ResumeFile(const ServiceFileRecord &file);
    void NoteSection(Reading reading, const char *section);
    void NoteFolder(Reading reading, const ServiceFolder &folder);
    void NoteRow(Reading reading, const TAVO_FW_SERVICE_REG &row);

    // Notes a failure that cannot be attributed.
    void NoteFault(Reading reading);

  private:
    void Note(const LeftOut &omission);
    const char *Keep(const char *text);

    GrowingArray<ServiceFileRecord> files_;
    GrowingArray<LeftOut> omissions_;
    KeptTexts texts_;
    const ServiceFolder *folder_ = nullptr;  // of the file that is being read
    const char *path_ = nullptr;
    unsigned int fault_ = 0;
    bool left_out_ = false;
};

// These do what the exported function of the same name does, with the same log lines. Without a
// report nothing is noted.

// TAVOServiceConfSectionGet.
Reading ReadServiceSection(const char *path, const char *section, TAVO_SERVICE_CONF_SECTION **list);

// TAVOServiceConfGet. Sections that are left out are noted; the file itself is noted by the caller.
Reading ReadServiceFile(const char *path, TAVO_SERVICE_CONF **list, ReadingReport *report);

// TAVOServiceConfEnum.
int ReadServiceFiles(TAVO_SERVICE_CONF **list, int folders, ReadingReport *report);

}  // namespace tavo

#endif
