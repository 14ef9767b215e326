// A system on which an hour passes between two looks at the clock, so that waits with a limit end
// at once. To be loaded before a program.
#include <dlfcn.h>
#include <time.h>

#pragma GCC visibility push(default)
extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    static const auto next =
        reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, "clock_gettime"));
    static time_t hours = 0;
    const int result = next(clock, time);
    time->tv_sec += 3600 * ++hours;
    return result;
}
#pragma GCC visibility pop
