// Runs a program and waits for it.
//
// A program may read its input late, partly or not at all. The input is therefore a memory file
// that is complete before the program starts, not a pipe: no process has to write it, and a program
// that does not read it neither blocks the caller nor causes SIGPIPE.
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

// The time that a program has to exit after SIGTERM.
constexpr seconds kGrace{2};

// For a missing interpreter of a script the kernel reports the same error as for a missing program.
unsigned int StartError(int error, const char *program) {
    const unsigned int code = tavo::FileError(error);
    return code == TLIBC_ERR_NO_FILE && TLIBCFileExist(program) ? TLIBC_ERR_FILE_UNUSABLE : code;
}

// `arguments` starts with the program and is null-terminated.
int Run(const char *const *arguments) {
    Child child;
    if (const int error = child.Start(arguments, Child::kNoInput, Child::Group::kCallers);
        error != 0) {
        return TAVO_PLATFORM_FAIL(StartError(error, arguments[0]));
    }
    const int status = child.Wait();
    return status < 0 ? TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE) : status;
}

// The same with an input and a time limit.
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

// Creates a memory file with the contents `input`, positioned at its start. Returns false with
// errno set.
bool MakeInput(std::string_view input, tavo::Descriptor &file) {
    file.Reset(memfd_create("input", MFD_CLOEXEC));
    if (file.IsOpen() && file.Get() <= STDERR_FILENO) {
        // The caller has closed that standard descriptor; the program would use the file as an
        // output.
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

// The null-terminated vector of a program and its arguments.
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
