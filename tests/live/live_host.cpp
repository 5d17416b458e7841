#include "tests/live/live_host.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

constexpr size_t kAfterHeader = 1;

void Append32(std::string *pBytes, uint32_t nValue)
{
    for (int nShift = 24; nShift >= 0; nShift -= 8)
        *pBytes += static_cast<char>(nValue >> nShift & 0xFF);
}

} // namespace

KovaLiveHost::KovaLiveHost(const std::function<void(KovaLiveConfig *)> &change)
{
    KovaLiveConfig config;
    EXPECT_EQ(KovaLiveConfigInit(&config, sizeof(config)), KOVA_LIVE_OK);
    config.address = "127.0.0.1";
    config.log_level = KOVA_LIVE_LOG_DEBUG;
    config.on_log = OnLog;
    config.on_event = OnEvent;
    config.context = this;
    if (change)
        change(&config);
    EXPECT_EQ(KovaLiveOpen(&config, &m_pLive), KOVA_LIVE_OK);
}

KovaLiveHost::~KovaLiveHost()
{
    Close();
}

uint16_t KovaLiveHost::Port() const
{
    uint16_t nPort = 0;
    EXPECT_EQ(KovaLivePort(m_pLive, &nPort), KOVA_LIVE_OK);
    return nPort;
}

int KovaLiveHost::Close()
{
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(KovaLiveClose(m_pLive), KOVA_LIVE_OK);
    m_pLive = nullptr;
    const auto took = std::chrono::steady_clock::now() - begin;
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count());
}

KovaLiveStream *KovaLiveAddStreamTo(KovaLive *pLive, const char *szPath,
                                    const std::function<void(KovaLiveStreamConfig *)> &change)
{
    KovaLiveStreamConfig config;
    EXPECT_EQ(KovaLiveStreamConfigInit(&config, sizeof(config)), KOVA_LIVE_OK);
    if (change)
        change(&config);
    KovaLiveStream *pStream = nullptr;
    EXPECT_EQ(KovaLiveAddStream(pLive, szPath, &config, &pStream), KOVA_LIVE_OK);
    return pStream;
}

KovaLiveStream *KovaLiveHost::AddStream(const char *szPath,
                                        const std::function<void(KovaLiveStreamConfig *)> &change)
{
    return KovaLiveAddStreamTo(m_pLive, szPath, change);
}

KovaLiveTrack *KovaLiveHost::AddVideo(KovaLiveStream *pStream, bool bKnown)
{
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264);
    const std::string sps = KovaLiveSps();
    const std::string pps = KovaLivePps();
    if (bKnown) {
        config.sps = reinterpret_cast<const uint8_t *>(sps.data());
        config.sps_size = static_cast<uint32_t>(sps.size());
        config.pps = reinterpret_cast<const uint8_t *>(pps.data());
        config.pps_size = static_cast<uint32_t>(pps.size());
    }
    KovaLiveTrack *pTrack = nullptr;
    EXPECT_EQ(KovaLiveAddTrack(pStream, &config, &pTrack), KOVA_LIVE_OK);
    return pTrack;
}

KovaLiveTrack *KovaLiveHost::AddSound(KovaLiveStream *pStream)
{
    const KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_AAC);
    KovaLiveTrack *pTrack = nullptr;
    EXPECT_EQ(KovaLiveAddTrack(pStream, &config, &pTrack), KOVA_LIVE_OK);
    return pTrack;
}

std::vector<KovaToldEvent> KovaLiveHost::Events(uint32_t nType)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<KovaToldEvent> events;
    for (const KovaToldEvent &event : m_events)
        if (nType == 0 || event.nType == nType)
            events.push_back(event);
    return events;
}

KovaToldEvent KovaLiveHost::WaitEvent(uint32_t nType, size_t nNumber)
{
    EXPECT_TRUE(KovaWaitUntil([&] { return Events(nType).size() >= nNumber; })) << nType;
    const std::vector<KovaToldEvent> events = Events(nType);
    return events.size() >= nNumber ? events[nNumber - 1] : KovaToldEvent{};
}

