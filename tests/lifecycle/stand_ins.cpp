#include "stand_ins.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string_view>
#include <utility>

#include "tavopf.h"
#include "tavopluginsdk.h"
#include "tavoserviceconf.h"

namespace {

// ---- What a test asks for ----

struct Failure {
    std::string function;
    std::string about;
    int error = 0;
    bool once = false;
    int result = -1;
};
Failure g_failure;

std::string g_looked_at;
std::function<void()> g_look;

std::size_t g_longest_read = SIZE_MAX;

bool g_fast_clock = false;
time_t g_hours = 0;

struct Opening {
    std::string path;
    int flags;
};
std::vector<Opening> *g_openings = nullptr;

struct Answer {
    int result;
    int error;
};

struct Recorded {
    std::vector<std::string> run;
    std::vector<int> options;
    std::map<std::string, std::function<void()>> looks;
    std::map<std::string, Answer> answers;
};
Recorded *g_recorded = nullptr;

// ---- What its stand-ins ask ----

void LookBefore(std::string_view function) {
    if (function == g_looked_at) {
        g_look();
    }
}

bool Fails(std::string_view function, const char *about = "") {
    LookBefore(function);
    if (function != g_failure.function || (!g_failure.about.empty() && g_failure.about != about)) {
        return false;
    }
    if (g_failure.once) {
        g_failure.function.clear();
    }
    errno = g_failure.error;
    return true;
}

// "SKIP PORTS PROTOCOLS FLAGS", in memory that is there already.
const char *Question(const char *skip, const char *ports, const char *protocols, int flags) {
    static char text[4096];
    std::snprintf(text, sizeof(text), "%s %s %s %d", skip, ports, protocols, flags);
    return text;
}

// "PATH NOTIFY_FW NOTIFY_PF", in the same way; "" without a record.
const char *Told(const TAVO_SERVICE_CONF_REMOVE_NOTIFY *notify) {
    static char text[4096];
    if (notify == nullptr) {
        return "";
    }
    std::snprintf(text, sizeof(text), "%s %u %u",
                  notify->pszConfPath != nullptr ? notify->pszConfPath : "NULL", notify->blNotifyFw,
                  notify->blNotifyPf);
    return text;
}

// Room for a program, its arguments and the null behind them.
constexpr std::size_t kCallSize = 6;

// Whether the program is to be run; else `result` is what it answers. Where nobody keeps a record
// it allocates nothing.
bool IsToRun(const char *const (&call)[kCallSize], int options, int &result) {
    if (g_recorded == nullptr) {
        return true;
    }
    std::string text = call[0];
    for (const char *const *argument = call + 1; *argument != nullptr; ++argument) {
        text += std::string(" ") + *argument;
    }
    g_recorded->run.push_back(text);
    g_recorded->options.push_back(options);
    if (const auto look = g_recorded->looks.find(call[0]); look != g_recorded->looks.end()) {
        look->second();
    }
    const auto answer = g_recorded->answers.find(call[0]);
    if (answer == g_recorded->answers.end()) {
        return true;
    }
    result = answer->second.result;
    errno = answer->second.error;
    return false;
}

}  // namespace

#define STAND_IN_FRONT extern "C" __attribute__((visibility("default")))
#define NEXT(function) reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

