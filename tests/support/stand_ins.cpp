#include "stand_ins.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string_view>
#include <utility>

#include "interpose.h"
#include "tavopf.h"
#include "tavopluginsdk.h"
#include "tavoserviceconf.h"

namespace {

// ---- The list of stand-ins ----

// A function that has a stand-in. All of them are in one linked list, which needs no memory.
struct StandIn {
    explicit StandIn(const char *function) : name(function), next(first) { first = this; }

    const char *name;
    const StandIn *next;
    static inline const StandIn *first = nullptr;
};

// Ends the program if no stand-in has the name: a failure of it would never happen.
void RequireStandIn(const std::string &function) {
    for (const StandIn *stand_in = StandIn::first; stand_in != nullptr; stand_in = stand_in->next) {
        if (stand_in->name == function) {
            return;
        }
    }
    std::fprintf(stderr, "no stand-in for %s\n", function.c_str());
    std::abort();
}

// ---- Requests of the test ----

struct Failure {
    std::string function;
    std::string about;
    int error = 0;
    int calls_left = 1;  // calls until the first one that fails
    bool once = false;
    int result = -1;
};
Failure g_failure;

// A function to call before or after each call of another one.
struct Look {
    std::string function;
    std::function<void()> look;
    bool reached = false;

    void At(std::string_view called) {
        if (called == function) {
            reached = true;
            look();
        }
    }
};
Look g_before;
Look g_after;

std::size_t g_longest_read = SIZE_MAX;
int g_short_reads = 0;

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

    // Whether the program was run; "/bin/cp" for the call "/bin/cp -f FILE COPY".
    bool HasRun(const std::string &program) const {
        return std::any_of(run.begin(), run.end(), [&](const std::string &call) {
            return call == program || call.starts_with(program + " ");
        });
    }
};
Recorded *g_recorded = nullptr;

// ---- Used by the stand-ins ----

bool Fails(std::string_view function, const char *about = "") {
    g_before.At(function);
    if (function != g_failure.function || (!g_failure.about.empty() && g_failure.about != about)) {
        return false;
    }
    --g_failure.calls_left;
    if (g_failure.once ? g_failure.calls_left != 0 : g_failure.calls_left > 0) {
        return false;
    }
    errno = g_failure.error;
    return true;
}

// The number of bytes that a read of `size` bytes reads at most.
std::size_t Readable(std::size_t size) {
    if (size <= g_longest_read) {
        return size;
    }
    ++g_short_reads;
    return g_longest_read;
}

// "SKIP PORTS PROTOCOLS FLAGS", formatted into static memory.
const char *Question(const char *skip, const char *ports, const char *protocols, int flags) {
    static char text[4096];
    std::snprintf(text, sizeof(text), "%s %s %s %d", skip, ports, protocols, flags);
    return text;
}

// "PATH NOTIFY_FW NOTIFY_PF", also in static memory; "" without a record.
const char *RecordText(const TAVO_SERVICE_CONF_REMOVE_NOTIFY *notify) {
    static char text[4096];
    if (notify == nullptr) {
        return "";
    }
    std::snprintf(text, sizeof(text), "%s %u %u",
                  notify->pszConfPath != nullptr ? notify->pszConfPath : "NULL", notify->blNotifyFw,
                  notify->blNotifyPf);
    return text;
}

// A program, its arguments and the terminating null.
constexpr std::size_t kCallSize = 6;

// Whether to run the program; if not, `result` is set to its answer. Allocates nothing unless a
// test records programs.
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

