#include "tests/fault/fault_visit.h"

#include "kova_rtsp_server.h"
#include "tests/support/rtsp_client.h"
#include "tests/support/test_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace {

constexpr size_t kRtpHeader = 12;
constexpr int kPatience = 10000;  // ms, for what must come
constexpr int kLostPatience = 80; // for what may be lost; the system may keep a frame for 40
constexpr int kStep = 10;

constexpr int kAudioTrack = 96;
constexpr int kVideoTrack = 97;
constexpr int kAudioChannel = 0;
constexpr int kVideoChannel = 2;

/// One unit in each of the shapes: parameter sets with a fragmented picture, and
/// two units in one packet.
std::string VideoUnit(int nUnit)
{
    if (nUnit % 2 == 0)
        return KovaTestKeyFrame(3000 + static_cast<size_t>(nUnit));
    return KovaTestInterFrame(200) +
           KovaAnnexB({"\x41" + std::string(300, static_cast<char>(nUnit))});
}

std::string AudioUnit(int nUnit)
{
    return KovaTestAacFrame(40 + static_cast<size_t>(nUnit)) + KovaTestAacFrame(50);
}

/// How many packets the units make.
size_t AudioPackets(int nUnits)
{
    return static_cast<size_t>(2 * nUnits);
}

size_t VideoPackets(int nUnits)
{
    return static_cast<size_t>((nUnits + 1) / 2 * 3 + nUnits / 2);
}

std::string Replaced(std::string text, const std::string &what, const std::string &instead)
{
    for (size_t nAt = text.find(what); nAt != std::string::npos;
         nAt = text.find(what, nAt + instead.size()))
        text.replace(nAt, what.size(), instead);
    return text;
}

/// The text with N for the numbers behind each key; ports that were not found
/// (0-0) stay.
std::string WithoutNumbers(std::string text, const std::string &key)
{
    for (size_t nAt = text.find(key); nAt != std::string::npos; nAt = text.find(key, nAt)) {
        nAt += key.size();
        const size_t nEnd = std::min(text.find_first_not_of("0123456789- ", nAt), text.size());
        if (text.compare(nAt, nEnd - nAt, "0-0") != 0)
            text.replace(nAt, nEnd - nAt, "N");
    }
    return text;
}

std::string PayloadOf(const std::string &packet)
{
    return packet.substr(std::min(packet.size(), kRtpHeader));
}

/// The player of one visit.
class Visitor {
public:
    explicit Visitor(const KovaVisitPlan &plan) : m_plan(plan) {}

    KovaVisit Run()
    {
        m_visit.bConnected = m_client.Connect(m_plan.nPort);
        if (!m_visit.bConnected)
            return m_visit;
        const bool bGoOn =
            Ask("OPTIONS") && Ask("DESCRIBE") && Setup(kAudioTrack) && Setup(kVideoTrack) && Play();
        if (bGoOn)
            Watch();
        if (bGoOn && !m_visit.bEnded && m_plan.bLeave && Ask("GET_PARAMETER"))
            Ask("TEARDOWN");
        TakeStrays();
        m_client.Close(!m_plan.bLeave);
        return m_visit;
    }

private:
    /// The text without what another visit would see differently.
    std::string Constant(const std::string &text) const
    {
        std::string constant = text;
        for (const char *szKey :
             {"o=- ", "client_port=", "server_port=", "seq=", "rtptime=", "ssrc="})
            constant = WithoutNumbers(constant, szKey);
        constant = Replaced(constant, "127.0.0.1:" + std::to_string(m_plan.nPort) + "/", "HOST/");
        const std::string session = m_client.Session();
        return session.size() == 11 ? Replaced(constant, session, "S") : constant;
    }

    /// One request. Returns false when the connection has ended.
    bool Ask(const std::string &method, const std::string &path = kVisitUri,
             const std::string &lines = {})
    {
        const std::string request = m_client.Format(method, path, lines);
        KovaTestResponse response;
        if (m_client.Send(request))
            Await(m_plan.bAnswersGetLost, [&](int nMilliseconds) {
                response = m_client.Receive(nMilliseconds);
                return response.bComplete || HasEnded();
            });
        if (method == "SETUP" && response.nStatus == 200) {
            m_client.SetSession(response.Session());
            m_setUp = response.text;
        }
        m_visit.steps.push_back({method, m_client.LastCSeq(), response.bComplete, response.nStatus,
                                 Constant(response.text)});
        return response.bComplete || !HasEnded();
    }

    /// Whether the server has ended the connection, and nothing is left to read.
    bool HasEnded()
    {
        char first = 0;
        const ssize_t nGot = recv(m_client.Socket(), &first, 1, MSG_PEEK | MSG_DONTWAIT);
        m_visit.bEnded = nGot == 0 || (nGot < 0 && errno != EAGAIN && errno != EINTR);
        return m_visit.bEnded;
    }

    /// Waits for something in small steps, as long as it must come, or a moment
    /// when it may have got lost. take(ms) returns whether it came.
    template <typename Take> bool Await(bool bGetsLost, Take take) const
    {
        int nLost = 0;
        for (int nWaited = 0; nWaited < kPatience && nLost < kLostPatience; nWaited += kStep) {
            if (take(kStep))
                return true;
            if (m_plan.pFaults != nullptr && m_plan.pFaults->Hits() != 0 && bGetsLost)
                nLost += kStep;
        }
        return false;
    }