std::vector<std::string> KovaLiveHost::Lines()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

KovaLiveServerNumbers KovaLiveHost::Figures() const
{
    KovaLiveServerNumbers numbers = {};
    numbers.size = sizeof(numbers);
    EXPECT_EQ(KovaLiveServerFigures(m_pLive, &numbers), KOVA_LIVE_OK);
    return numbers;
}

void KovaLiveHost::OnEvent(void *pContext, const KovaLiveEvent *pEvent)
{
    auto *pHost = static_cast<KovaLiveHost *>(pContext);
    EXPECT_EQ(pEvent->size, sizeof(*pEvent));
    if (pHost->onEvent)
        pHost->onEvent(*pEvent);
    const std::lock_guard<std::mutex> lock(pHost->m_mutex);
    pHost->m_events.push_back({pEvent->type, pEvent->stream, pEvent->track, pEvent->player,
                               pEvent->reason, pEvent->players, pEvent->address, pEvent->port,
                               pEvent->interleaved != 0});
}

void KovaLiveHost::OnLog(void *pContext, int32_t, const char *szText)
{
    auto *pHost = static_cast<KovaLiveHost *>(pContext);
    const std::lock_guard<std::mutex> lock(pHost->m_mutex);
    pHost->m_lines.push_back(szText);
}

KovaLiveStreamNumbers KovaLiveFiguresOf(KovaLiveStream *pStream)
{
    KovaLiveStreamNumbers numbers = {};
    numbers.size = sizeof(numbers);
    EXPECT_EQ(KovaLiveStreamFigures(pStream, &numbers), KOVA_LIVE_OK);
    return numbers;
}

std::string KovaLiveSps()
{
    return KovaMediaBytes({0x67, 0x64, 0x10, 0x28, 0x80, 's'});
}

std::string KovaLivePps()
{
    return KovaMediaBytes({0x68, 0xC0, 'p'});
}

std::string KovaLiveKey(size_t nSize, unsigned nSeed)
{
    return KovaMediaAnnexB({KovaLiveSps(), KovaLivePps(), KovaMediaNal(0x65, nSize, nSeed)});
}

std::string KovaLiveOther(size_t nSize, unsigned nSeed)
{
    return KovaMediaAnnexB({KovaMediaNal(0x41, nSize, nSeed)});
}

std::string KovaLiveSound(unsigned nSeed)
{
    return KovaMediaAdts(KovaMediaNal(0x21, 200, nSeed));
}

bool KovaLiveTakesKey(KovaLiveClient *pClient, size_t nSize, unsigned nSeed, int nTrack)
{
    return KovaLiveSlice(KovaLiveNextUnit(pClient, nTrack)) == KovaMediaNal(0x65, nSize, nSeed);
}

void KovaLivePushKey(KovaLiveTrack *pTrack, size_t nSize, unsigned nSeed, int64_t nPts)
{
    EXPECT_EQ(KovaLivePushText(pTrack, KovaLiveKey(nSize, nSeed), nPts), KOVA_LIVE_OK);
}

int32_t KovaLivePushText(KovaLiveTrack *pTrack, const std::string &bytes, int64_t nPts)
{
    return KovaLivePush(pTrack, bytes.data(), bytes.size(), nPts);
}

bool KovaLivePlayTcp(KovaLiveClient *pClient, const KovaLiveHost &host, const char *szPath)
{
    return pClient->Connect(host.Port()) && pClient->SetupTcp(szPath, 1).nStatus == 200 &&
           pClient->Play(szPath).nStatus == 200;
}

bool KovaLivePlayUdp(KovaLiveClient *pClient, const KovaLiveHost &host, const char *szPath)
{
    return pClient->Connect(host.Port()) && pClient->SetupUdp(szPath, 1).nStatus == 200 &&
           pClient->Play(szPath).nStatus == 200;
}

