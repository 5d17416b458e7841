#include "live/rtsp/login.h"
#include "tests/live/missing_call.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

/// With none, there is no device either.
bool AllowDescriptors(bool bAllowed)
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    limit.rlim_cur = bAllowed ? limit.rlim_max : 0;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

/// Leaves this process without getrandom(2) and, for now, without descriptors.
bool TakeRandomnessAway()
{
    return KovaTakeCallAway({"getrandom", SYS_getrandom, kAnyLevel, ENOSYS}) &&
           AllowDescriptors(false);
}

/// 0 when no nonces are given: by a login that was made before randomness ended, or by one
/// that was made without any, and has some now.
int ChallengeWithoutRandomness(bool bBefore)
{
    KovaLogin *pLogin = bBefore ? KovaLoginCreate("Kova") : nullptr;
    if (!TakeRandomnessAway())
        return 9;
    if (!bBefore) {
        pLogin = KovaLoginCreate("Kova");
        if (!AllowDescriptors(true))
            return 8;
    }
    if (pLogin == nullptr)
        return 2;
    KovaLoginState state = {};
    char text[1024] = "#";
    const bool bGiven = KovaLoginChallenge(pLogin, &state, false, 1, text, sizeof(text));
    KovaLoginDestroy(pLogin);
    return bGiven || text[0] != '\0' || state.szNonce[0] != '\0' ? 1 : 0;
}

int ResultOfChild(bool bBefore)
{
    const pid_t nChild = fork();
    if (nChild == 0)
        _exit(ChallengeWithoutRandomness(bBefore));
    int nStatus = -1;
    waitpid(nChild, &nStatus, 0);
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
}

TEST(LoginRandomness, NoncesThatCouldBeGuessedAreNotGiven)
{
    EXPECT_EQ(ResultOfChild(true), 0);
    EXPECT_EQ(ResultOfChild(false), 0) << "a server without users must open all the same";
}

} // namespace