// NOLINTBEGIN(bugprone-macro-parentheses): types and parameters cannot be in parentheses
// Defines a function that returns `failure` if it must fail, and otherwise calls the real one.
#define MAY_FAIL(failure, result, function, about, parameters, arguments) \
    const StandIn g_stand_in_for_##function(#function);                   \
    TAVO_INTERPOSED result function parameters {                          \
        static const auto next = TAVO_INTERPOSED_NEXT(function);          \
        return Fails(#function, about) ? failure : next arguments;        \
    }
// NOLINTEND(bugprone-macro-parentheses)

// clang-format off
MAY_FAIL(-1, off_t, lseek, whence == SEEK_END ? "end" : "start",
         (int fd, off_t offset, int whence) noexcept, (fd, offset, whence))
MAY_FAIL(-1, ssize_t, read, "", (int fd, void *buffer, size_t size),
         (fd, buffer, Readable(size)))

MAY_FAIL(-1, ssize_t, readlinkat, name,
         (int folder, const char *name, char *target, size_t size) noexcept,
         (folder, name, target, size))

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
MAY_FAIL(-1, int, TLIBCSzListPush, item, (TLIBCSzList **list, const char *item), (list, item))
MAY_FAIL(-1, int, TAVOServiceConfFileVerify, file, (const char *file, const char *directory),
         (file, directory))
MAY_FAIL(g_failure.result, int, TLIBIsConfPortConflict, file,
         (const char *file, TAVO_SERVICE_CONF_PORT **conflicts), (file, conflicts))
MAY_FAIL(-1, int, TLIBServiceConfUpdateServNotify, "", (const TAVO_SERVICE_CONF_NOTIFY *notify),
         (notify))
MAY_FAIL(-1, int, TLIBServiceConfRemoveServNotify, RecordText(notify),
         (const TAVO_SERVICE_CONF_REMOVE_NOTIFY *notify), (notify))

MAY_FAIL(nullptr, TLIBCDList *, TAVOConfPortConflictResultListAlloc, "", (void), ())
MAY_FAIL(nullptr, PTAVO_CONF_PORT_CONFLICT_RESULT, TAVOConfPortConflictResultAlloc, "", (void), ())
MAY_FAIL(nullptr, TLIBCDList *, SysConfListFetch, "", (void), ())
MAY_FAIL(nullptr, TLIBCDList *, PkgConfListFetch, "", (void), ())
MAY_FAIL(-1, int, TAVOConfListConflictPorts, "",
         (const TLIBCDList *results, uint16_t protocol, TLIBCSzList *ports),
         (results, protocol, ports))
// clang-format on

TAVO_INTERPOSED int clock_gettime(clockid_t clock, timespec *time) noexcept {
    static const auto next = TAVO_INTERPOSED_NEXT(clock_gettime);
    const int result = next(clock, time);
    if (g_fast_clock) {
        time->tv_sec += 3600 * ++g_hours;
    }
    return result;
}

const StandIn g_stand_in_for_open("open");
TAVO_INTERPOSED int open(const char *path, int flags, ...) {
    static const auto next = TAVO_INTERPOSED_NEXT(open);
    if (Fails("open", path)) {
        return -1;
    }
    if (g_openings != nullptr) {
        g_openings->push_back({path, flags});
    }
    va_list rest;
    va_start(rest, flags);
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const auto mode = creates ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    const int opened = next(path, flags, mode);
    if (opened >= 0) {
        g_after.At("open");
    }
    return opened;
}

TAVO_INTERPOSED int TLIBCExec(const char *program, const char *first, const char *second,
                              const char *third, const char *fourth) {
    static const auto next = TAVO_INTERPOSED_NEXT(TLIBCExec);
    const char *const call[kCallSize] = {program, first, second, third, fourth};
    int result = 0;
    return IsToRun(call, 0, result) ? next(program, first, second, third, fourth) : result;
}

TAVO_INTERPOSED int TLIBCExecl(const char *program, int options, const char *first, ...) {
    static const auto next = TAVO_INTERPOSED_NEXT(TLIBCExecl);
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
    RequireStandIn(function);
    g_failure = {std::move(function), std::move(about), error};
}

Failing::Failing(std::string function, int nth) : Failing(std::move(function)) {
    g_failure.calls_left = nth;
}

Failing::~Failing() {
    EXPECT_LE(g_failure.calls_left, 0) << g_failure.function << ' ' << g_failure.about
                                       << " did not fail: it was not called, or not so often";
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
    RequireStandIn(function);
    g_before = {std::move(function), std::move(look)};
}

Before::~Before() {
    EXPECT_TRUE(g_before.reached) << g_before.function << " was not called";
    g_before = {};
}

AfterOpening::AfterOpening(std::function<void()> look) {
    g_after = {"open", std::move(look)};
}

AfterOpening::~AfterOpening() {
    EXPECT_TRUE(g_after.reached) << "nothing was opened";
    g_after = {};
}

FastClock::FastClock() {
    g_fast_clock = true;
    g_hours = 0;
}

FastClock::~FastClock() {
    EXPECT_GT(g_hours, 0) << "nobody looked at the clock";
    g_fast_clock = false;
}

ShortReads::ShortReads() {
    g_longest_read = 1;
    g_short_reads = 0;
}

ShortReads::~ShortReads() {
    EXPECT_GT(g_short_reads, 0) << "nothing was read";
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
    for (const auto &[program, look] : g_recorded->looks) {
        EXPECT_TRUE(g_recorded->HasRun(program)) << program << " was not run";
    }
    for (const auto &[program, answer] : g_recorded->answers) {
        EXPECT_TRUE(g_recorded->HasRun(program)) << program << " was not run";
    }
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
