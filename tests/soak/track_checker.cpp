#include "tests/soak/track_checker.h"

#include "tests/soak/soak_media.h"

namespace {

constexpr size_t kRtpHeader = 12;
constexpr int kFuA = 28;

} // namespace

KovaTrackChecker::KovaTrackChecker(int nTrack) : m_bVideo(nTrack == 97)
{
    if (m_bVideo)
        m_depacketizer = std::make_unique<KovaH264Depacketizer>();
    else
        m_depacketizer = std::make_unique<KovaAacDepacketizer>();
}

void KovaTrackChecker::Take(const std::string &packet)
{
    if (m_depacketizer->Packets() == 0 && BeginsInsideUnit(packet))
        return;
    m_depacketizer->Take(packet);
    const auto &units = m_depacketizer->Units();
    for (; m_nChecked < units.size(); m_nChecked++)
        CheckUnit(units[m_nChecked]);
}

std::string KovaTrackChecker::Complaint() const
{
    return m_complaint.empty() ? m_depacketizer->Complaint() : m_complaint;
}

bool KovaTrackChecker::BeginsInsideUnit(const std::string &packet) const
{
    return m_bVideo && packet.size() > kRtpHeader + 1 && (packet[kRtpHeader] & 0x1f) == kFuA &&
           (packet[kRtpHeader + 1] & 0x80) == 0;
}

void KovaTrackChecker::CheckUnit(const KovaReceivedUnit &unit)
{
    uint32_t nNumber = 0;
    unsigned nSlice = 0;
    const bool bNumbered = m_bVideo ? KovaSoakReadSlice(unit.bytes, &nNumber, &nSlice)
                                    : KovaSoakReadSound(unit.bytes, &nNumber);
    const std::string place = "unit " + std::to_string(nNumber) + "." + std::to_string(nSlice);
    if (!bNumbered)
        return Complain("a unit without a number");
    if (m_nChecked > 0 && (nNumber != m_nNumber || nSlice != m_nSlice))
        Complain(place + " instead of " + std::to_string(m_nNumber));
    if (unit.bytes != (m_bVideo ? KovaSoakSlice(nNumber, nSlice) : KovaSoakSound(nNumber)))
        return Complain(place + " has other bytes");
    if (unit.nTimestamp !=
        (m_bVideo ? KovaSoakPictureTimestamp(nNumber) : KovaSoakSoundTimestamp(nNumber)))
        return Complain(place + " has another timestamp");
    const bool bLast = !m_bVideo || nSlice + 1 == kSoakSlices;
    m_nNumber = bLast ? nNumber + 1 : nNumber;
    m_nSlice = bLast ? 0 : nSlice + 1;
    m_nGood++;
}

void KovaTrackChecker::Complain(const std::string &text)
{
    if (m_complaint.empty())
        m_complaint = (m_bVideo ? "video: " : "audio: ") + text;
}
