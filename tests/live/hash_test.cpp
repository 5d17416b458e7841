#include "foundation/hash.h"
#include "foundation/hex.h"
#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "foundation/wipe.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::string Hex(const uint8_t *pBytes, size_t nSize)
{
    std::vector<char> digits(2 * nSize + 1);
    KovaHexWrite(digits.data(), pBytes, nSize);
    return digits.data();
}

std::string HashOf(const KovaHashAlgorithm &algorithm, const std::string &message)
{
    KovaHash hash;
    uint8_t result[kHashMaxSize];
    KovaHashBegin(&hash, algorithm);
    KovaHashAdd(&hash, message);
    KovaHashEnd(&hash, result);
    return Hex(result, algorithm.nSize);
}

/// The hash of the hashes of one message of each length from 0 to 200.
std::string HashOfLengths(const KovaHashAlgorithm &algorithm)
{
    KovaHash all;
    uint8_t result[kHashMaxSize];
    KovaHashBegin(&all, algorithm);
    for (size_t nLength = 0; nLength <= 200; nLength++) {
        std::string message(nLength, '\0');
        for (size_t nIndex = 0; nIndex < nLength; nIndex++)
            message[nIndex] = static_cast<char>(nIndex * 7 + nLength);
        KovaHash one;
        KovaHashBegin(&one, algorithm);
        KovaHashAdd(&one, message);
        KovaHashEnd(&one, result);
        KovaHashAdd(&all, result, algorithm.nSize);
    }
    KovaHashEnd(&all, result);
    return Hex(result, algorithm.nSize);
}

TEST(Md5, HasTheResultsOfRfc1321)
{
    EXPECT_EQ(HashOf(kHashMd5, ""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(HashOf(kHashMd5, "a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(HashOf(kHashMd5, "abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(HashOf(kHashMd5, "message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(HashOf(kHashMd5, "abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(HashOf(kHashMd5, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(HashOf(kHashMd5, "1234567890123456789012345678901234567890123456789012345678901234567"
                               "8901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, HoldsForEveryLengthOfTheLastBlock)
{
    EXPECT_EQ(HashOfLengths(kHashMd5), "a442e71c2813be22a1e4ba7304617cca");
    EXPECT_EQ(HashOf(kHashMd5, std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(Sha256, HasTheResultsOfFips180)
{
    EXPECT_EQ(HashOf(kHashSha256, ""),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(HashOf(kHashSha256, "abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(HashOf(kHashSha256, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(HashOf(kHashSha256, "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmno"
                                  "ijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"),
              "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1");
}

TEST(Sha256, HoldsForEveryLengthOfTheLastBlock)
{
    EXPECT_EQ(HashOfLengths(kHashSha256),
              "e673d33f6940a6d3856d0d305fd88363ae0ba3b96e2411d8ddd5e0dd443f4525");
    EXPECT_EQ(HashOf(kHashSha256, std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Hash, PiecesDoNotCount)
{
    std::string message(150, '\0');
    for (size_t nIndex = 0; nIndex < message.size(); nIndex++)
        message[nIndex] = static_cast<char>(nIndex);
    for (const KovaHashAlgorithm *pAlgorithm : {&kHashMd5, &kHashSha256}) {
        const std::string whole = HashOf(*pAlgorithm, message);
        for (size_t nSplit = 0; nSplit <= message.size(); nSplit++) {
            KovaHash hash;
            uint8_t result[kHashMaxSize];
            KovaHashBegin(&hash, *pAlgorithm);
            KovaHashAdd(&hash, message.substr(0, nSplit));
            KovaHashAdd(&hash, std::string_view());
            KovaHashAdd(&hash, message.substr(nSplit));
            KovaHashEnd(&hash, result);
            EXPECT_EQ(Hex(result, pAlgorithm->nSize), whole) << "split at " << nSplit;
        }
    }
}

TEST(Hash, NothingIsLeftOfTheMessage)
{
    KovaHash hash;
    uint8_t result[kHashMaxSize];
    KovaHashBegin(&hash, kHashSha256);
    KovaHashAdd(&hash, "a password");
    KovaHashEnd(&hash, result);
    const KovaHash wiped = {};
    EXPECT_EQ(memcmp(hash.block, wiped.block, sizeof(hash.block)), 0);
    EXPECT_EQ(memcmp(hash.state, wiped.state, sizeof(hash.state)), 0);
}

std::string Hmac(const std::string &key, const std::string &message)
{
    uint8_t result[kSha256Size];
    KovaHmacSha256(reinterpret_cast<const uint8_t *>(key.data()), key.size(), message.data(),
                   message.size(), result);
    return Hex(result, sizeof(result));
}

TEST(Hmac, HasTheResultsOfRfc4231)
{
    EXPECT_EQ(Hmac(std::string(20, '\x0b'), "Hi There"),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(Hmac("Jefe", "what do ya want for nothing?"),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    EXPECT_EQ(Hmac(std::string(20, '\xaa'), std::string(50, '\xdd')),
              "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe");
}

TEST(Hex, DigitsOfBothCasesAreRead)
{
    uint8_t bytes[4] = {};
    EXPECT_TRUE(KovaHexRead("00fFA90a", bytes, 4));
    EXPECT_EQ(Hex(bytes, 4), "00ffa90a");
    EXPECT_FALSE(KovaHexRead("00fFA90", bytes, 4));
    EXPECT_FALSE(KovaHexRead("00fFA90ab", bytes, 4));
    for (const char nOther : {'g', 'G', '/', ':', '@', '`', ' ', '\0', '\xE1'})
        EXPECT_FALSE(KovaHexRead(std::string("00ffa90") + nOther, bytes, 4)) << int{nOther};
}

TEST(Hex, NumbersHaveOneToEightDigits)
{
    uint32_t nNumber = 0;
    EXPECT_TRUE(KovaHexNumber("7", &nNumber));
    EXPECT_EQ(nNumber, 7U);
    EXPECT_TRUE(KovaHexNumber("fFfffffe", &nNumber));
    EXPECT_EQ(nNumber, 0xFFFFFFFEU);
    EXPECT_FALSE(KovaHexNumber("", &nNumber));
    EXPECT_FALSE(KovaHexNumber("000000001", &nNumber));
    EXPECT_FALSE(KovaHexNumber("0x1", &nNumber));
}

} // namespace
