#pragma once

#include "live/media/aac_config.h"
#include "live/media/h264_nals.h"
#include "live/media/h264_parameter_sets.h"
#include "live/media/rtp_time.h"
#include "live/media/track_media.h"

#include <atomic>

/// What stands behind a KovaTrackMedia. Without a remark: set once, or the pushing
/// thread's own.
struct KovaTrackMedia {
    uint32_t nCodec;
    uint32_t nLengthSize; ///< H.264: of the lengths in front of NAL units; 0: Annex B
    bool bRaw;            ///< AAC: pushed without ADTS headers
    uint8_t nPayloadType;
    uint32_t nTrack;
    uint32_t nMaxPayload; ///< bytes of a packet behind the RTP header
    uint32_t nSsrc;
    uint32_t nTimeOffset;             ///< the timestamp at time 0
    uint16_t nSequence;               ///< of the next packet
    std::atomic<uint32_t> nClockRate; ///< any thread reads it
    KovaUnitPool *pPool;

    KovaNalList nals;       ///< of the access unit that is being cut
    KovaParameterSets sets; ///< for any thread, by their own mutex

    KovaAacStream aac; ///< for any thread, by its own mutex
    KovaSoundTime soundTime;
};

/// Takes note of a configuration of sound. Pushing thread.
void KovaTrackMediaSetAac(KovaTrackMedia *pMedia, const KovaAacConfig &config);
