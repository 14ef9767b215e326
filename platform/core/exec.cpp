// Running a program and waiting for it: what callers ask for, and how it fails.
//
// A program that reads what it is given may read it late, in part or never. So its input is a file
// in memory, whole before the program starts, and not a pipe: nobody has to feed it, and a program
// that leaves it alone neither blocks the caller nor sends it a signal.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "base/descriptor.h"
#include "child.h"
#include "core_support.h"

namespace {

using std::chrono::seconds;
using tavo::Child;

// How long a program that is out of time has for ending in order.
constexpr seconds kGrace{2};

// The kernel reports a missing interpreter of a script as it does a missing program.
unsigned int StartError(int error, const char *program) {
    const unsigned int code = tavo::FileError(error);
    return code == TLIBC_ERR_NO_FILE && TLIBCFileExist(program) ? TLIBC_ERR_FILE_UNUSABLE : code;
}

// `arguments` begins with the program and ends with a null.
int Run(const char *const *arguments) {
    Child child;
    if (const int error = child.Start(arguments, Child::kNoInput, Child::Group::kCallers);
        error != 0) {
        return TAVO_PLATFORM_FAIL(StartError(error, arguments[0]));
    }
    const int status = child.Wait();
    return status < 0 ? TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE) : status;
}

// The same with an input and a limit.
int RunWithin(seconds limit, const char *const *arguments, int input) {
    Child child;
    if (const int error = child.Start(arguments, input, Child::Group::kOwn); error != 0) {
        return TAVO_PLATFORM_FAIL(StartError(error, arguments[0]));
    }
    const bool in_time = child.EndsWithin(limit);
    if (!in_time) {
        child.EndGroup(kGrace);
    }
    const int status = child.Wait();
    return in_time && status >= 0 ? status : TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
}

// A file in memory that holds `input`, to be read from its start. False with an errno.
bool MakeInput(std::string_view input, tavo::Descriptor &file) {
    file.Reset(memfd_create("input", MFD_CLOEXEC));
    if (file.IsOpen() && file.Get() <= STDERR_FILENO) {
        // The caller has that descriptor closed, and the program would take the file for an output.
        file.Reset(fcntl(file.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    return file.IsOpen() && tavo::WriteAll(file.Get(), input) &&
           lseek(file.Get(), 0, SEEK_SET) == 0;
}

int CountArguments(const char *first, va_list rest) {
    va_list walk;
    va_copy(walk, rest);
    int count = 0;
    for (const char *argument = first; argument != nullptr; argument = va_arg(walk, const char *)) {
        ++count;
    }
    va_end(walk);
    return count;
}

// The vector of a program, its arguments and the null behind them.
tavo::MallocPtr<const char *> ArgumentVector(const char *program, const char *first, va_list rest) {
    const char **arguments = nullptr;
    if (!tavo::Resize(arguments, CountArguments(first, rest) + 2)) {
        return nullptr;
    }
    const char **end = arguments;
    *end++ = program;
    for (const char *argument = first; argument != nullptr; argument = va_arg(rest, const char *)) {
        *end++ = argument;
    }
    *end = nullptr;
    return tavo::MallocPtr<const char *>(arguments);
}

}  // namespace

int TLIBCExec(const char *szProgram, const char *szArg1, const char *szArg2, const char *szArg3,
              const char *szArg4) {
    if (szProgram == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const char *arguments[] = {szProgram, szArg1, szArg2, szArg3, szArg4, nullptr};
    return Run(arguments);
}

int TLIBCExecl(const char *szProgram, int /*nOptions*/, const char *szArg, ...) {
    if (szProgram == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    va_list rest;
    va_start(rest, szArg);
    const tavo::MallocPtr<const char *> arguments = ArgumentVector(szProgram, szArg, rest);
    va_end(rest);
    if (!arguments) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    return Run(arguments.get());
}

int TLIBCExecInput(const char *szProgram, const char *szArg, const void *pInput, size_t cbInput,
                   int nSeconds) {
    if (szProgram == nullptr || (pInput == nullptr && cbInput > 0) || nSeconds < 1) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::Descriptor input;
    if (!MakeInput({static_cast<const char *>(pInput), cbInput}, input)) {
        return TAVO_PLATFORM_FAIL(tavo::FileError(errno));
    }
    const char *arguments[] = {szProgram, szArg, nullptr};
    return RunWithin(seconds(nSeconds), arguments, input.Get());
}