// NOLINTBEGIN(bugprone-macro-parentheses): neither a type nor parameters can stand in them
// Defines a function that gives `failure` where it is to fail, else what the real one gives.
#define MAY_FAIL(failure, result, function, about, parameters, arguments) \
    STAND_IN_FRONT result function parameters {                           \
        static const auto next = NEXT(function);                          \
        return Fails(#function, about) ? failure : next arguments;        \
    }
// NOLINTEND(bugprone-macro-parentheses)

// clang-format off
MAY_FAIL(-1, off_t, lseek, whence == SEEK_END ? "end" : "start",
         (int fd, off_t offset, int whence) noexcept, (fd, offset, whence))
MAY_FAIL(-1, ssize_t, read, "", (int fd, void *buffer, size_t size),
         (fd, buffer, std::min(size, g_longest_read)))

MAY_FAIL(nullptr, TLIBCSzHash *, TLIBCSzHashAlloc, "", (int capacity), (capacity))
MAY_FAIL(-1, int, TLIBCSzHashSetValue, key,
         (TLIBCSzHash *table, const char *key, const char *value), (table, key, value))
MAY_FAIL(-1, int, TLIBCStrCat, text, (char **buffer, int *size, const char *text),
         (buffer, size, text))
MAY_FAIL(-1, int, TLIBCFileGetSection, section,
         (const char *path, const char *section, TLIBCSzHash **table), (path, section, table))
MAY_FAIL(-1, int, TLIBCFileSetSectionValue, key,
         (const char *path, const char *section, const char *key, const char *value),
         (path, section, key, value))

MAY_FAIL(nullptr, TLIBPluginHandle *, TLIBPluginSDKInit, action,
         (const char *group, const char *action), (group, action))
MAY_FAIL(-1, int, TLIBPluginSetArg, key,
         (TLIBPluginHandle *handle, const char *key, const char *value), (handle, key, value))
MAY_FAIL(-1, int, TLIBPluginAction, std::to_string(mode).c_str(),
         (int mode, TLIBPluginHandle *handle), (mode, handle))

MAY_FAIL(-1, int, TLIBServiceProtoIndexGet, "", (int row, int *bit), (row, bit))
MAY_FAIL(-1, int, TLIBServiceProtoStrGet, "", (int row, char *name, int size), (row, name, size))
MAY_FAIL(-1, int, TLIBIsPortConflict, Question(skip, ports, protocols, flags),
         (const char *skip, const char *ports, const char *protocols, int flags,
          TAVO_SERVICE_CONF_PORT **conflicts),
         (skip, ports, protocols, flags, conflicts))

MAY_FAIL(nullptr, const char *, TAVOPFRuleConfPathGet, "", (), ())

MAY_FAIL(-1, int, fsync, "", (int fd), (fd))
MAY_FAIL(-1, int, stat, path, (const char *path, struct stat *status) noexcept, (path, status))
MAY_FAIL(-1, int, lstat, path, (const char *path, struct stat *status) noexcept, (path, status))
MAY_FAIL(-1, int, mkdir, path, (const char *path, mode_t mode) noexcept, (path, mode))
MAY_FAIL(-1, int, rename, from, (const char *from, const char *to) noexcept, (from, to))
MAY_FAIL(-1, int, flock, "", (int fd, int operation) noexcept, (fd, operation))
MAY_FAIL(-1, int, unlink, path, (const char *path) noexcept, (path))
MAY_FAIL(-1, int, TLIBCStrTrimSpace, text, (char *text), (text))
MAY_FAIL(-1, int, TLIBCFileRemoveSection, section, (const char *path, const char *section),
         (path, section))
MAY_FAIL(-1, int, TLIBCFileEnumSection, path, (const char *path, TLIBCSzList **names),
         (path, names))
MAY_FAIL(nullptr, TLIBCSzList *, TLIBCSzListAlloc, "", (int capacity), (capacity))
MAY_FAIL(-1, int, TAVOServiceConfFileVerify, file, (const char *file, const char *directory),
         (file, directory))
MAY_FAIL(g_failure.result, int, TLIBIsConfPortConflict, file,
         (const char *file, TAVO_SERVICE_CONF_PORT **conflicts), (file, conflicts))
MAY_FAIL(-1, int, TLIBServiceConfUpdateServNotify, "", (const TAVO_SERVICE_CONF_NOTIFY *notify),
         (notify))
MAY_FAIL(-1, int, TLIBServiceConfRemoveServNotify, Told(notify),
         (const TAVO_SERVICE_CONF_REMOVE_NOTIFY *notify), (notify))
// clang-format on

STAND_IN_FRONT int clock_gettime(clockid_t clock, timespec *time) noexcept {
    static const auto next = NEXT(clock_gettime);
    const int result = next(clock, time);
    if (g_fast_clock) {
        time->tv_sec += 3600 * ++g_hours;
    }
    return result;
}

STAND_IN_FRONT int open(const char *path, int flags, ...) {
    static const auto next = NEXT(open);
    if (Fails("open", path)) {
        return -1;
    }
    if (g_openings != nullptr) {
        g_openings->push_back({path, flags});
    }
    va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    return next(path, flags, mode);
}

STAND_IN_FRONT int TLIBCExec(const char *program, const char *first, const char *second,
                             const char *third, const char *fourth) {
    static const auto next = NEXT(TLIBCExec);
    const char *const call[kCallSize] = {program, first, second, third, fourth};
    int result = 0;
    return IsToRun(call, 0, result) ? next(program, first, second, third, fourth) : result;
}

STAND_IN_FRONT int TLIBCExecl(const char *program, int options, const char *first, ...) {
    static const auto next = NEXT(TLIBCExecl);
    const char *call[kCallSize] = {program, first};
    va_list rest;
    va_start(rest, first);
    for (std::size_t i = 1; call[i] != nullptr && i + 2 < kCallSize; ++i) {
        call[i + 1] = va_arg(rest, const char *);
    }
    va_end(rest);
    int result = 0;
    return IsToRun(call, options, result)
               ? next(program, options, call[1], call[2], call[3], call[4], nullptr)
               : result;
}

namespace tavo::test {

Failing::Failing(std::string function, std::string about, int error) {
    g_failure = {std::move(function), std::move(about), error};
}

Failing::~Failing() {
    g_failure = {};
}

Failing &Failing::Once() {
    g_failure.once = true;
    return *this;
}

Failing &Failing::Giving(int result) {
    g_failure.result = result;
    return *this;
}

Before::Before(std::string function, std::function<void()> look) {
    g_looked_at = std::move(function);
    g_look = std::move(look);
}

Before::~Before() {
    g_looked_at.clear();
}

FastClock::FastClock() {
    g_fast_clock = true;
}

FastClock::~FastClock() {
    g_fast_clock = false;
}

ShortReads::ShortReads() {
    g_longest_read = 1;
}

ShortReads::~ShortReads() {
    g_longest_read = SIZE_MAX;
}

Openings::Openings() {
    g_openings = new std::vector<Opening>;
}

Openings::~Openings() {
    delete g_openings;
    g_openings = nullptr;
}

std::vector<std::string> Openings::With(int flags) const {
    std::vector<std::string> paths;
    for (const Opening &opening : *g_openings) {
        if ((opening.flags & flags) == flags) {
            paths.push_back(opening.path);
        }
    }
    return paths;
}

Programs::Programs() {
    g_recorded = new Recorded;
}

Programs::~Programs() {
    delete g_recorded;
    g_recorded = nullptr;
}

std::vector<std::string> Programs::Run() const {
    return g_recorded->run;
}

std::vector<int> Programs::Options() const {
    return g_recorded->options;
}

void Programs::Before(const std::string &program, std::function<void()> look) {
    g_recorded->looks[program] = std::move(look);
}

void Programs::Answer(const std::string &program, int result, int error) {
    g_recorded->answers[program] = {result, error};
}

}  // namespace tavo::test
