// The locks are on the parents of the service folders: the folders themselves are locked by
// whatever writes a file in them, the library in our own process included.
#include "change_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "service_file.h"

namespace tavo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{10};
constexpr std::chrono::milliseconds kBetweenAttempts{50};

bool LockUntil(Clock::time_point end, int folder) {
    while (flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(kBetweenAttempts);
    }
    return true;
}

}  // namespace

ChangeLock::~ChangeLock() {
    for (const int folder : folders_) {
        close(folder);
    }
}

// Both folders, always in this order: a port is free in both or in none. Where one is missing, or
// closed to us, the change will come to nothing anyway or make it.
bool ChangeLock::Take() {
    const Clock::time_point end = Clock::now() + kPatience;
    for (const ServiceFolder &services : ServiceFolders(kEveryServiceFolder)) {
        const std::filesystem::path parent = std::filesystem::path(services.path).parent_path();
        const int folder = open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (folder == -1) {
            continue;
        }
        folders_.push_back(folder);
        if (!LockUntil(end, folder)) {
            return false;
        }
    }
    return true;
}

}  // namespace tavo
