// One servicetool changes service files at a time: the library leaves it to its callers to come one
// after the other, and between the look at the ports that are free and the change nobody may take
// them.
#ifndef TAVO_SERVICETOOL_CHANGE_LOCK_H
#define TAVO_SERVICETOOL_CHANGE_LOCK_H

#include <vector>

namespace tavo {

// Others that change service files, such as the administration pages, do not take it. A program
// that is told of a change may not make one in the meantime; the programs do not inherit the lock.
class ChangeLock {
  public:
    ChangeLock() = default;
    ~ChangeLock();
    ChangeLock(const ChangeLock &) = delete;
    ChangeLock &operator=(const ChangeLock &) = delete;

    // Waits for a change that is under way; false when that takes too long.
    bool Take();

  private:
    std::vector<int> folders_;
};

}  // namespace tavo

#endif
