// Plays streams many times over, in one process, and looks whether everything arrives:
//
//     kova_load_players [option]... rtsp://A.B.C.D:port/uri...
//
//     --players N      (1) they take the streams in turn
//     --transport T    udp (default) or tcp
//     --seconds S      (5) how long to look, once all have heard each track
//     --late MS        (200) a packet is late when it comes this much after its time; the time is
//                      that of the earliest packet, by the timestamps
//     --keep-alive S   (20) seconds between two GET_PARAMETER
//     --pace N         N players join in a second; otherwise at most 16 at a time, as fast as they
//                      are served
//     --obey           take commands from standard input instead: "players N", "measure S",
//                      "settle S", "quit"; each is answered with a line of JSON
//
// Prints a line of JSON. The exit status is 1 when a player was refused, lost its connection, or
// heard nothing on a track, when a sequence number was left out, or a TEARDOWN was not answered.
#include "bench/descriptor_limit.h"
#include "bench/load_crowd.h"

#include <arpa/inet.h>
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kJoinSeconds = 60;
constexpr unsigned kHearSeconds = 10;
constexpr unsigned kLeaveSeconds = 20;

struct Options {
    size_t nPlayers = 1;
    double fSeconds = 5;
    bool bObey = false;
};

[[noreturn]] void Fail(const std::string &what)
{
    fprintf(stderr, "kova_load_players: %s\n", what.c_str());
    exit(2);
}

KovaLoadStream StreamOf(const std::string &url)
{
    char szHost[16];
    unsigned nPort = 554;
    KovaLoadStream stream;
    stream.url = url;
    stream.address.sin_family = AF_INET;
    if (sscanf(url.c_str(), "rtsp://%15[0-9.]:%u/", szHost, &nPort) < 1 ||
        inet_pton(AF_INET, szHost, &stream.address.sin_addr) != 1)
        Fail("not rtsp://A.B.C.D:port/uri: " + url);
    stream.address.sin_port = htons(static_cast<uint16_t>(nPort));
    return stream;
}

void ReadOptions(int nArguments, char **pArguments, Options *pOptions, KovaLoadWorld *pWorld)
{
    const option known[] = {{"players", required_argument, nullptr, 'p'},
                            {"transport", required_argument, nullptr, 't'},
                            {"seconds", required_argument, nullptr, 's'},
                            {"late", required_argument, nullptr, 'l'},
                            {"keep-alive", required_argument, nullptr, 'k'},
                            {"pace", required_argument, nullptr, 'r'},
                            {"obey", no_argument, nullptr, 'o'},
                            {}};
    pWorld->bUdp = true;
    for (int nOption; (nOption = getopt_long(nArguments, pArguments, "", known, nullptr)) != -1;) {
        const unsigned nNumber =
            optarg != nullptr ? static_cast<unsigned>(strtoul(optarg, nullptr, 10)) : 0;
        switch (nOption) {
        case 'p':
            pOptions->nPlayers = nNumber;
            break;
        case 't':
            pWorld->bUdp = strcmp(optarg, "udp") == 0;
            if (!pWorld->bUdp && strcmp(optarg, "tcp") != 0)
                Fail("the transport is udp or tcp");
            break;
        case 's':
            pOptions->fSeconds = strtod(optarg, nullptr);
            break;
        case 'l':
            pWorld->nLateLimit = nNumber;
            break;
        case 'k':
            pWorld->nKeepAlive = uint64_t{nNumber} * 1000;
            break;
        case 'r':
            pWorld->nPace = nNumber;
            break;
        case 'o':
            pOptions->bObey = true;
            break;
        default:
            Fail("see bench/load_players.cpp for the options");
        }
    }
}

void PrintState(const KovaLoadCrowd &crowd, bool bDone)
{
    printf(
        "{\"done\": %s, \"players\": %zu, \"left\": %zu, \"broken\": %zu, \"most_join_ms\": %llu, "
        "\"trouble\": \"%s\"}\n",
        bDone ? "true" : "false", crowd.Players(), crowd.Left(), crowd.Broken(),
        static_cast<unsigned long long>(crowd.MostJoin() / 1000), crowd.Trouble().c_str());
}

