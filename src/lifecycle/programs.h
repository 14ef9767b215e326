// The programs that a change of service files runs.
#ifndef TAVO_SRC_LIFECYCLE_PROGRAMS_H
#define TAVO_SRC_LIFECYCLE_PROGRAMS_H

namespace tavo {

constexpr char kCopyProgram[] = "/bin/cp";
constexpr char kMoveProgram[] = "/bin/mv";
constexpr char kRemoveProgram[] = "/bin/rm";
constexpr char kMakeDirectoryProgram[] = "/bin/mkdir";

constexpr char kRouterTool[] = "/usr/tavo/sbin/tavoroutertool";
constexpr char kFirewallTool[] = "/usr/tavo/bin/tavofirewall";

}  // namespace tavo

#endif
