#pragma once

#include "classic/sdp/media_description.h"
#include "foundation/export.h"

#include <cstddef>
#include <cstdint>

/// Room for a parameter set's base64 text: sets of up to 189 bytes.
constexpr size_t kParameterSetText = 256;

/// Parameters of a video section, found in the stream. Texts are empty at first.
/// Frozen: callers from outside read the fields at these places.
struct KovaSdpVideoData {
    char szProfileLevelId[8];
    char szSpropParameterSets[kParameterSetText]; ///< both sets, cut when they do not fit
    char szPpsBase64[kParameterSetText];
    char szSpsBase64[kParameterSetText];
    KovaVideoDescription *pDescription; ///< owned
};

/// Parameters of an audio section.
/// Frozen: callers from outside read the fields at these places.
struct KovaSdpAudioData {
    char szConfig[8];
    KovaAudioDescription *pDescription; ///< owned; its rate follows the stream
};

/// One media section of a session description.
/// Frozen: callers from outside read the fields at these places.
struct KovaRtspSdpMedia {
    uint32_t nMediaType; ///< KOVA_MEDIA_*: says what pData is
    uint32_t nPayloadId;
    void *pData; ///< KovaSdpAudioData or KovaSdpVideoData; owned
};

/// An entry without stream parameters; null for a null description, an unknown
/// media type or without memory.
KOVA_API KovaRtspSdpMedia *MediaCreate(uint32_t nMediaType, uint32_t nPayloadId,
                                       const void *pDescription);

/// Frees an entry with everything in it. Null is ignored.
KOVA_API void MediaDestroy(KovaRtspSdpMedia *pMedia);

/// Takes what a packer found (KovaStreamInfoKind). A kind of the other media
/// type is ignored, and so is a parameter set whose text does not fit its field:
/// the previous one stays. An empty set makes the entry incomplete again; an
/// empty report about AAC is ignored.
void KovaSdpMediaSetInfo(KovaRtspSdpMedia *pMedia, uint32_t nInfoType, const uint8_t *pData,
                         uint32_t nLength);

/// Whether the section has all its stream parameters.
bool KovaSdpMediaIsComplete(const KovaRtspSdpMedia *pMedia);

/// Appends the section (RFC 4566; RFC 6184, section 8.2.1; RFC 3640, section
/// 4.1) at *pLength, whole or not at all.
void KovaSdpMediaAppend(KovaRtspSdpMedia *pMedia, char *szBuffer, size_t nCapacity,
                        size_t *pLength);
