#include "tests/robustness/media_script.h"

#include "streamer/registries.h"

#include <algorithm>
#include <random>

namespace {

constexpr uint32_t kFirstTime = 40;

/// Bytes that contain no start code and no sync word.
std::string Noise(size_t nSize, unsigned nSeed)
{
    std::minstd_rand random(nSeed + 1);
    std::string bytes(nSize, '\0');
    for (char &nByte : bytes)
        nByte = static_cast<char>(0x10 + random() % 0x60);
    return bytes;
}

uint32_t SsrcOf(KovaRtspStreamer *pStream, uint32_t nPayloadId)
{
    return KovaRtspStreamerGetRtpPackerByPayloadId(pStream, nPayloadId)->nSsrc;
}

/// Runs the units through a packer that is not the library's.
void Predict(KovaPackerModel *pModel, KovaScriptTrack *pTrack)
{
    for (size_t i = 0; i < pTrack->units.size(); i++) {
        pModel->Push(KovaBytes(pTrack->units[i].begin(), pTrack->units[i].end()), pTrack->times[i]);
        while (const std::optional<KovaSeenPacket> packet = pModel->Next()) {
            pTrack->packets.emplace_back(packet->bytes.begin(), packet->bytes.end());
            pTrack->packetTimes.push_back(packet->nPts);
        }
    }
}

} // namespace

KovaMediaScript::KovaMediaScript(KovaRtspStreamer *pStream, const KovaScriptPlan &plan)
    : m_pStream(pStream)
{
    MakeAudio(plan);
    MakeVideo(plan);
}

KovaMediaScript::~KovaMediaScript()
{
    Stop();
}

void KovaMediaScript::MakeAudio(const KovaScriptPlan &plan)
{
    m_audio.nPayloadId = 96;
    m_audio.nSsrc = SsrcOf(m_pStream, 96);
    for (int i = 0; i < plan.nSeconds * plan.nAudioPerSecond; i++) {
        std::string unit = KovaTestAacFrame(plan.nAudioSize);
        unit.replace(7, std::string::npos, Noise(plan.nAudioSize, static_cast<unsigned>(i)));
        m_audio.units.push_back(unit);
        m_audio.times.push_back(kFirstTime +
                                static_cast<uint32_t>(i * 1000 / plan.nAudioPerSecond));
    }
    KovaAacModel model(96, m_audio.nSsrc);
    Predict(&model, &m_audio);
}

void KovaMediaScript::MakeVideo(const KovaScriptPlan &plan)
{
    m_video.nPayloadId = 97;
    m_video.nSsrc = SsrcOf(m_pStream, 97);
    for (int i = 0; i < plan.nSeconds * plan.nVideoPerSecond; i++) {
        const bool bKey = i % plan.nVideoPerSecond == 0;
        std::string unit = bKey ? KovaTestKeyFrame(0) : KovaTestInterFrame(0);
        m_video.units.push_back(unit + Noise(plan.nVideoSize, 100000 + static_cast<unsigned>(i)));
        m_video.times.push_back(kFirstTime +
                                static_cast<uint32_t>(i * 1000 / plan.nVideoPerSecond));
    }
    KovaH264Model model(97, m_video.nSsrc);
    Predict(&model, &m_video);
}

void KovaMediaScript::Start()
{
    m_start = Clock::now();
    m_thread = std::thread([this] { Run(); });
}

void KovaMediaScript::Stop()
{
    m_bStop = true;
    if (m_thread.joinable())
        m_thread.join();
}

bool KovaMediaScript::PushNext(const KovaScriptTrack &track, std::atomic<size_t> *pNext)
{
    const size_t nUnit = *pNext;
    if (nUnit == track.units.size())
        return false;
    const uint32_t nTime = track.times[nUnit];
    if (Clock::now() - m_start.load() < std::chrono::milliseconds(nTime - kFirstTime))
        return false;
    const std::string &unit = track.units[nUnit];
    KovaRtspServerPushData(m_pStream, track.nPayloadId,
                           reinterpret_cast<const uint8_t *>(unit.data()),
                           static_cast<uint32_t>(unit.size()), nTime);
    *pNext = nUnit + 1;
    return true;
}

void KovaMediaScript::Run()
{
    while (!m_bStop && !m_bOver) {
        const bool bPushed = PushNext(m_audio, &m_nNextAudio);
        if (!PushNext(m_video, &m_nNextVideo) && !bPushed)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        m_bOver = m_nNextAudio == m_audio.units.size() && m_nNextVideo == m_video.units.size();
    }
}

size_t KovaMediaScript::Pushed(const KovaScriptTrack &track) const
{
    const size_t nUnit = &track == &m_audio ? m_nNextAudio : m_nNextVideo;
    if (nUnit == 0)
        return 0;
    return static_cast<size_t>(std::upper_bound(track.packetTimes.begin(), track.packetTimes.end(),
                                                track.times[nUnit - 1]) -
                               track.packetTimes.begin());
}

int64_t KovaMediaScript::Age(const KovaScriptTrack &track, uint16_t nSequence) const
{
    const auto since =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_start.load());
    return since.count() - (track.packetTimes[nSequence] - kFirstTime);
}
