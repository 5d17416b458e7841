// Sends a recorded clip to whoever plays it, in one thread with nothing around the system calls:
// what a server that delivers the same packets cannot do without.
//
//     kova_bare_server way clip
//
// The ways are those of bare_ways.h, the clip is a file as in clip.h. Obeys lines as every server
// here does (server_lines.h); it sends while the rate is not 0, the clip's whatever number it is.
// The exit status is 3 when the system does not know that way.
#include "bench/bare_dialogue.h"
#include "bench/clip.h"
#include "bench/descriptor_limit.h"
#include "bench/server_lines.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr int kIdle = 50; // milliseconds
constexpr int kNotHere = 3;

std::atomic<bool> s_bStop{false};
std::atomic<bool> s_bSends{false};

[[noreturn]] void Fail(const char *szWhat, int nStatus)
{
    fprintf(stderr, "kova_bare_server: %s\n", szWhat);
    exit(nStatus);
}

/// Until that time, and at least once.
void RunUntil(KovaBareDialogue *pDialogue, Clock::time_point due)
{
    do {
        const auto left = std::chrono::ceil<Milliseconds>(due - Clock::now()).count();
        pDialogue->Run(static_cast<int>(std::clamp<int64_t>(left, 0, kIdle)));
    } while (Clock::now() < due && !s_bStop);
}

/// Access units leave one interval after the other, those that are late at once.
void Serve(KovaBareDialogue *pDialogue, KovaClip *pClip, KovaBareWay pSend)
{
    Clock::time_point due = Clock::now();
    while (!s_bStop) {
        if (!s_bSends) {
            pDialogue->Run(kIdle);
            due = Clock::now();
            continue;
        }
        RunUntil(pDialogue, due);
        pSend(pClip->Next(), pDialogue->Playing());
        due += std::chrono::microseconds(pClip->Interval());
    }
}

} // namespace

int main(int nArguments, char **pArguments)
{
    KovaClip clip;
    const KovaBareWayEntry *pWay = nArguments == 3 ? KovaFindBareWay(pArguments[1]) : nullptr;
    if (pWay == nullptr)
        Fail("usage: kova_bare_server sendto|sendmmsg|gso|send|writev clip", 2);
    if (!clip.Read(pArguments[2]))
        Fail("this is no clip", 2);
    if (strcmp(pWay->szName, "gso") == 0 && !KovaHasSegmentation())
        Fail("the system does not cut datagrams", kNotHere);
    FILE *pReplies = KovaOpenReplies();
    KovaBareDialogue dialogue(clip.Description(), pWay->bUdp);
    KovaRaiseDescriptorLimit();
    const unsigned nPort = dialogue.Listen();
    if (pReplies == nullptr || nPort == 0)
        Fail("no standard output, or no port", 1);

    std::thread sender([&] { Serve(&dialogue, &clip, pWay->pSend); });
    KovaObeyLines(pReplies, nPort, [](unsigned nRate) { s_bSends = nRate != 0; });
    s_bStop = true;
    sender.join();
    return 0;
}
