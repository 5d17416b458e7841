#include "foundation/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(Text, CopyTerminatesAndLeavesTheRest)
{
    char szField[8];
    memset(szField, '#', sizeof(szField));
    KovaTextCopy(szField, sizeof(szField), "abc");
    EXPECT_EQ(std::string(szField, sizeof(szField)), std::string("abc\0####", 8));
}

TEST(Text, CopyCutsToFit)
{
    char szField[8];
    memset(szField, '#', sizeof(szField));
    KovaTextCopy(szField, 4, "abcdef");
    EXPECT_EQ(std::string(szField, sizeof(szField)), std::string("abc\0####", 8));
    KovaTextCopy(szField, 4, "xyz");
    EXPECT_STREQ(szField, "xyz");
    KovaTextCopy(szField, 4, "");
    EXPECT_STREQ(szField, "");
    KovaTextCopy(szField, 1, "abc");
    EXPECT_STREQ(szField, "");
}

TEST(Text, CopyOfTheFieldsOwnSizeLosesOneCharacter)
{
    char szField[8];
    for (const auto &[text, expected] :
         {std::pair("ab", "ab\0#####"), std::pair("abc", "abc\0####"),
          std::pair("abcd", "abc\0####"), std::pair("abcde", "abc\0####")}) {
        memset(szField, '#', sizeof(szField));
        KovaTextCopy(szField, 4, text);
        EXPECT_EQ(std::string(szField, sizeof(szField)), std::string(expected, 8)) << text;
    }
}

TEST(Text, CopyToNoRoomWritesNothing)
{
    char nByte = '#';
    KovaTextCopy(&nByte, 0, "abc");
    EXPECT_EQ(nByte, '#');
}

TEST(Text, PrintableHasAQuestionMarkForEachControlByte)
{
    std::string all;
    std::string shown;
    for (int nByte = 0; nByte < 256; nByte++) {
        all += static_cast<char>(nByte);
        shown += nByte < 32 || nByte == 127 ? '?' : static_cast<char>(nByte);
    }
    char szShown[300];
    EXPECT_EQ(KovaTextPrintable(szShown, sizeof(szShown), all), szShown);
    EXPECT_EQ(std::string(szShown), shown);
    EXPECT_STREQ(KovaTextPrintable(szShown, sizeof(szShown), ""), "");
}

TEST(Text, PrintableIsCutToItsRoom)
{
    char szShown[8];
    memset(szShown, '#', sizeof(szShown));
    EXPECT_STREQ(KovaTextPrintable(szShown, 4, "a\nb\n"), "a?b");
    EXPECT_EQ(std::string(szShown, sizeof(szShown)), std::string("a?b\0####", 8));
    EXPECT_STREQ(KovaTextPrintable(szShown, 4, "\n\n\n"), "???");
    EXPECT_STREQ(KovaTextPrintable(szShown, 4, "\n\n"), "??");
    EXPECT_STREQ(KovaTextPrintable(szShown, 0, "abc"), "");
    EXPECT_STREQ(szShown, "??");
}

TEST(Text, FieldEndsAtItsTerminatorOrItsCapacity)
{
    const char szFull[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(KovaTextField(szFull, 4), "abcd");
    EXPECT_EQ(KovaTextField("ab", 3), "ab");
    EXPECT_EQ(KovaTextField("", 1), "");
    EXPECT_EQ(KovaTextField(szFull, 0), "");
}

TEST(Text, AppendGoesOnBehindTheText)
{
    char szBuffer[16] = {};
    size_t nLength = 0;
    EXPECT_TRUE(KovaTextAppend(szBuffer, sizeof(szBuffer), &nLength, "%s=%d", "a", 1));
    EXPECT_TRUE(KovaTextAppend(szBuffer, sizeof(szBuffer), &nLength, ";%s", "b"));
    EXPECT_STREQ(szBuffer, "a=1;b");
    EXPECT_EQ(nLength, 5U);
}

TEST(Text, AppendLeavesOutWholeWhatDoesNotFit)
{
    char szBuffer[12];
    memset(szBuffer, '#', sizeof(szBuffer));
    size_t nLength = 0;
    EXPECT_TRUE(KovaTextAppend(szBuffer, 8, &nLength, "abcd"));
    EXPECT_FALSE(KovaTextAppend(szBuffer, 8, &nLength, "efgh"));
    EXPECT_STREQ(szBuffer, "abcd");
    EXPECT_EQ(nLength, 4U);
    EXPECT_TRUE(KovaTextAppend(szBuffer, 8, &nLength, "efg"));
    EXPECT_STREQ(szBuffer, "abcdefg");
    EXPECT_EQ(nLength, 7U);
    EXPECT_FALSE(KovaTextAppend(szBuffer, 8, &nLength, "h"));
    EXPECT_STREQ(szBuffer, "abcdefg");
    EXPECT_EQ(std::string(szBuffer + 8, 4), "####");
}

} // namespace
