// The parameter record of a change: its checks, and the file that it names.
#ifndef TAVO_SRC_LIFECYCLE_SET_PARAM_H
#define TAVO_SRC_LIFECYCLE_SET_PARAM_H

#include <cstdint>

#include "lifecycle/step_failure.h"
#include "support/failure.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace tavo {

using SetParam = TAVO_SERVICE_CONF_SET_PARAM;

// True if the record is valid for writing a section or its ports.
bool AllowsSet(const SetParam *param);

// True if the record is valid for removing a file or a section. This check is stricter.
bool AllowsRemove(const SetParam *param);

// True if the name is null or has a component "..", which would lead out of its folder.
bool LeadsAway(const char *name);

// The directory of a location, which is a set of flags. If both are set, the system's directory.
const char *DirectoryByBits(uint32_t location);

// Returns 1 if a service file exists and 0 if not. Returns -1 if this is unknown, with the error
// set and logged for the operation at `place`. If an I/O error were taken for absence, a change
// would create a second file or omit a copy.
int LookForFile(const char *path, const Place &place, StepFailure &failure);

// Reports that the failed step could not look at `path`, with the current errno. Returns -1.
int FailToLook(Step step, const char *path, const Place &place, StepFailure &failure);

// The names in a record, and the paths that result from them.
class Target {
  public:
    explicit Target(const SetParam &param)
        : file_(param.szFileName),
          section_(param.szSectionName),
          directory_(DirectoryByBits(param.nLocation)) {
        PrintText(path_, "%s/%s", directory_, file_.Get());
    }

    const char *FileName() const { return file_.Get(); }
    const char *Section() const { return section_.Get(); }
    const char *Directory() const { return directory_; }
    const char *Path() const { return path_; }

  private:
    FieldString<sizeof(SetParam::szFileName)> file_;
    FieldString<sizeof(SetParam::szSectionName)> section_;
    const char *directory_;
    char path_[kPathSize];
};

}  // namespace tavo

#endif
