// A copy of a service file, as it was before a change, under a name in /tmp that is known in
// advance: those who are told of the change compare it with the file.
//
// Everybody may write into /tmp. The name is therefore taken anew for each copy, so that a link
// that somebody put there leads cp nowhere, and nobody else can read or change the copy.
#ifndef TAVO_SRC_LIFECYCLE_TEMPORARY_COPY_H
#define TAVO_SRC_LIFECYCLE_TEMPORARY_COPY_H

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

    // Copies szFile to szPath, which lies in /tmp. What cp says: 0 when all went well, -1 when it
    // could not be run. Where the name cannot be taken it is not run, and has failed.
    int Make(const char *szFile, const char *szPath);

    // Empty as long as no copy was made.
    const char *Path() const { return szPath_; }

    // Leaves the copy where it is.
    void Keep() { taken_ = false; }

  private:
    char szPath_[kPathSize] = "";
    bool taken_ = false;
};

// Whether cp would come to an end with this file: it waits for whoever writes into a pipe, and
// reads on in a device.
bool IsRegularFile(const char *szFile);

}  // namespace tavo

#endif
