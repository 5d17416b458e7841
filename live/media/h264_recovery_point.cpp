#include "live/media/h264_recovery_point.h"

#include "live/media/bit_reader.h"

namespace {

constexpr uint32_t kRecoveryPoint = 6;

/// A number whose every byte of 255 stands for 255 more (ITU-T H.264, 7.3.2.3.1).
uint32_t ReadNumber(KovaBitReader *pReader)
{
    uint32_t nNumber = 0;
    uint32_t nByte = 0;
    do {
        nByte = KovaBitReaderRead(pReader, 8);
        nNumber += nByte;
    } while (nByte == 255);
    return nNumber;
}

} // namespace

bool KovaH264HasRecoveryPoint(const KovaNal &nal)
{
    KovaBitReader reader = KovaBitReaderOfNal(nal.pData + 1, nal.nSize - 1);
    while (!reader.bOver) {
        const uint32_t nType = ReadNumber(&reader);
        const uint32_t nSize = ReadNumber(&reader);
        if (reader.bOver)
            break;
        if (nType == kRecoveryPoint)
            return nSize > 0;
        for (uint32_t nIndex = 0; nIndex < nSize && !reader.bOver; nIndex++)
            KovaBitReaderRead(&reader, 8);
    }
    return false;
}
