#include "bench/server_lines.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

FILE *KovaOpenReplies()
{
    FILE *pReplies = fdopen(dup(STDOUT_FILENO), "w");
    if (pReplies == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return nullptr;
    setvbuf(pReplies, nullptr, _IOLBF, 0);
    return pReplies;
}

void KovaObeyLines(FILE *pReplies, unsigned nPort, const std::function<void(unsigned)> &setRate)
{
    char szLine[64];
    fprintf(pReplies, "port %u\n", nPort);
    while (fgets(szLine, sizeof(szLine), stdin) != nullptr && strcmp(szLine, "quit\n") != 0) {
        if (strncmp(szLine, "rate ", 5) == 0)
            setRate(static_cast<unsigned>(strtoul(szLine + 5, nullptr, 10)));
        fprintf(pReplies, "ok\n");
    }
    fclose(pReplies);
}