    bool Setup(int nTrack)
    {
        const std::string transport =
            m_plan.nKind == kVisitUdp
                ? KovaUdpTransport(Ports(nTrack).RtpPort())
                : KovaTcpTransport(nTrack == kAudioTrack ? kAudioChannel : kVideoChannel);
        const bool bGoOn =
            Ask("SETUP", std::string(kVisitUri) + "/trackID=" + std::to_string(nTrack),
                KovaTransportLine(transport));
        if (m_plan.nKind == kVisitUdp)
            Report(nTrack);
        return bGoOn;
    }

    /// A receiver report, which waits for the server until it sends.
    void Report(int nTrack)
    {
        constexpr std::string_view kKey = "server_port=";
        const size_t nAt = m_setUp.find(kKey);
        if (nAt == std::string::npos)
            return;
        const int nRtpPort = std::atoi(m_setUp.c_str() + nAt + kKey.size());
        Ports(nTrack).SendRtcp(static_cast<uint16_t>(nRtpPort + 1),
                               std::string_view("\x81\xC9\0\1\0\0\0\0", 8));
    }

    bool Play()
    {
        m_visit.nClientsAtPlay = KovaClientsOf(m_plan.pStream);
        const bool bGoOn = Ask("PLAY");
        m_visit.bPlayed = m_visit.steps.back().nStatus == 200;
        return bGoOn;
    }

    void Watch()
    {
        if (m_plan.onPlaying)
            m_plan.onPlaying();
        KovaPushUnits(m_plan.pStream, m_plan.nUnits);
        if (m_plan.nKind == kVisitInterleaved) {
            WatchFrames();
        } else {
            WatchPort(kAudioTrack, AudioPackets(m_plan.nUnits), &m_visit.audio);
            WatchPort(kVideoTrack, VideoPackets(m_plan.nUnits), &m_visit.video);
        }
        if (m_plan.onWatched)
            m_plan.onWatched();
    }

    void WatchPort(int nTrack, size_t nPackets, std::vector<std::string> *pPayloads)
    {
        std::string packet;
        while (pPayloads->size() < nPackets && Await(true, [&](int nMilliseconds) {
                   return Ports(nTrack).ReceiveRtp(&packet, nMilliseconds);
               }))
            pPayloads->push_back(PayloadOf(packet));
    }

    void WatchFrames()
    {
        const size_t nAll = AudioPackets(m_plan.nUnits) + VideoPackets(m_plan.nUnits);
        while (m_visit.audio.size() + m_visit.video.size() < nAll) {
            KovaTestFrame frame;
            const bool bCame = Await(true, [&](int nMilliseconds) {
                return m_client.NextFrame(&frame, nMilliseconds) || HasEnded();
            });
            if (!bCame || frame.nChannel < 0)
                return;
            if (frame.nChannel == kAudioChannel)
                m_visit.audio.push_back(PayloadOf(frame.payload));
            else if (frame.nChannel == kVideoChannel)
                m_visit.video.push_back(PayloadOf(frame.payload));
            else if (frame.nChannel != kAudioChannel + 1 && frame.nChannel != kVideoChannel + 1)
                m_visit.strays += "$" + std::to_string(frame.nChannel);
        }
    }

    void TakeStrays()
    {
        // What cannot be read as a frame stays in front, and comes as a text.
        const KovaTestResponse rest = m_client.Receive(0);
        m_visit.strays += rest.text;
    }

    KovaUdpPair &Ports(int nTrack)
    {
        return nTrack == kAudioTrack ? m_audioPorts : m_videoPorts;
    }

    const KovaVisitPlan &m_plan;
    std::string m_setUp; ///< the last answer to SETUP
    KovaVisit m_visit;
    KovaRtspTestClient m_client;
    KovaUdpPair m_audioPorts;
    KovaUdpPair m_videoPorts;
};

} // namespace

KovaVisit KovaMakeVisit(const KovaVisitPlan &plan)
{
    return Visitor(plan).Run();
}

void KovaPushUnits(KovaRtspStreamer *pStream, int nUnits)
{
    for (int nUnit = 0; nUnit < nUnits; nUnit++) {
        // With the first time stamp of all, a packet is never held back.
        KovaPush(pStream, kAudioTrack, AudioUnit(nUnit), 0);
        KovaPush(pStream, kVideoTrack, VideoUnit(nUnit), 0);
    }
}

bool KovaIsSubsequence(const std::vector<std::string> &part, const std::vector<std::string> &whole)
{
    auto at = whole.begin();
    for (const std::string &text : part) {
        at = std::find(at, whole.end(), text);
        if (at == whole.end())
            return false;
        ++at;
    }
    return true;
}

std::vector<std::string> KovaAggregated(const std::string &payload)
{
    constexpr char kStapA = 24;
    std::vector<std::string> units;
    if (payload.empty() || (payload[0] & 0x1f) != kStapA)
        return units;
    for (size_t nAt = 1; nAt + 2 <= payload.size();) {
        const size_t nSize = static_cast<size_t>(static_cast<uint8_t>(payload[nAt]) << 8 |
                                                 static_cast<uint8_t>(payload[nAt + 1]));
        units.push_back(payload.substr(nAt + 2, nSize));
        nAt += 2 + nSize;
    }
    return units;
}

size_t KovaClientsOf(KovaRtspStreamer *pStream)
{
    return KovaTestServer::Clients(pStream, kAudioTrack).size() +
           KovaTestServer::Clients(pStream, kVideoTrack).size();
}
