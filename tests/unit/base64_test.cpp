#include "foundation/base64.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

/// Encodes, and checks result, length function, terminator and that nothing is
/// written behind it.
std::string Encode(const std::string &bytes)
{
    const int32_t nLength = static_cast<int32_t>(bytes.size());
    const int32_t nRoom = Base64encode_len(nLength);
    std::vector<char> text(static_cast<size_t>(nRoom) + 4, '#');
    EXPECT_EQ(Base64encode(text.data(), bytes.data(), nLength), nRoom);
    EXPECT_EQ(text[static_cast<size_t>(nRoom) - 1], '\0');
    EXPECT_EQ(std::string(text.end() - 4, text.end()), "####");
    return std::string(text.data(), static_cast<size_t>(nRoom) - 1);
}

/// Decodes, and checks that result and terminator agree, and that nothing is
/// written beyond what the length function says.
std::string Decode(const std::string &text)
{
    const int32_t nRoom = Base64decode_len(text.c_str());
    std::vector<char> bytes(static_cast<size_t>(nRoom) + 4, '#');
    const int32_t nCount = Base64decode(bytes.data(), text.c_str());
    EXPECT_GE(nCount, 0);
    EXPECT_LT(nCount, nRoom);
    EXPECT_EQ(bytes[static_cast<size_t>(nCount)], '\0');
    EXPECT_EQ(std::string(bytes.end() - 4, bytes.end()), "####");
    return std::string(bytes.data(), static_cast<size_t>(nCount));
}

TEST(Base64, LengthOfAnEncoding)
{
    EXPECT_EQ(Base64encode_len(0), 1);
    EXPECT_EQ(Base64encode_len(1), 5);
    EXPECT_EQ(Base64encode_len(2), 5);
    EXPECT_EQ(Base64encode_len(3), 5);
    EXPECT_EQ(Base64encode_len(4), 9);
    EXPECT_EQ(Base64encode_len(300), 401);
}

TEST(Base64, EncodesNothingToJustATerminator)
{
    char szText[2] = {'#', '#'};
    EXPECT_EQ(Base64encode(szText, "", 0), 1);
    EXPECT_EQ(szText[0], '\0');
    EXPECT_EQ(szText[1], '#');
}

TEST(Base64, EncodesWithPadding)
{
    EXPECT_EQ(Encode("Man"), "TWFu");
    EXPECT_EQ(Encode("M"), "TQ==");
    EXPECT_EQ(Encode("Ma"), "TWE=");
    EXPECT_EQ(Encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(Encode("fooba"), "Zm9vYmE=");
    EXPECT_EQ(Encode("foob"), "Zm9vYg==");
}

TEST(Base64, EncodesHighBytesWithoutSign)
{
    EXPECT_EQ(Encode("\xFF\xFF\xFF"), "////");
    EXPECT_EQ(Encode("\xFB\xEF\xBE"), "++++");
    EXPECT_EQ(Encode("\xFF"), "/w==");
    EXPECT_EQ(Encode("\x80\x81"), "gIE=");
}

TEST(Base64, UsesTheStandardAlphabet)
{
    std::string bytes;
    for (unsigned n = 0; n < 64; n += 4) {
        const unsigned nWord = n << 18 | (n + 1) << 12 | (n + 2) << 6 | (n + 3);
        bytes += static_cast<char>(nWord >> 16);
        bytes += static_cast<char>(nWord >> 8);
        bytes += static_cast<char>(nWord);
    }
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    EXPECT_EQ(Encode(bytes), alphabet);
    EXPECT_EQ(Decode(alphabet), bytes);
}

TEST(Base64, LengthOfADecoding)
{
    EXPECT_EQ(Base64decode_len(""), 1);
    EXPECT_EQ(Base64decode_len("TQ=="), 4);
    EXPECT_EQ(Base64decode_len("TWFu"), 4);
    EXPECT_EQ(Base64decode_len("TWFuT"), 7);
    EXPECT_EQ(Base64decode_len("TWFu\nTWFu"), 4);
    EXPECT_EQ(Base64decode_len("="), 1);
}

TEST(Base64, Decodes)
{
    EXPECT_EQ(Decode("TQ=="), "M");
    EXPECT_EQ(Decode("TWE="), "Ma");
    EXPECT_EQ(Decode("TWFu"), "Man");
    EXPECT_EQ(Decode("Zm9vYmFy"), "foobar");
    EXPECT_EQ(Decode("TQ"), "M");
    EXPECT_EQ(Decode(""), "");
}

TEST(Base64, StopsAtTheFirstCharacterOutsideTheAlphabet)
{
    EXPECT_EQ(Decode("TWFu\nTWFu"), "Man");
    EXPECT_EQ(Decode("TW Fu"), "M");
    EXPECT_EQ(Decode("TWFu-TWFu"), "Man");
    EXPECT_EQ(Decode("TWFu\xFFTWFu"), "Man");
    EXPECT_EQ(Decode("=TWFu"), "");
}

TEST(Base64, OnlyTheAlphabetsCharactersAreDecoded)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int n = 1; n < 256; n++) {
        const char szText[3] = {static_cast<char>(n), 'A', '\0'};
        const size_t nValue = alphabet.find(szText[0]);
        std::string expected;
        if (nValue != std::string::npos)
            expected = std::string(1, static_cast<char>(nValue << 2));
        EXPECT_EQ(Decode(szText), expected) << n;
    }
}

TEST(Base64, SingleLeftoverCharacterYieldsNoByte)
{
    EXPECT_EQ(Decode("T"), "");
    EXPECT_EQ(Decode("TWFuT"), "Man");
}

TEST(Base64, DecodesWhatItEncoded)
{
    std::string bytes;
    for (unsigned n = 0; n < 300; n++) {
        EXPECT_EQ(Decode(Encode(bytes)), bytes) << n;
        bytes += static_cast<char>(n * 37 + n / 7);
    }
}

TEST(Base64, LengthsBelowZeroAreNoBytes)
{
    for (const int32_t nLength : {-1, -2, -3, INT32_MIN + 2, INT32_MIN + 1, INT32_MIN}) {
        char szText[8] = "before";
        EXPECT_EQ(Base64encode(szText, "Man", nLength), 1) << nLength;
        EXPECT_STREQ(szText, "") << nLength;
    }
    EXPECT_EQ(Base64encode_len(-1), 1);
    EXPECT_EQ(Base64encode_len(-5), -3);
    EXPECT_EQ(Base64encode_len(INT32_MIN), 1431655769); // -715827882 * 4 + 1, modulo 2^32
}

} // namespace
