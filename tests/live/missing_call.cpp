#include "tests/live/missing_call.h"

#include "tests/support/c_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>

namespace {

KovaMissingCall g_missing;

bool FilterCall(const KovaMissingCall &missing)
{
    const uint32_t nCall = static_cast<uint32_t>(missing.nCall);
    const uint32_t nError = static_cast<uint32_t>(missing.nError);
    const bool bAny = missing.nLevel == kAnyLevel;
    sock_filter steps[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, nCall},
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, args) + sizeof(uint64_t)},
        {static_cast<uint16_t>(BPF_JMP | (bAny ? BPF_JGE : BPF_JEQ) | BPF_K), 0, 1,
         bAny ? 0 : missing.nLevel},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | nError},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    sock_fprog program = {6, steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

bool Fails()
{
    errno = g_missing.nError;
    return true;
}

/// Whether this option is of the level whose options are missing; it fails then.
bool LevelFails(int nLevel)
{
    return (g_missing.nLevel == kAnyLevel || g_missing.nLevel == static_cast<uint32_t>(nLevel)) &&
           Fails();
}

int GetOption(int nSocket, int nLevel, int nName, void *pValue, socklen_t *pSize)
{
    return LevelFails(nLevel) ? -1 : __real_getsockopt(nSocket, nLevel, nName, pValue, pSize);
}

int SetOption(int nSocket, int nLevel, int nName, const void *pValue, socklen_t nSize)
{
    return LevelFails(nLevel) ? -1 : __real_setsockopt(nSocket, nLevel, nName, pValue, nSize);
}

/// Of those that the C library has no function for.
long SystemCall(long nNumber, long nFirst, long nSecond, long nThird, long nFourth, long nFifth,
                long nSixth)
{
    return nNumber == g_missing.nCall && Fails()
               ? -1
               : __real_syscall(nNumber, nFirst, nSecond, nThird, nFourth, nFifth, nSixth);
}

} // namespace

bool KovaTakeCallAway(const KovaMissingCall &missing)
{
    if (FilterCall(missing))
        return true;
    g_missing = missing;
    switch (missing.nCall) {
    case SYS_epoll_create1:
        KovaMakeFailable<__real_epoll_create1, Fails>();
        return true;
    case SYS_eventfd2:
        KovaMakeFailable<__real_eventfd, Fails>();
        return true;
    case SYS_sendmmsg:
        KovaMakeFailable<__real_sendmmsg, Fails>();
        return true;
    case SYS_accept4:
        KovaMakeFailable<__real_accept4, Fails>();
        return true;
    case SYS_prctl:
        KovaMakeFailable<__real_prctl, Fails>();
        return true;
    case SYS_getsockopt:
        KovaReplaceCall<__real_getsockopt>(GetOption);
        return true;
    case SYS_setsockopt:
        KovaReplaceCall<__real_setsockopt>(SetOption);
        return true;
    case SYS_getrandom:
        KovaReplaceCall<__real_syscall>(SystemCall);
        return true;
    default:
        return false;
    }
}
