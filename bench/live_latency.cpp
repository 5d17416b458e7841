// How long a pushed access unit takes through the live engine to a player's first byte of it:
//
//     kova_live_latency [players] [units] [bytes of a unit]
//
// A host and players over TCP in one process: a unit is pushed every 10 ms, and the first player,
// in a thread of its own, notes when its first byte comes. Prints the median and 99 % in µs.
#include "kova_live.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kInterval = std::chrono::milliseconds(10);

[[noreturn]] void Fail(const char *szWhat)
{
    fprintf(stderr, "kova_live_latency: %s\n", szWhat);
    exit(1);
}

void Check(int32_t nResult)
{
    if (nResult < 0)
        Fail(KovaLiveErrorText(nResult));
}

/// Sends a request and returns the value behind "Session: ", if one is answered.
std::string Ask(int nSocket, const std::string &request)
{
    if (send(nSocket, request.data(), request.size(), MSG_NOSIGNAL) < 0)
        Fail("the connection is gone");
    std::string answer;
    char cByte;
    while (answer.find("\r\n\r\n") == std::string::npos && recv(nSocket, &cByte, 1, 0) == 1)
        answer += cByte;
    if (answer.find(" 200 ") == std::string::npos)
        Fail(answer.c_str());
    const size_t nAt = answer.find("Session: ");
    return nAt == std::string::npos ? "" : answer.substr(nAt + 9, 16);
}

int Join(uint16_t nPort)
{
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(nPort);
    if (connect(nSocket, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
        Fail("no connection");
    const std::string url = "rtsp://127.0.0.1:" + std::to_string(nPort) + "/s";
    const std::string id =
        Ask(nSocket, "SETUP " + url +
                         "/track1 RTSP/1.0\r\nCSeq: 1\r\n"
                         "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n");
    Ask(nSocket, "PLAY " + url + " RTSP/1.0\r\nCSeq: 2\r\nSession: " + id + "\r\n\r\n");
    return nSocket;
}

/// Every unit is an IDR picture, so that everybody gets each from the first one on.
std::string MakeUnit(size_t nBytes)
{
    std::string unit("\0\0\0\1\x67\x42\xC0\x1E\xD9\0\0\0\1\x68\xCE\x3C\x80\0\0\0\1\x65\x88", 23);
    unit.resize(std::max(unit.size(), nBytes), 'x');
    return unit;
}

void Drain(int nSocket)
{
    char bytes[65536];
    while (recv(nSocket, bytes, sizeof(bytes), 0) > 0) {
    }
}

/// Notes when something comes after at least half an interval of nothing: a unit's first byte.
void Note(int nSocket, std::vector<Clock::time_point> *pArrived, std::atomic<size_t> *pCount)
{
    char bytes[65536];
    Clock::time_point last = Clock::now();
    while (recv(nSocket, bytes, sizeof(bytes), 0) > 0) {
        const Clock::time_point now = Clock::now();
        if (now - last > kInterval / 2 && *pCount < pArrived->size())
            (*pArrived)[(*pCount)++] = now;
        last = now;
    }
}

} // namespace

int main(int nArguments, char **pArguments)
{
    const size_t nPlayers = nArguments > 1 ? strtoul(pArguments[1], nullptr, 10) : 50;
    const size_t nUnits = nArguments > 2 ? strtoul(pArguments[2], nullptr, 10) : 500;
    const std::string unit = MakeUnit(nArguments > 3 ? strtoul(pArguments[3], nullptr, 10) : 20000);
    KovaLive *pLive = nullptr;
    KovaLiveStream *pStream = nullptr;
    KovaLiveTrack *pTrack = nullptr;
    KovaLiveTrackConfig config;
    uint16_t nPort = 0;
    KovaLiveTrackConfigInit(&config, sizeof(config));
    config.codec = KOVA_LIVE_H264;
    Check(KovaLiveOpen(nullptr, &pLive));
    Check(KovaLivePort(pLive, &nPort));
    Check(KovaLiveAddStream(pLive, "s", nullptr, &pStream));
    Check(KovaLiveAddTrack(pStream, &config, &pTrack));

    std::vector<Clock::time_point> arrived(nUnits);
    std::atomic<size_t> nArrived{0};
    std::vector<int> sockets;
    std::vector<std::thread> threads;
    for (size_t n = 0; n < std::max<size_t>(nPlayers, 1); n++) {
        const int nSocket = Join(nPort);
        sockets.push_back(nSocket);
        if (n == 0)
            threads.emplace_back(Note, nSocket, &arrived, &nArrived);
        else
            threads.emplace_back(Drain, nSocket);
    }
    std::vector<Clock::time_point> pushed(nUnits);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    for (size_t n = 0; n < nUnits; n++) {
        pushed[n] = Clock::now();
        Check(KovaLivePush(pTrack, unit.data(), unit.size(), static_cast<int64_t>(n) * 10000));
        std::this_thread::sleep_until(pushed[n] + kInterval);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    if (nArrived != nUnits)
        Fail("units came late or together: the machine is too busy to tell");
    std::vector<double> microseconds;
    for (size_t n = 0; n < nUnits; n++)
        microseconds.push_back(
            std::chrono::duration<double, std::micro>(arrived[n] - pushed[n]).count());
    std::sort(microseconds.begin(), microseconds.end());
    printf("players %zu, units %zu of %zu bytes: median %.0f us, 99 %% %.0f us\n", sockets.size(),
           nUnits, unit.size(), microseconds[nUnits / 2], microseconds[nUnits * 99 / 100]);
    KovaLiveClose(pLive);
    for (const int nSocket : sockets)
        shutdown(nSocket, SHUT_RDWR);
    for (std::thread &thread : threads)
        thread.join();
    for (const int nSocket : sockets)
        close(nSocket);
    return 0;
}
