// A host that streams made-up pictures for as long as its standard input is open:
//
//     kova_bench_host [-p port] [-n streams] [-k kbit/s] [-s]
//
// Publishes s1, s2, ...; -s adds a sound track to each, and with -n 0 nothing is made at all. Obeys
// lines as every server here does (server_lines.h). What the library prints goes to standard error.
#include "bench/descriptor_limit.h"
#include "bench/server_lines.h"
#include "bench/stream_feed.h"
#include "kova_rtsp_server.h"
#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
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

void Push(const std::vector<KovaRtspStreamer *> &streams, bool bPicture, const std::string &unit,
          uint64_t nMilliseconds)
{
    const uint32_t nPayloadId = bPicture ? KOVA_PAYLOAD_ID_VIDEO : KOVA_PAYLOAD_ID_AUDIO;
    for (KovaRtspStreamer *pStream : streams)
        KovaPush(pStream, nPayloadId, unit, static_cast<uint32_t>(nMilliseconds));
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
    FILE *pReplies = KovaOpenReplies();
    if (pReplies == nullptr)
        Fail("no standard output");
    KovaRaiseDescriptorLimit();

    KovaRtspServer *pServer = StartServer(&options);
    std::vector<KovaRtspStreamer *> streams;
    for (unsigned nStream = 1; nStream <= options.nStreams; nStream++)
        streams.push_back(Publish(pServer, "s" + std::to_string(nStream), options));
    KovaStreamFeed feed(
        [&streams](bool bPicture, const std::string &unit, uint64_t nMilliseconds) {
            Push(streams, bPicture, unit, nMilliseconds);
        },
        options.bSound);
    feed.SetRate(options.nRate);
    if (!streams.empty())
        feed.Start();
    KovaObeyLines(pReplies, options.nPort, [&feed](unsigned nRate) { feed.SetRate(nRate); });
    feed.Stop();
    KovaRtspServerUninit(pServer);
    return 0;
}
