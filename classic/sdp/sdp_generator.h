#pragma once

#include "classic/sdp/sdp_media.h"
#include "foundation/export.h"
#include "foundation/list.h"
#include "foundation/mutex.h"

#include <cstddef>
#include <cstdint>

/// Room for a dotted IPv4 address.
constexpr size_t kAddressTextSize = 16;

/// Room for a description, its NUL included: what callers of
/// KovaRtspGenerateSdpGetSdpInfo provide.
constexpr size_t kSdpTextSize = 4096;

/// Everything that the session description of one stream needs. Safe to use
/// from the packer threads, request threads, the monitor and the host at once.
/// Frozen: callers from outside read the fields at these places.
struct KovaRtspSdpGenerator {
    char szUri[KOVA_MAX_URI_LENGTH]; ///< no terminator when the URI fills it
    char szServerIp[kAddressTextSize] KOVA_GUARDED_BY(
        sdpMutex); ///< empty until a connection asked with OPTIONS
    uint16_t nServerPort KOVA_GUARDED_BY(sdpMutex);
    char szClientIp[kAddressTextSize] KOVA_GUARDED_BY(sdpMutex); ///< kept, not shown
    KovaList *
        pMediaList KOVA_GUARDED_BY(sdpMutex); ///< of KovaRtspSdpMedia, in order of addition; owned
    KovaMutex sdpMutex;                       ///< guards the entries as well
};

/// A generator for a URI; null for a null URI or without memory. A longer URI
/// than the field is cut.
KOVA_API KovaRtspSdpGenerator *KovaRtspSdpGeneratorCreate(const char *szUri);

/// Frees the generator with its media. Null is ignored.
KOVA_API void KovaRtspSdpGeneratorDestroy(KovaRtspSdpGenerator *pGenerator);

/// Appends a media section. 0; 1 when it cannot be made; 2 for a null argument.
KOVA_API int32_t KovaRtspSdpGeneratorAddMedia(KovaRtspSdpGenerator *pGenerator, uint32_t nMediaType,
                                              uint32_t nPayloadId, const void *pDescription);

/// Removes and destroys a section. Null is ignored.
KOVA_API void KovaRtspSdpGeneratorRemoveMedia(KovaRtspSdpGenerator *pGenerator,
                                              KovaRtspSdpMedia *pMedia);

/// Removes and destroys every section. Null is ignored.
KOVA_API void KovaRtspSdpGeneratorRemoveAllMedia(KovaRtspSdpGenerator *pGenerator);

/// The first section with that payload id, or null. It lives until it is removed.
KOVA_API KovaRtspSdpMedia *KovaRtspSdpGeneratorGetMediaByPayloadId(KovaRtspSdpGenerator *pGenerator,
                                                                   uint32_t nPayloadId);

/// Removes and destroys the first section with that payload id, if any.
KOVA_API void KovaRtspSdpGeneratorRemoveMediaByPayloadId(KovaRtspSdpGenerator *pGenerator,
                                                         uint32_t nPayloadId);

/// Sets the addresses that descriptions carry from now on; texts of more than
/// 15 characters are cut. Nothing happens when a pointer is null.
KOVA_API void KovaRtspSdpGeneratorSetNetworkInfo(KovaRtspSdpGenerator *pGenerator,
                                                 const char *szServerIp, uint16_t nServerPort,
                                                 const char *szClientIp);

/// Takes what a packer found for a payload id (KovaStreamInfoKind). Ignored for
/// null arguments and unknown ids.
KOVA_API void KovaRtspSdpGeneratorSetMediaInfo(KovaRtspSdpGenerator *pGenerator,
                                               uint32_t nPayloadId, uint32_t nInfoType,
                                               const uint8_t *pData, uint32_t nLength);

/// 1 when there is a section and every section has its stream parameters, else 0.
KOVA_API int32_t KovaRtspSdpGeneratorIsReady(KovaRtspSdpGenerator *pGenerator);

/// Writes the description (RFC 4566) from whatever is there, ready or not.
/// @param szText   at least kSdpTextSize characters; sections that do not fit
///                 are left out whole
/// @param pLength  receives the number of characters, without the NUL
/// Nothing happens when a pointer is null.
KOVA_API void KovaRtspGenerateSdpGetSdpInfo(KovaRtspSdpGenerator *pGenerator, char *szText,
                                            int32_t *pLength);
