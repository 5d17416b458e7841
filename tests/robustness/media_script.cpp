#include "tests/robustness/media_script.h"

#include "classic/streamer/registries.h"

#include <algorithm>

namespace {

constexpr uint32_t kFirstTime = 40;

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

void KovaMediaScript::MakeAudio(const KovaScriptPlan &plan)
{
    m_audio.nPayloadId = 96;
    m_audio.nSsrc = SsrcOf(m_pStream, 96);
    for (int i = 0; i < plan.nSeconds * plan.nAudioPerSecond; i++) {
        m_audio.units.push_back(KovaAdts(KovaNoise(plan.nAudioSize, static_cast<unsigned>(i))));
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
        m_video.units.push_back(unit +
                                KovaNoise(plan.nVideoSize, 100000 + static_cast<unsigned>(i)));
        m_video.times.push_back(kFirstTime +
                                static_cast<uint32_t>(i * 1000 / plan.nVideoPerSecond));
    }
    KovaH264Model model(97, m_video.nSsrc);
    Predict(&model, &m_video);
}

void KovaMediaScript::Start()
{
    m_start = Clock::now();
    m_feed.Start([this] { return Push(); });
}

bool KovaMediaScript::PushNext(const KovaScriptTrack &track, std::atomic<size_t> *pNext)
{
    const size_t nUnit = *pNext;
    if (nUnit == track.units.size())
        return false;
    const uint32_t nTime = track.times[nUnit];
    if (Clock::now() - m_start.load() < std::chrono::milliseconds(nTime - kFirstTime))
        return false;
    KovaPush(m_pStream, track.nPayloadId, track.units[nUnit], nTime);
    *pNext = nUnit + 1;
    return true;
}

std::optional<KovaMediaScript::Clock::time_point> KovaMediaScript::Push()
{
    const bool bPushed = PushNext(m_audio, &m_nNextAudio);
    const bool bBoth = PushNext(m_video, &m_nNextVideo) || bPushed;
    m_bOver = m_nNextAudio == m_audio.units.size() && m_nNextVideo == m_video.units.size();
    if (m_bOver)
        return std::nullopt;
    return Clock::now() + std::chrono::milliseconds(bBoth ? 0 : 2);
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
