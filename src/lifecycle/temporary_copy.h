// A copy of a service file, as it was before a change, under a name in /tmp that is known in
// advance: those who are told of the change compare it with the file.
//
// Everybody may write into /tmp. The name is therefore taken anew for each copy: whatever is there
// is removed, so that a link leads cp nowhere, a pipe or a folder stops no change, and nobody else
// can read or change the copy. Only the copy of a change that is going on is left alone and waited
// for: the two service folders share one name. Such a copy is locked with flock by its owner.
#ifndef TAVO_SRC_LIFECYCLE_TEMPORARY_COPY_H
#define TAVO_SRC_LIFECYCLE_TEMPORARY_COPY_H

#include "lifecycle/step_failure.h"
#include "support/failure.h"
#include "support/service_directory.h"
#include "support/text.h"

namespace tavo {

// Removes the copy when it goes.
class TemporaryCopy {
  public:
    TemporaryCopy() = default;
    ~TemporaryCopy();
    TemporaryCopy(const TemporaryCopy &) = delete;
    TemporaryCopy &operator=(const TemporaryCopy &) = delete;

    // Copies szFile to szPath, which lies in /tmp, for the operation at `place`. What cp says: 0
    // when all went well, -1 when it could not be run. Where the name cannot be taken it is not
    // run, and has failed; that a folder has the name is logged.
    int Make(const char *szFile, const char *szPath, const Place &place, StepFailure &failure);

    // Empty as long as no copy was made.
    const char *Path() const { return szPath_; }

    // Lets the next change of that name go on. The copy stays where it is until this one goes,
    // unless the next change takes the name.
    void Unlock();

    // Leaves the copy where it is, for the caller to delete.
    void Keep();

  private:
    bool Take(const char *szPath, StepFailure &failure);

    char szPath_[kPathSize] = "";
    int descriptor_ = -1;
};

// Whether cp would come to an end with this file: it waits for whoever writes into a pipe, and
// reads on in a device.
bool IsRegularFile(const char *szFile);

}  // namespace tavo

#endif
