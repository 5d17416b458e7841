#pragma once

#include "kova_live.h"
#include "live/media/unit.h"

#include <cstddef>
#include <cstdint>

/// What one track makes of pushed data: RTP packets (RFC 6184 packetization-mode
/// 1; RFC 3640 AAC-hbr), and its section of the description. KovaTrackMediaCut is
/// called by one thread at a time; everything else by any thread meanwhile.
struct KovaTrackMedia;

/// Makes it from a checked copy of the host's record.
/// @param nPayloadType  96 to 127
/// @param nTrack        index in the stream: the units', and the control's name
/// @param nMaxPacket    largest RTP packet, bytes with header
/// @param ppMedia       written on success only
/// @return KOVA_LIVE_OK, or ERROR_ARGUMENT, _CODEC, _DATA, _MEMORY
int32_t KovaTrackMediaCreate(const KovaLiveTrackConfig &config, uint8_t nPayloadType,
                             uint32_t nTrack, uint32_t nMaxPacket, KovaTrackMedia **ppMedia);
void KovaTrackMediaDestroy(KovaTrackMedia *pMedia);

/// Cuts an access unit. nPts: µs. *ppUnit gets a unit with one reference, or null
/// when nothing is to be sent (parameter sets alone).
/// First sequence number, timestamp and SSRC are random; timestamps follow nPts
/// without drift however long the track runs. H.264: the marker stands on the last
/// packet only; parameter sets go in band before each IDR and when they change;
/// access unit delimiters and filler are left out. AAC: every frame length and rate;
/// frames of one push follow each other by their own length.
/// @return KOVA_LIVE_OK, or ERROR_DATA, _TOO_LARGE, _MEMORY (nothing sent; sequence unchanged)
int32_t KovaTrackMediaCut(KovaTrackMedia *pMedia, const uint8_t *pData, size_t nSize, int64_t nPts,
                          KovaUnit **ppUnit);

/// Whether everything that the description needs is known.
bool KovaTrackMediaKnown(const KovaTrackMedia *pMedia);

/// Appends the track's section, m= to a=control:track<n+1>, to szText as
/// KovaTextAppend does (RFC 4566, 6184 8.1, 3640 4.1). False when it is not known
/// yet or does not fit.
bool KovaTrackMediaDescribe(const KovaTrackMedia *pMedia, char *szText, size_t nCapacity,
                            size_t *pLength);

uint32_t KovaTrackMediaCodec(const KovaTrackMedia *pMedia); ///< KOVA_LIVE_H264, ...
uint32_t KovaTrackMediaSsrc(const KovaTrackMedia *pMedia);
uint32_t KovaTrackMediaClockRate(const KovaTrackMedia *pMedia); ///< Hz; 0 while not known

/// The RTP timestamp that belongs to a pts (µs): for sender reports.
uint32_t KovaTrackMediaTimestamp(const KovaTrackMedia *pMedia, int64_t nPts);
