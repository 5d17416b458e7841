#pragma once

#include <cstddef>
#include <cstdint>

/// Types of NAL units (ITU-T H.264, table 7-1) that are treated in some way.
enum KovaNalType : uint8_t {
    kNalSlice = 1,
    kNalIdr = 5,
    kNalSei = 6,
    kNalSps = 7,
    kNalPps = 8,
    kNalDelimiter = 9,
    kNalFiller = 12,
    kNalSpsExtension = 13,
    kNalSubsetSps = 15,
    kNalFirstUnspecified = 24, ///< from here on RFC 6184 has a use of its own for them
};

/// A NAL unit, header byte first, somewhere else; at least that byte.
struct KovaNal {
    const uint8_t *pData;
    uint32_t nSize;
};

inline uint8_t KovaNalTypeOf(const KovaNal &nal)
{
    return nal.pData[0] & 0x1F;
}

/// The NAL units of an access unit that are sent, in decoding order. There is room
/// in front for kNalsInFront more. Zeroed to begin with; the array is kept from one
/// access unit to the next.
constexpr uint32_t kNalsInFront = 12;
struct KovaNalList {
    KovaNal *pNals; ///< nRoom of them; those of the list begin at nFirst
    uint32_t nRoom;
    uint32_t nFirst;
    uint32_t nEnd; ///< behind the last one
    bool bAny;     ///< there was a NAL unit, sent or not
};
void KovaNalListFree(KovaNalList *pList);

/// Lists the NAL units of an access unit in Annex B form, or with a length of
/// nLengthSize bytes (1, 2, 4; big-endian) in front of each. Delimiters, filler and
/// types that have no place in RTP are left out; so are zero bytes behind a NAL
/// unit in Annex B form, and empty ones.
/// @return KOVA_LIVE_OK, ERROR_DATA, ERROR_TOO_LARGE (more than 65,536 NAL units) or
///         ERROR_MEMORY
int32_t KovaNalListFillAnnexB(KovaNalList *pList, const uint8_t *pData, size_t nSize);
int32_t KovaNalListFillLengths(KovaNalList *pList, const uint8_t *pData, size_t nSize,
                               uint32_t nLengthSize);

/// Puts parameter sets in: sequence parameter sets in front of everything, picture
/// parameter sets behind the sets that the access unit begins with (they mean
/// sequence parameter sets that came before). Together at most kNalsInFront.
void KovaNalListInsert(KovaNalList *pList, const KovaNal *pSps, uint32_t nSps, const KovaNal *pPps,
                       uint32_t nPps);