std::vector<KovaLiveRtp> KovaLiveNextUnit(KovaLiveClient *pClient, int nTrack, int nMilliseconds)
{
    std::vector<KovaLiveRtp> packets;
    KovaLiveRtp packet;
    while (pClient->NextRtp(nTrack, &packet, nMilliseconds)) {
        if (!packets.empty()) {
            EXPECT_EQ(packet.header.nSequence,
                      static_cast<uint16_t>(packets.back().header.nSequence + 1));
            EXPECT_EQ(packet.header.nTimestamp, packets.back().header.nTimestamp);
        }
        packets.push_back(packet);
        if (packet.header.bMarker)
            return packets;
    }
    return {};
}

std::string KovaLiveSlice(const std::vector<KovaLiveRtp> &packets)
{
    constexpr uint8_t kStapA = 24;
    constexpr uint8_t kFuA = 28;
    std::string slice;
    for (const KovaLiveRtp &packet : packets) {
        const std::string &bytes = packet.payload;
        const uint8_t nType = static_cast<uint8_t>(bytes.at(0)) & 0x1F;
        if (nType == kFuA) {
            const uint8_t nHead = static_cast<uint8_t>(bytes.at(1));
            if ((nHead & 0x80) != 0)
                slice = static_cast<char>((bytes[0] & 0x60) | (nHead & 0x1F));
            slice += bytes.substr(2);
        } else if (nType == kStapA) {
            for (size_t nAt = kAfterHeader; nAt + 2 <= bytes.size();) {
                const size_t nSize = static_cast<size_t>(static_cast<uint8_t>(bytes[nAt])) << 8 |
                                     static_cast<uint8_t>(bytes[nAt + 1]);
                slice = bytes.substr(nAt + 2, nSize);
                nAt += 2 + nSize;
            }
        } else {
            slice = bytes;
        }
    }
    return slice;
}

std::vector<KovaRtcpPart> KovaRtcpParts(const std::string &compound)
{
    std::vector<KovaRtcpPart> parts;
    for (size_t nAt = 0; nAt != compound.size();) {
        if (compound.size() - nAt < 4 || (static_cast<uint8_t>(compound[nAt]) >> 6) != 2)
            return {};
        const size_t nSize = ((KovaNumberAt(compound, nAt) & 0xFFFF) + 1) * 4;
        if (nSize > compound.size() - nAt)
            return {};
        parts.push_back({static_cast<uint8_t>(compound[nAt + 1]), compound[nAt] & 0x1F,
                         compound.substr(nAt, nSize)});
        nAt += nSize;
    }
    return parts;
}

uint32_t KovaNumberAt(const std::string &bytes, size_t nAt)
{
    uint32_t nValue = 0;
    for (size_t n = 0; n < 4; n++)
        nValue = nValue << 8 | static_cast<uint8_t>(bytes.at(nAt + n));
    return nValue;
}

int64_t KovaReportWall(const std::string &report, int64_t nNear)
{
    constexpr int64_t kSecond = 1000000;
    constexpr int64_t kTo1900 = 2208988800;
    const int64_t nNearSeconds = nNear / kSecond;
    const uint32_t nFurther =
        KovaNumberAt(report, 8) - static_cast<uint32_t>(nNearSeconds + kTo1900);
    const int64_t nPart = KovaNumberAt(report, 12) * kSecond + (1U << 31);
    return (nNearSeconds + static_cast<int32_t>(nFurther)) * kSecond + (nPart >> 32);
}

std::string KovaLiveReport(uint32_t nSsrc, uint8_t nLoss, bool bBlock, bool bBye)
{
    constexpr uint32_t kOwn = 0x01020304;
    std::string report = KovaMediaBytes({bBlock ? 0x81 : 0x80, 201, 0, bBlock ? 7 : 1});
    Append32(&report, kOwn);
    if (bBlock) {
        Append32(&report, nSsrc);
        report += static_cast<char>(nLoss);
        report += KovaMediaBytes({0, 0, 1});
        Append32(&report, 1);
        Append32(&report, 900); // 10 ms of 90 kHz
        Append32(&report, 0);
        Append32(&report, 0);
    }
    if (bBye) {
        report += KovaMediaBytes({0x81, 203, 0, 1});
        Append32(&report, kOwn);
    }
    return report;
}
