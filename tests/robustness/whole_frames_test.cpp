#include "tests/robustness/player.h"
#include "tests/robustness/server_socket.h"
#include "tests/support/rtsp_text.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

namespace {

constexpr int kShortSeconds = 7;
constexpr int kMoreSeconds = 60;     // at most, until enough has happened
constexpr int kLongestSeconds = 600; // sequence numbers of 16 bits last that long
constexpr size_t kReaders = 6;
constexpr size_t kEnough = 20; // responses that came whole, of each player, and full sockets

/// Seconds of reading; KOVA_WHOLE_FRAMES_SECONDS asks for more.
int SecondsToRead()
{
    const char *szSeconds = std::getenv("KOVA_WHOLE_FRAMES_SECONDS");
    const int nSeconds = szSeconds == nullptr ? kShortSeconds : std::atoi(szSeconds);
    return nSeconds > 0 && nSeconds < kLongestSeconds ? nSeconds : kLongestSeconds;
}

/// Whether the text begins as the expected response does; '#' stands for any digit.
bool IsBeginningOf(const std::string &text, const std::string &expected)
{
    if (text.size() > expected.size())
        return false;
    for (size_t i = 0; i < text.size(); i++) {
        const bool bDigit = text[i] >= '0' && text[i] <= '9';
        if (expected[i] == '#' ? !bDigit : text[i] != expected[i])
            return false;
    }
    return true;
}

/// The description's session number changes from answer to answer.
std::string WithoutNumber(std::string response)
{
    const size_t nAt = response.find("\r\no=- ") + 6;
    for (size_t i = nAt; i < nAt + 37 && i < response.size(); i++) {
        if (response[i] != ' ')
            response[i] = '#';
    }
    return response;
}

/// Slow players with the smallest buffers that the system gives, both tracks on
/// the connection, and requests all the time.
class WholeFrames : public ::testing::Test {
protected:
    void SetUp() override
    {
        const int nSeconds = std::min(SecondsToRead() + kMoreSeconds, kLongestSeconds);
        script = std::make_unique<KovaMediaScript>(server.Stream(),
                                                   KovaScriptPlan{nSeconds, 8, 9000, 40, 250});
        ASSERT_LT(script->Video().packets.size(), 65536U);
        ASSERT_LT(script->Audio().packets.size(), 65536U);
        KovaTestServer::MakeReady(server.Stream());
        for (size_t i = 0; i < kReaders; i++)
            Join(i);
        ASSERT_FALSE(HasFailure());
        script->Start();
    }

    void Join(size_t nNumber)
    {
        // Some read a few bytes often, some many seldom; each reads a little more
        // than is sent.
        const size_t nChunk = 700U << nNumber % 3;
        const int nPause = 6500 << nNumber % 3;
        players[nNumber] =
            std::make_unique<KovaWatchingPlayer>(KovaPlayerOptions{2048, nChunk, nPause});
        KovaWatchingPlayer &player = *players[nNumber];
        ASSERT_TRUE(player.Connect(server.Port()));
        ShrinkSendBuffer(player.LocalPort());
        ASSERT_TRUE(player.Setup("live", *script, script->Audio(), 0));
        ASSERT_TRUE(player.Setup("live", *script, script->Video(), 2));
        if (nNumber == 0)
            LearnAnswers();
        ASSERT_TRUE(player.Play("live"));
    }

    /// The smallest send buffer, so that frames often fit in part only.
    void ShrinkSendBuffer(uint16_t nPeerPort)
    {
        const int nSize = 1;
        int nSocket = -1;
        ASSERT_TRUE(KovaWaitUntil(5000, [&] {
            nSocket = KovaServerSocketOf(server.Server(), nPeerPort);
            return nSocket > 0;
        }));
        ASSERT_EQ(setsockopt(nSocket, SOL_SOCKET, SO_SNDBUF, &nSize, sizeof(nSize)), 0);
    }

