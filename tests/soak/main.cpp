// kova_soak: a host and its players in one process, for as long as one likes.
//
//     kova_soak churn|fire [--seconds N] [--rounds N] [--rate N] [--seed N]
//
// What the library prints is thrown away; the report goes to standard error.
#include "tests/soak/modes.h"
#include "tests/soak/resources.h"
#include "tests/support/own_network.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kUsageStatus = 2;

bool ReadOptions(int nCount, char **ppArguments, KovaSoakOptions *pOptions)
{
    for (int i = 2; i + 1 < nCount; i += 2) {
        const int nValue = atoi(ppArguments[i + 1]);
        if (strcmp(ppArguments[i], "--seconds") == 0)
            pOptions->nSeconds = nValue;
        else if (strcmp(ppArguments[i], "--rounds") == 0)
            pOptions->nRounds = nValue;
        else if (strcmp(ppArguments[i], "--rate") == 0)
            pOptions->nRate = static_cast<unsigned>(nValue);
        else if (strcmp(ppArguments[i], "--seed") == 0)
            pOptions->nSeed = static_cast<unsigned>(nValue);
        else
            return false;
    }
    return nCount >= 2 && nCount % 2 == 0 && pOptions->nSeconds > 0 && pOptions->nRate > 0;
}

void SilenceLibrary()
{
    const int nNothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nNothing, STDOUT_FILENO);
    close(nNothing);
}

} // namespace

int main(int nCount, char **ppArguments)
{
    KovaSoakOptions options;
    if (!ReadOptions(nCount, ppArguments, &options)) {
        fprintf(stderr, "usage: kova_soak churn|fire [--seconds N] [--rounds N] [--rate N] "
                        "[--seed N]\n");
        return kUsageStatus;
    }
    KovaUsePlainHeap(ppArguments);
    if (!KovaUseOwnNetwork())
        fprintf(stderr, "no network of our own: other programs may take ports meanwhile\n");
    SilenceLibrary();
    if (strcmp(ppArguments[1], "churn") == 0)
        return KovaRunChurn(options);
    if (strcmp(ppArguments[1], "fire") == 0)
        return KovaRunFire(options);
    fprintf(stderr, "no mode is named '%s'\n", ppArguments[1]);
    return kUsageStatus;
}
