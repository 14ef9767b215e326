// The names of the temporary files and folders of a change. A change that is killed leaves them,
// and servicetool clean finds them by these names.
#ifndef TAVO_SRC_LIFECYCLE_TEMPORARY_NAMES_H
#define TAVO_SRC_LIFECYCLE_TEMPORARY_NAMES_H

namespace tavo {

// In /tmp: the content of a file before its update, and before its removal by a process.
constexpr char kTemporaryFolder[] = "/tmp";
constexpr char kUpdatedHead[] = "servicetool.update.";  // FILE.old
constexpr char kUpdatedTail[] = ".old";
constexpr char kRemovedHead[] = "servicetool.remove.";  // FILE.PID

// In a service folder: the folder of files that are being installed, each FILE.RANDOM.
constexpr char kInstallFolder[] = "tmp";
constexpr char kInstallTail[] = ".XXXXXX";

// In the folder of a changed file: the folder in which the core library stages the new file.
constexpr char kWriterFolder[] = ".tavo-write";

// Next to a store, after its name: its side copy, a side copy that may be the only complete one,
// and the store itself if it could not be removed before its side copy took its place.
constexpr char kSideCopyTail[] = ".tmp.";           // PID
constexpr char kUnrestoredTail[] = ".unrestored.";  // PID.NUMBER
constexpr char kReplacedTail[] = ".old.tmp.";       // PID

}  // namespace tavo

#endif
