#include "bench/access_units.h"

#include "tests/support/media.h"

std::string KovaBenchPicture(bool bKey, size_t nSize)
{
    std::string slice(nSize, '\0');
    // Without zeros, so that no start code appears.
    for (size_t nAt = 0; nAt < nSize; nAt++)
        slice[nAt] = static_cast<char>(nAt * 37 | 1);
    slice[0] = bKey ? '\x65' : '\x41';
    return bKey ? KovaAnnexB({KovaTestSps(), KovaTestPps(), slice}) : KovaAnnexB({slice});
}

std::string KovaBenchSound(size_t nSize)
{
    return KovaAdts(std::string(nSize, '\x21'), kAdts48000);
}
