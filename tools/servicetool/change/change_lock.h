// One servicetool changes service files at a time: between the look at the ports that are free and
// the change no other servicetool may take them.
#ifndef TAVO_SERVICETOOL_CHANGE_CHANGE_LOCK_H
#define TAVO_SERVICETOOL_CHANGE_CHANGE_LOCK_H

#include <string>

#include "base/descriptor.h"
#include "output/report.h"

namespace tavo::tool {

// Others that change service files, such as the administration pages, do not take it. A program
// that is notified of a change may not make one in the meantime; the programs do not inherit the
// lock.
class ChangeLock {
  public:
    // Waits for a change that is under way. False when that takes too long, or when there is no
    // lock to be had.
    bool Take();

    // Why there is no lock to be had; empty where another change is under way.
    const std::string &Problem() const { return problem_; }

  private:
    Descriptor file_;
    std::string problem_;
};

// Reports, about `name`, why the lock was not taken, with what that means for the change. False.
bool TellNoLock(const ChangeLock &lock, const std::string &name, const std::string &consequence,
                Report &report);

}  // namespace tavo::tool

#endif
