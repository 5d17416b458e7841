#include "fuzz/support/packer_run.h"

// ADTS frames through the AAC packer: packets, codes and reports equal the model's byte for byte,
// no packet is over its limit, and the packets put together again are the frames of the input.
//
// Input: a sequence of pieces (see KovaPackerRun); 1 and 2 append a frame (16-bit length, sampling
// index).

namespace {

constexpr size_t kRtpHeader = 12;
constexpr size_t kAuHeader = 4;
constexpr size_t kLargestPacket = 1400;
constexpr size_t kWholePayload = 1388;

class AacRun : public KovaPackerRun {
public:
    AacRun() : KovaPackerRun(1, kLargestPacket) {}

protected:
    std::unique_ptr<KovaPackerModel> MakeModel() override
    {
        return std::make_unique<KovaAacModel>(kPayloadType, kSsrc);
    }

    void AppendPiece(unsigned, KovaFuzzInput *pInput, KovaBytes *pUnit) override
    {
        const uint32_t nLength = pInput->Below(8192);
        const uint8_t nIndex = pInput->Byte() & 15;
        const size_t nBegin = pUnit->size();
        for (size_t n = 0; n < nLength; n++)
            pUnit->push_back(static_cast<uint8_t>(2 + n % 251));
        const KovaBytes header = {0xFF,
                                  0xF1,
                                  static_cast<uint8_t>(0x40 | nIndex << 2),
                                  static_cast<uint8_t>(0x80 | nLength >> 11),
                                  static_cast<uint8_t>(nLength >> 3),
                                  static_cast<uint8_t>(nLength << 5 | 0x1F),
                                  0xFC};
        for (size_t n = 0; n < header.size() && n < nLength; n++)
            (*pUnit)[nBegin + n] = header[n];
    }

    /// The frames without their headers, up to the first that cannot be followed.
    std::vector<KovaBytes> Expected(const KovaBytes &unit) override
    {
        std::vector<KovaBytes> frames;
        size_t nAt = 0;
        while (nAt + 7 < unit.size()) {
            if (unit[nAt] != 0xFF || (unit[nAt + 1] & 0xF0) != 0xF0) {
                nAt++;
                continue;
            }
            const uint8_t *pHeader = unit.data() + nAt;
            const size_t nLength =
                (pHeader[3] & 3U) << 11 | size_t{pHeader[4]} << 3 | pHeader[5] >> 5;
            if (pHeader[4] >= 0x80 || nLength < 8 || nLength > unit.size() - nAt)
                break;
            frames.emplace_back(pHeader + 7, pHeader + nLength);
            nAt += nLength;
        }
        return frames;
    }

    void Reassemble(const std::vector<KovaSeenPacket> &packets) override
    {
        KovaBytes open;
        for (const KovaSeenPacket &packet : packets) {
            open.insert(open.end(), packet.bytes.begin() + kRtpHeader, packet.bytes.end());
            if ((packet.bytes[1] & 0x80) == 0)
                continue;
            KovaRequire(open.size() > kAuHeader && open[0] == 0 && open[1] == 16,
                        "an access unit has its header");
            const size_t nSize = (size_t{open[2]} << 8 | open[3]) >> 3;
            KovaRequire(nSize == open.size() - kAuHeader, "the header tells the size");
            Take(KovaBytes(open.begin() + kAuHeader, open.end()));
            open.clear();
        }
        KovaRequire(open.empty(), "the last packet of a unit has the marker");
    }

    /// A large frame behind another one of the same push is cut, and one that is still under way
    /// at the next push as well: the packer's long-standing ways, which the model knows.
    bool IsAmbiguous(const std::vector<KovaBytes> &frames, bool bEarly) const override
    {
        const bool bLarge = std::any_of(frames.begin(), frames.end(), [](const KovaBytes &frame) {
            return frame.size() + kAuHeader > kWholePayload;
        });
        return bLarge && (bEarly || frames.size() > 1);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    AacRun().Run(pData, nSize);
    return 0;
}