    /// What the requests are answered while nothing is in the way.
    void LearnAnswers()
    {
        players[0]->Ask(Request(*players[0], 0));
        for (size_t i = 0; i < answers.size(); i++)
            answers[i] = players[0]->Ask(Request(*players[0], i));
        answers[1] = WithoutNumber(answers[1]);
        ASSERT_GT(answers[1].size(), 700U);
    }

    static std::string Request(const KovaWatchingPlayer &player, size_t nKind)
    {
        constexpr std::array<const char *, 3> kMethods = {"OPTIONS", "DESCRIBE", "GET_PARAMETER"};
        return KovaRequestText(kMethods[nKind], "rtsp://127.0.0.1/live", 7,
                               nKind == 2 ? player.Session() : std::string());
    }

    /// Whether a cut response is the beginning of one of the answers.
    bool IsBeginningOfAnAnswer(const std::string &text, const KovaWatchingPlayer &player) const
    {
        const std::string id = players[0]->Session();
        std::string keepAlive = answers[2];
        keepAlive.replace(keepAlive.find(id), id.size(), player.Session());
        return IsBeginningOf(text, answers[0]) || IsBeginningOf(text, answers[1]) ||
               IsBeginningOf(text, keepAlive);
    }

    /// How often a response met a full socket, and was cut or lost.
    size_t FullSockets()
    {
        const std::string key = "RequestResponseSend, Send Error: 11(";
        const std::string text = capture.Text();
        size_t nCount = 0;
        for (size_t nAt = text.find(key); nAt != std::string::npos; nAt = text.find(key, nAt + 1))
            nCount++;
        return nCount;
    }

    /// Whether the sockets were full often enough for the test to mean something, and answers
    /// and reports came nevertheless. How soon depends on what else the machine does.
    bool HasSeenEnough()
    {
        for (const auto &pPlayer : players)
            if (pPlayer->WholeResponses() <= kEnough || pPlayer->Reports() <= 1)
                return false;
        return FullSockets() > kEnough;
    }

    KovaStdoutCapture capture;
    KovaTestServer server{{"live", 64, true}};
    std::unique_ptr<KovaMediaScript> script;
    std::array<std::unique_ptr<KovaWatchingPlayer>, kReaders> players;
    std::array<std::string, 3> answers;
};

TEST_F(WholeFrames, NoByteComesBetweenTheBytesOfAFrame)
{
    size_t nRequests = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(SecondsToRead());
    while (!script->IsOver() && (std::chrono::steady_clock::now() < end || !HasSeenEnough())) {
        for (const auto &pPlayer : players)
            pPlayer->Send(Request(*pPlayer, nRequests % 3));
        nRequests++;
        // What one read takes is one request: leave time for it.
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    script->Stop();
    for (const auto &pPlayer : players) {
        for (const KovaScriptTrack *pTrack : {&script->Audio(), &script->Video()})
            EXPECT_TRUE(KovaWaitUntil(100000,
                                      [&] {
                                          return pPlayer->HasEnded() ||
                                                 pPlayer->NextSequence(*pTrack) ==
                                                     static_cast<int>(script->Pushed(*pTrack));
                                      }))
                << pPlayer->NextSequence(*pTrack) << " of " << script->Pushed(*pTrack);
        EXPECT_EQ(pPlayer->Received(script->Audio()), script->Pushed(script->Audio()));
        EXPECT_EQ(pPlayer->Received(script->Video()), script->Pushed(script->Video()));
        EXPECT_EQ(pPlayer->Fault(), "");
        EXPECT_GT(pPlayer->Reports(), 1U);
        EXPECT_GT(pPlayer->WholeResponses(), kEnough);
        for (const std::string &text : pPlayer->CutResponses())
            EXPECT_TRUE(IsBeginningOfAnAnswer(text, *pPlayer)) << text;
    }
    EXPECT_GT(FullSockets(), kEnough);
    RecordProperty("full", static_cast<int>(FullSockets()));
}

} // namespace
