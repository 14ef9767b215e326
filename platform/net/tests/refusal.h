// Makes the kernel refuse chosen system calls of the calling process from now on (seccomp(2)), as a
// sandbox or a kernel without socket diagnostics does.
#ifndef TAVO_PLATFORM_NET_TESTS_REFUSAL_H
#define TAVO_PLATFORM_NET_TESTS_REFUSAL_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <system_error>

namespace tavo::test {

// Refuses the system call number `call` with errno `error` if `(argument & mask) == value` for its
// argument number `index`. Only the lower half of the argument is checked.
inline void RefuseWhere(long call, int error, unsigned int index, std::uint32_t mask,
                        std::uint32_t value) {
    constexpr std::uint32_t kLoad = BPF_LD | BPF_W | BPF_ABS;
    constexpr std::uint32_t kEqual = BPF_JMP | BPF_JEQ | BPF_K;
    constexpr std::uint32_t kReturn = BPF_RET | BPF_K;
    const auto argument =
        static_cast<std::uint32_t>(offsetof(seccomp_data, args) + std::size_t{8} * index);
    sock_filter steps[] = {
        {kLoad, 0, 0, offsetof(seccomp_data, nr)},
        {kEqual, 0, 4, static_cast<std::uint32_t>(call)},
        {kLoad, 0, 0, argument},
        {BPF_ALU | BPF_AND | BPF_K, 0, 0, mask},
        {kEqual, 0, 1, value},
        {kReturn, 0, 0, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)},
        {kReturn, 0, 0, SECCOMP_RET_ALLOW},
    };
    const sock_fprog program = {sizeof(steps) / sizeof(steps[0]), steps};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        throw std::system_error(errno, std::generic_category(), "seccomp");
    }
}

// Refuses the system call for any arguments.
inline void Refuse(long call, int error) {
    RefuseWhere(call, error, 0, 0, 0);
}

}  // namespace tavo::test

#endif
