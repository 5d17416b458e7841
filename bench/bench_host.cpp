// A host that streams made-up pictures for as long as its standard input is open:
//
//     kova_bench_host [-p port] [-n streams] [-k kbit/s] [-s]
//
// Publishes s1, s2, ...; -s adds a sound track to each. Prints "port P" when players may come. Then
// it obeys lines from standard input, each answered with "ok": "rate K" (kbit/s of each stream, 0
// for next to nothing) and "quit". What the library prints goes to standard error.
#include "bench/descriptor_limit.h"
#include "bench/stream_feed.h"
#include "server/kova_rtsp_server.h"
#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kTries = 20;

struct Options {
    unsigned nPort = 0; ///< 0: a free one
    unsigned nStreams = 1;
    unsigned nRate = 0;
    bool bSound = false;
};

[[noreturn]] void Fail(const char *szWhat)
{
    fprintf(stderr, "kova_bench_host: %s\n", szWhat);
    exit(1);
}

unsigned FreePort()
{
    const int nSocket = KovaBind(SOCK_STREAM);
    if (nSocket < 0)
        Fail("no free port");
    const unsigned nPort = KovaPortOf(nSocket);
    close(nSocket);
    return nPort;
}

/// Somebody may take a free port before the server does.
KovaRtspServer *StartServer(Options *pOptions)
{
    const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    const bool bAnyPort = pOptions->nPort == 0;
    for (int nTry = 0; nTry < kTries; nTry++) {
        KovaRtspServer *pServer = nullptr;
        if (bAnyPort)
            pOptions->nPort = FreePort();
        const int32_t nResult =
            KovaRtspServerInit(&pServer, szAddress, pOptions->nPort, KOVA_MAX_CLIENTS);
        if (nResult == KOVA_OK)
            return pServer;
        if (nResult != KOVA_ERROR_BIND || !bAnyPort)
            break;
    }
    Fail("the server cannot be started: is the port taken?");
}

KovaRtspStreamer *Publish(KovaRtspServer *pServer, const std::string &uri, const Options &options)
{
    const KovaAudioDescription sound = {64, 48000, 2};
    const KovaVideoDescription picture = {options.nRate};
    uint32_t nId = 0;
    KovaRtspStreamer *pStream = KovaRtspServerAddUri(pServer, uri.c_str());
    if (pStream == nullptr)
        Fail("no memory or no thread for a stream");
    // Pictures belong into the larger ring, whose payload id is the second one.
    if (KovaRtspServerAddPayloadType(pStream, KOVA_MEDIA_AUDIO, &nId, &sound) != KOVA_OK)
        Fail("no sound track");
    if (!options.bSound)
        KovaRtspServerRemovePayloadType(pStream, nId);
    if (KovaRtspServerAddPayloadType(pStream, KOVA_MEDIA_VIDEO, &nId, &picture) != KOVA_OK)
        Fail("no picture track");
    return pStream;
}

Options ReadOptions(int nArguments, char **pArguments)
{
    Options options;
    for (int nOption; (nOption = getopt(nArguments, pArguments, "p:n:k:s")) != -1;) {
        if (nOption == 's')
            options.bSound = true;
        else if (nOption == '?')
            Fail("usage: kova_bench_host [-p port] [-n streams] [-k kbit/s] [-s]");
        else
            *(nOption == 'p'   ? &options.nPort
              : nOption == 'n' ? &options.nStreams
                               : &options.nRate) =
                static_cast<unsigned>(strtoul(optarg, nullptr, 10));
    }
    return options;
}

} // namespace

int main(int nArguments, char **pArguments)
{
    Options options = ReadOptions(nArguments, pArguments);
    FILE *pReplies = fdopen(dup(STDOUT_FILENO), "w");
    if (pReplies == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        Fail("no standard output");
    setvbuf(pReplies, nullptr, _IOLBF, 0);
    KovaRaiseDescriptorLimit();

    KovaRtspServer *pServer = StartServer(&options);
    std::vector<KovaRtspStreamer *> streams;
    for (unsigned nStream = 1; nStream <= options.nStreams; nStream++)
        streams.push_back(Publish(pServer, "s" + std::to_string(nStream), options));
    KovaStreamFeed feed(streams, options.bSound);
    feed.SetRate(options.nRate);
    feed.Start();
    fprintf(pReplies, "port %u\n", options.nPort);

    char szLine[64];
    while (fgets(szLine, sizeof(szLine), stdin) != nullptr && strcmp(szLine, "quit\n") != 0) {
        if (strncmp(szLine, "rate ", 5) == 0)
            feed.SetRate(static_cast<unsigned>(strtoul(szLine + 5, nullptr, 10)));
        fprintf(pReplies, "ok\n");
    }
    feed.Stop();
    KovaRtspServerUninit(pServer);
    fclose(pReplies);
    return 0;
}