void PrintResult(const KovaLoadCrowd &crowd, const KovaLoadResult &result)
{
    const KovaLoadCounts &counts = result.counts;
    printf("{\"players\": %zu, \"seconds\": %.3f, \"packets\": %llu, \"bytes\": %llu, "
           "\"lost\": %llu, \"disorder\": %llu, \"late\": %llu, \"most_late_ms\": %u, "
           "\"worst_gap_ms\": %u, "
           "\"silent\": %zu, \"left\": %zu, \"broken\": %zu, \"trouble\": \"%s\", \"cpu\": %.4f}\n",
           result.nPlayers, result.fSeconds, static_cast<unsigned long long>(counts.nPackets),
           static_cast<unsigned long long>(counts.nBytes),
           static_cast<unsigned long long>(counts.nLost),
           static_cast<unsigned long long>(counts.nDisorder),
           static_cast<unsigned long long>(counts.nLate), counts.nMostLate, result.nWorstGap,
           result.nSilent, crowd.Left(), crowd.Broken(), crowd.Trouble().c_str(), result.fCpu);
}

/// A line from standard input, "quit" at its end. Byte by byte, so that nothing is read that
/// nobody waits for any more.
std::string NextCommand(KovaLoadCrowd *pCrowd)
{
    std::string line;
    char cByte = 0;
    for (;;) {
        pCrowd->WaitFor(STDIN_FILENO);
        if (read(STDIN_FILENO, &cByte, 1) != 1)
            return "quit";
        if (cByte == '\n')
            return line;
        line += cByte;
    }
}

int Obey(KovaLoadCrowd *pCrowd)
{
    for (;;) {
        const std::string command = NextCommand(pCrowd);
        const char *szNumber = strchr(command.c_str(), ' ');
        const double fNumber = szNumber != nullptr ? strtod(szNumber, nullptr) : 0;
        const unsigned nNumber = static_cast<unsigned>(fNumber);
        if (command.rfind("players ", 0) == 0)
            PrintState(*pCrowd, pCrowd->SetPlayers(nNumber, kJoinSeconds));
        else if (command.rfind("measure ", 0) == 0)
            PrintResult(*pCrowd, pCrowd->Measure(fNumber));
        else if (command.rfind("settle ", 0) == 0)
            PrintState(*pCrowd, pCrowd->Settle(nNumber));
        else
            break;
    }
    const bool bDone = pCrowd->SetPlayers(0, kLeaveSeconds);
    PrintState(*pCrowd, bDone);
    return bDone ? 0 : 1;
}

int PlayOnce(KovaLoadCrowd *pCrowd, const Options &options)
{
    const bool bJoined = pCrowd->SetPlayers(options.nPlayers, kJoinSeconds);
    if (!bJoined)
        fprintf(stderr, "kova_load_players: joining took more than %u s\n", kJoinSeconds);
    pCrowd->WaitHeard(kHearSeconds);
    const KovaLoadResult result = pCrowd->Measure(options.fSeconds);
    const bool bLeft = bJoined && pCrowd->SetPlayers(0, kLeaveSeconds);
    PrintResult(*pCrowd, result);
    const bool bGood = bLeft && pCrowd->Left() == options.nPlayers && pCrowd->Broken() == 0 &&
                       result.nPlayers == options.nPlayers && result.nSilent == 0 &&
                       result.counts.nLost == 0;
    return bGood ? 0 : 1;
}

} // namespace

int main(int nArguments, char **pArguments)
{
    Options options;
    KovaLoadWorld world;
    ReadOptions(nArguments, pArguments, &options, &world);
    std::vector<KovaLoadStream> streams;
    for (int nArgument = optind; nArgument < nArguments; nArgument++)
        streams.push_back(StreamOf(pArguments[nArgument]));
    if (streams.empty())
        Fail("which stream?");
    setvbuf(stdout, nullptr, _IOLBF, 0);
    KovaRaiseDescriptorLimit();
    KovaLoadCrowd crowd(&world, streams);
    return options.bObey ? Obey(&crowd) : PlayOnce(&crowd, options);
}
