// The record that says what is to be changed: what may be in it, and which file it means.
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

// Whether a record may be used to write a section or its ports.
bool AllowsSet(const SetParam *pParam);

// Whether a record may be used to remove a file; it is stricter.
bool AllowsRemove(const SetParam *pParam);

// Whether a name would lead out of its folder, or is none.
bool LeadsAway(const char *szName);

// The directory that the bits of a location mean, the system's before that of packages.
const char *DirectoryByBits(uint32_t nLocation);

// Whether a service file exists: 1 or 0; -1, with the error set and logged for the operation at
// `place`, when that is unknown. A change that takes an I/O error for absence makes a second file
// or leaves out a copy.
int LookForFile(const char *path, const Place &place, StepFailure &failure);

// The names in a record, and what they stand for.
class Target {
  public:
    explicit Target(const SetParam &param)
        : file_(param.szFileName),
          section_(param.szSectionName),
          szDirectory_(DirectoryByBits(param.nLocation)) {
        PrintText(szPath_, "%s/%s", szDirectory_, file_.Get());
    }

    const char *FileName() const { return file_.Get(); }
    const char *Section() const { return section_.Get(); }
    const char *Directory() const { return szDirectory_; }
    const char *Path() const { return szPath_; }

  private:
    FieldString<sizeof(SetParam::szFileName)> file_;
    FieldString<sizeof(SetParam::szSectionName)> section_;
    const char *szDirectory_;
    char szPath_[kPathSize];
};

}  // namespace tavo

#endif
