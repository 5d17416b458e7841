// A host of the live interface that streams made-up pictures for as long as its standard input is
// open:
//
//     kova_live_host [-p port] [-n streams] [-k kbit/s] [-s] [-t threads]
//
// As kova_bench_host does through the classic one.
#include "bench/descriptor_limit.h"
#include "bench/server_lines.h"
#include "bench/stream_feed.h"
#include "kova_live.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Options {
    unsigned nPort = 0; ///< 0: a free one
    unsigned nStreams = 1;
    unsigned nRate = 0;
    unsigned nThreads = 1;
    bool bSound = false;
};

struct Stream {
    KovaLiveTrack *pPicture;
    KovaLiveTrack *pSound; ///< null: none
};

[[noreturn]] void Fail(const char *szWhat)
{
    fprintf(stderr, "kova_live_host: %s\n", szWhat);
    exit(1);
}

void Check(int32_t nResult)
{
    if (nResult < 0)
        Fail(KovaLiveErrorText(nResult));
}

KovaLiveTrack *AddTrack(KovaLiveStream *pStream, uint32_t nCodec)
{
    KovaLiveTrackConfig config;
    KovaLiveTrackConfigInit(&config, sizeof(config));
    config.codec = nCodec;
    KovaLiveTrack *pTrack = nullptr;
    Check(KovaLiveAddTrack(pStream, &config, &pTrack));
    return pTrack;
}

Stream Publish(KovaLive *pLive, const std::string &path, bool bSound)
{
    KovaLiveStream *pStream = nullptr;
    Check(KovaLiveAddStream(pLive, path.c_str(), nullptr, &pStream));
    KovaLiveTrack *pPicture = AddTrack(pStream, KOVA_LIVE_H264);
    return {pPicture, bSound ? AddTrack(pStream, KOVA_LIVE_AAC) : nullptr};
}

void Push(const std::vector<Stream> &streams, bool bPicture, const std::string &unit,
          uint64_t nMilliseconds)
{
    for (const Stream &stream : streams)
        KovaLivePush(bPicture ? stream.pPicture : stream.pSound, unit.data(), unit.size(),
                     static_cast<int64_t>(nMilliseconds * 1000));
}

Options ReadOptions(int nArguments, char **pArguments)
{
    Options options;
    for (int nOption; (nOption = getopt(nArguments, pArguments, "p:n:k:t:s")) != -1;) {
        if (nOption == 's')
            options.bSound = true;
        else if (nOption == '?')
            Fail("usage: kova_live_host [-p port] [-n streams] [-k kbit/s] [-s] [-t threads]");
        else
            *(nOption == 'p'   ? &options.nPort
              : nOption == 'n' ? &options.nStreams
              : nOption == 't' ? &options.nThreads
                               : &options.nRate) =
                static_cast<unsigned>(strtoul(optarg, nullptr, 10));
    }
    return options;
}

KovaLive *Open(const Options &options)
{
    KovaLiveConfig config;
    KovaLiveConfigInit(&config, sizeof(config));
    config.address = "127.0.0.1";
    config.port = static_cast<uint16_t>(options.nPort);
    config.threads = options.nThreads;
    config.max_connections = 8192;
    config.max_sessions = 8192;
    KovaLive *pLive = nullptr;
    Check(KovaLiveOpen(&config, &pLive));
    return pLive;
}

} // namespace

int main(int nArguments, char **pArguments)
{
    const Options options = ReadOptions(nArguments, pArguments);
    FILE *pReplies = KovaOpenReplies();
    if (pReplies == nullptr)
        Fail("no standard output");
    KovaRaiseDescriptorLimit();

    KovaLive *pLive = Open(options);
    uint16_t nPort = 0;
    Check(KovaLivePort(pLive, &nPort));
    std::vector<Stream> streams;
    for (unsigned nStream = 1; nStream <= options.nStreams; nStream++)
        streams.push_back(Publish(pLive, "s" + std::to_string(nStream), options.bSound));
    KovaStreamFeed feed(
        [&streams](bool bPicture, const std::string &unit, uint64_t nMilliseconds) {
            Push(streams, bPicture, unit, nMilliseconds);
        },
        options.bSound);
    feed.SetRate(options.nRate);
    if (!streams.empty())
        feed.Start();
    KovaObeyLines(pReplies, nPort, [&feed](unsigned nRate) { feed.SetRate(nRate); });
    feed.Stop();
    KovaLiveClose(pLive);
    return 0;
}
