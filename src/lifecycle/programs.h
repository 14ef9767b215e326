// The programs that a change of service files runs.
#ifndef TAVO_SRC_LIFECYCLE_PROGRAMS_H
#define TAVO_SRC_LIFECYCLE_PROGRAMS_H

#include "support/service_directory.h"
#include "support/text.h"

namespace tavo {

constexpr char kCopyProgram[] = "/bin/cp";
constexpr char kMoveProgram[] = "/bin/mv";
constexpr char kRemoveProgram[] = "/bin/rm";
constexpr char kMakeDirectoryProgram[] = "/bin/mkdir";

constexpr char kRouterTool[] = "/usr/tavo/sbin/tavoroutertool";
constexpr char kFirewallTool[] = "/usr/tavo/bin/tavofirewall";

// A path as a program argument. A path with a leading dash is prefixed with "./", so that it is not
// taken for an option.
class PathArgument {
  public:
    explicit PathArgument(const char *szPath) {
        PrintText(szPath_, "%s%s", *szPath == '-' ? "./" : "", szPath);
    }
    const char *Get() const { return szPath_; }

  private:
    char szPath_[kPathSize + sizeof("./")];
};

}  // namespace tavo

#endif
