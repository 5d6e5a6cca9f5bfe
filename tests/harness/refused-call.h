// Makes a system call fail, as some sandboxes do.
#ifndef QUINTRAL_TESTS_HARNESS_REFUSED_CALL_H
#define QUINTRAL_TESTS_HARNESS_REFUSED_CALL_H

#include <cstddef>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

namespace quintral::tests {

struct RefusedCall {
    unsigned number; // such as SYS_close
    int error;       // errno after the call
    // Refused are calls whose argument, counted from 0, has this value in the bits of the mask.
    unsigned argument = 0;
    unsigned mask = 0;
    unsigned value = 0;
};

// The call fails from now on in this process and its descendants. Returns false if the system does
// not allow that. Async-signal-safe.
inline bool refuse_call(const RefusedCall &call)
{
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    constexpr unsigned low_half = 0;
#else
    constexpr unsigned low_half = 4;
#endif
    const auto argument = static_cast<unsigned>(offsetof(seccomp_data, args)) + 8 * call.argument;
    sock_filter instructions[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.number, 0, 4),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, argument + low_half),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, call.mask),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.value, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(call.error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof instructions / sizeof instructions[0], instructions};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

} // namespace quintral::tests

#endif
