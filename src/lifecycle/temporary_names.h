// The names of what a change makes and removes again in the end. Whoever is killed in between
// leaves it, and servicetool clean knows it by its name.
#ifndef TAVO_SRC_LIFECYCLE_TEMPORARY_NAMES_H
#define TAVO_SRC_LIFECYCLE_TEMPORARY_NAMES_H

namespace tavo {

// In /tmp: the content of a file before its update, and before its removal by a process.
constexpr char kTemporaryFolder[] = "/tmp";
constexpr char kUpdatedHead[] = "servicetool.update.";  // FILE.old
constexpr char kUpdatedTail[] = ".old";
constexpr char kRemovedHead[] = "servicetool.remove.";  // FILE.PID

// In a service folder: the folder of files on their way to be installed, each FILE.RANDOM.
constexpr char kInstallFolder[] = "tmp";
constexpr char kInstallTail[] = ".XXXXXX";

// In the folder of any file that is changed: where the writers of the core library stage it.
constexpr char kWriterFolder[] = ".tavo-write";

// Beside a store, after its name: its side copy, a side copy that may be the only whole one, and
// the store itself when it could not be removed before its side copy took its place.
constexpr char kSideCopyTail[] = ".tmp.";           // PID
constexpr char kUnrestoredTail[] = ".unrestored.";  // PID.NUMBER
constexpr char kReplacedTail[] = ".old.tmp.";       // PID

}  // namespace tavo

#endif
