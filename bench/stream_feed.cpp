#include "bench/stream_feed.h"

#include <utility>

namespace {

constexpr unsigned kFps = 25;
constexpr unsigned kTickMilliseconds = 1000 / kFps;
constexpr unsigned kKeyFactor = 4;
constexpr unsigned kQuietTicks = 5;
constexpr unsigned kQuietSize = 60;
constexpr unsigned kSampleRate = 48000;
constexpr unsigned kSamplesPerFrame = 1024;
constexpr unsigned kSoundSize = 170; // 64 kbit/s
constexpr unsigned kAdtsHeaderSize = 7;
// Above 0, as the schedule wants it, and below the 1000 ms that count as a gap.
constexpr uint64_t kFirstTime = 40;

const std::vector<uint8_t> kSps = {0x67, 0x42, 0xC0, 0x1E, 0xD9, 0x00, 0xA0, 0x47, 0xFE, 0xC8};
const std::vector<uint8_t> kPps = {0x68, 0xCE, 0x3C, 0x80};

void AppendUnit(std::vector<uint8_t> *pPicture, const std::vector<uint8_t> &nal)
{
    pPicture->insert(pPicture->end(), {0, 0, 0, 1});
    pPicture->insert(pPicture->end(), nal.begin(), nal.end());
}

/// A slice without zero bytes, so that no start code appears in it.
std::vector<uint8_t> Slice(uint8_t nHeader, size_t nSize)
{
    std::vector<uint8_t> slice(nSize, nHeader);
    uint32_t nState = nHeader;
    for (size_t nAt = 1; nAt < nSize; nAt++) {
        nState = nState * 1664525U + 1013904223U;
        slice[nAt] = static_cast<uint8_t>(nState >> 24 | 1);
    }
    return slice;
}

std::vector<uint8_t> KeyPicture(size_t nSize)
{
    std::vector<uint8_t> picture;
    AppendUnit(&picture, kSps);
    AppendUnit(&picture, kPps);
    AppendUnit(&picture, Slice(0x65, nSize));
    return picture;
}

std::vector<uint8_t> AdtsFrame(size_t nSize)
{
    const size_t nLength = nSize + kAdtsHeaderSize;
    // AAC LC, 48 kHz, two channels, no CRC.
    std::vector<uint8_t> frame = {0xFF,
                                  0xF1,
                                  0x4C,
                                  static_cast<uint8_t>(0x80 | nLength >> 11),
                                  static_cast<uint8_t>(nLength >> 3),
                                  static_cast<uint8_t>((nLength & 7) << 5 | 0x1F),
                                  0xFC};
    frame.resize(nLength, 0x21);
    return frame;
}

} // namespace

KovaStreamFeed::KovaStreamFeed(std::vector<KovaRtspStreamer *> streams, bool bSound)
    : m_streams(std::move(streams)), m_bSound(bSound), m_key(KeyPicture(kQuietSize)),
      m_sound(AdtsFrame(kSoundSize))
{}

KovaStreamFeed::~KovaStreamFeed()
{
    Stop();
}

void KovaStreamFeed::Start()
{
    m_thread = std::thread([this] { Run(); });
}

void KovaStreamFeed::Stop()
{
    m_bStop = true;
    if (m_thread.joinable())
        m_thread.join();
}

void KovaStreamFeed::Run()
{
    const auto begin = std::chrono::steady_clock::now();
    while (!m_bStop) {
        if (m_nTakenRate != m_nRate)
            TakeRate(m_nRate);
        PushPicture();
        if (m_bSound)
            PushSound();
        m_nTick++;
        std::this_thread::sleep_until(begin +
                                      std::chrono::milliseconds(m_nTick * kTickMilliseconds));
    }
}

void KovaStreamFeed::TakeRate(unsigned nKilobits)
{
    m_nTakenRate = nKilobits;
    m_nPicture = 0;
    const size_t nOther = size_t{nKilobits} * 125 / (kFps - 1 + kKeyFactor);
    m_key = KeyPicture(nKilobits == 0 ? kQuietSize : nOther * kKeyFactor);
    m_other.clear();
    if (nKilobits != 0)
        AppendUnit(&m_other, Slice(0x41, nOther));
}

void KovaStreamFeed::PushPicture()
{
    const uint64_t nTime = kFirstTime + m_nTick * kTickMilliseconds;
    if (m_nTakenRate == 0 && m_nTick % kQuietTicks != 0)
        return;
    const bool bKey = m_nTakenRate == 0 || m_nPicture % kFps == 0;
    m_nPicture++;
    Push(KOVA_PAYLOAD_ID_VIDEO, bKey ? m_key : m_other, nTime);
}

/// The frames that begin before the next picture.
void KovaStreamFeed::PushSound()
{
    for (;;) {
        const uint64_t nTime = m_nFrame * kSamplesPerFrame * 1000 / kSampleRate;
        if (nTime >= (m_nTick + 1) * kTickMilliseconds)
            return;
        Push(KOVA_PAYLOAD_ID_AUDIO, m_sound, kFirstTime + nTime);
        m_nFrame++;
    }
}

void KovaStreamFeed::Push(uint32_t nPayloadId, const std::vector<uint8_t> &unit,
                          uint64_t nMilliseconds)
{
    for (KovaRtspStreamer *pStream : m_streams)
        KovaRtspServerPushData(pStream, nPayloadId, unit.data(), static_cast<uint32_t>(unit.size()),
                               static_cast<uint32_t>(nMilliseconds));
}
