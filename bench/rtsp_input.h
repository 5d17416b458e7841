#pragma once

#include "tests/support/rtsp_text.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// Tells answers and interleaved frames in the bytes of an RTSP connection apart.
class KovaRtspInput {
public:
    using OnAnswer = std::function<void(const KovaTestResponse &)>;
    using OnFrame = std::function<void(unsigned nChannel, const uint8_t *pPacket, size_t nSize)>;

    KovaRtspInput(OnAnswer onAnswer, OnFrame onFrame);

    /// Reads all that is there, and notes behind each read when that was. False when the connection
    /// has ended.
    bool Read(int nSocket, uint64_t *pNow);

private:
    void TakeAll(std::string_view bytes);

    OnAnswer m_onAnswer;
    OnFrame m_onFrame;
    std::string m_rest; ///< begun, but not complete
};

/// What the description tells of a track.
struct KovaDescribedTrack {
    uint32_t nRate = 0;
    std::string control; ///< as the description has it
};

/// The tracks of a session description, in its order.
std::vector<KovaDescribedTrack> KovaDescribedTracks(const std::string &description);
