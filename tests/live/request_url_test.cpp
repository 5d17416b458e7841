#include "live/rtsp/request_url.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

// RFC 2326, section 3.2, and what players make of control URLs.

namespace {

using namespace std::string_literals;

void ExpectUrl(std::string_view text, const char *szPath, int nTrack)
{
    const KovaRequestUrl url = KovaRequestUrlParse(text);
    EXPECT_TRUE(url.bValid) << text;
    EXPECT_FALSE(url.bStar) << text;
    EXPECT_STREQ(url.szPath, szPath) << text;
    EXPECT_EQ(url.nTrack, nTrack) << text;
}

void ExpectInvalid(std::string_view text)
{
    const KovaRequestUrl url = KovaRequestUrlParse(text);
    EXPECT_FALSE(url.bValid) << text;
    EXPECT_FALSE(url.bStar) << text;
    EXPECT_STREQ(url.szPath, "") << text;
    EXPECT_EQ(url.nTrack, -1) << text;
}

std::string Normalized(std::string_view path)
{
    char szPath[kLivePathSize];
    memset(szPath, 'x', sizeof(szPath));
    return KovaLivePathNormalize(path, szPath) ? szPath : "refused:"s + szPath;
}

std::string Escaped(const char *szPath, size_t nCapacity)
{
    std::string text(nCapacity + 1, 'x');
    text += "xxx";
    const bool bFits = KovaLivePathEscape(szPath, text.data(), nCapacity);
    EXPECT_EQ(text.substr(nCapacity), "xxxx") << "written behind the room";
    if (!bFits)
        return "does not fit";
    return text.c_str();
}

} // namespace

TEST(RequestUrl, AnAbsoluteUrlNamesAStreamByItsPath)
{
    for (const char *szBegin :
         {"rtsp://10.0.0.1:554/", "rtsp://10.0.0.1/", "RTSP://camera.local:/", "rtspu://h/",
          "rtspT://h/", "rtsp://[fe80::1]:8554/", "rtsp://[::1]/", "rtsp://user:pass@h:1/",
          "rtsp://user:p@ss@h/", "rtsp://:554/", "rtsp:///", "rtsp://h:65535/", "/", "//"}) {
        ExpectUrl(szBegin + "cam"s, "cam", -1);
        ExpectUrl(szBegin + "cam/low/track2"s, "cam/low", 1);
        ExpectUrl(szBegin + ""s, "", -1);
        ExpectUrl(szBegin + "track1"s, "", 0);
    }
    ExpectUrl("rtsp://h", "", -1);
    ExpectUrl("rtsp://h:554", "", -1);
    ExpectUrl("cam/track1", "cam", 0);
    ExpectUrl("  rtsp://h/cam\t", "cam", -1);
}

TEST(RequestUrl, AStarNamesTheServer)
{
    const KovaRequestUrl url = KovaRequestUrlParse("*");
    EXPECT_TRUE(url.bValid);
    EXPECT_TRUE(url.bStar);
    EXPECT_STREQ(url.szPath, "");
    EXPECT_EQ(url.nTrack, -1);
    ExpectUrl("rtsp://h/*", "*", -1);
}

TEST(RequestUrl, WhatIsNoUrlOfRtspIsNotValid)
{
    ExpectInvalid("");
    ExpectInvalid(" ");
    ExpectInvalid("http://h/cam");
    ExpectInvalid("rtsps://h/cam");
    ExpectInvalid("://h/cam");
    ExpectInvalid("rtsp://h:port/cam");
    ExpectInvalid("rtsp://h:65536/cam");
    ExpectInvalid("rtsp://h:1:2/cam");
    ExpectInvalid("rtsp://[::1/cam");
    ExpectInvalid("rtsp://[::1]554/cam");
    ExpectInvalid("rtsp://[::1]:x/cam");
    ExpectInvalid("/" + std::string(2048, 'x'));
    ExpectInvalid("rtsp://h/cam\0?x"s);
    ExpectInvalid("rtsp://h:5\0/cam"s);
}

TEST(RequestUrl, AnotherUrlInThePathOrTheQueryIsText)
{
    ExpectUrl("/proxy/http://x/y", "proxy/http:/x/y", -1);
    ExpectUrl("rtsp://h/cam?from=http://x", "cam", -1);
    ExpectUrl("?http://x", "", -1);
}

TEST(RequestUrl, QueryAndFragmentDoNotCount)
{
    ExpectUrl("rtsp://h/cam?user=a&x=1", "cam", -1);
    ExpectUrl("rtsp://h/cam/track2?x=1", "cam", 1);
    ExpectUrl("rtsp://h/cam?", "cam", -1);
    ExpectUrl("rtsp://h/cam#t=5", "cam", -1);
    ExpectUrl("rtsp://h?x=1", "", -1);
    ExpectUrl("rtsp://h:554?x=1", "", -1);
    ExpectUrl("rtsp://h:554#x", "", -1);
    ExpectUrl("rtsp://h/cam?x=a/b", "cam", -1);
    ExpectUrl("rtsp://h/cam?x=%zz", "cam", -1);
}

TEST(RequestUrl, ATrackBehindTheQueryIsOneThatThePlayerAppended)
{
    ExpectUrl("rtsp://h/cam?x=1/track2", "cam", 1);
    ExpectUrl("rtsp://h/cam?x=1/track2/", "cam", 1);
    ExpectUrl("rtsp://h/cam?x=1/track2//", "cam", 1);
    ExpectUrl("rtsp://h/cam?/track3", "cam", 2);
    ExpectUrl("rtsp://h/cam/?x=a/b/track1", "cam", 0);
    ExpectUrl("rtsp://h/cam#t/track1", "cam", 0);
    ExpectUrl("rtsp://h/cam/track1?x=1/track2", "cam", 1);
    ExpectUrl("rtsp://h/cam?x=1/", "cam", -1);
    ExpectUrl("rtsp://h/cam?track1", "cam", -1);
    ExpectUrl("rtsp://h/cam?x=1/track0", "cam", -1);
}

TEST(RequestUrl, SlashesAtTheEndsAndInARowDoNotCount)
{
    ExpectUrl("rtsp://h//cam///low//", "cam/low", -1);
    ExpectUrl("rtsp://h/cam//track1/", "cam", 0);
    ExpectUrl("rtsp://h/cam/track1//", "cam", 0);
    ExpectUrl("rtsp://h////", "", -1);
}

TEST(RequestUrl, PercentEncodingIsDecoded)
{
    ExpectUrl("rtsp://h/my%20cam/%74rack1", "my cam", 0);
    ExpectUrl("rtsp://h/a%2fb%2Ftrack1", "a/b", 0);
    ExpectUrl("rtsp://h/%3F%23%25", "?#%", -1);
    ExpectUrl("rtsp://h/t%C3%bcr", "t\xC3\xBCr", -1);
    ExpectUrl("rtsp://h/t\xC3\xBCr", "t\xC3\xBCr", -1);
    ExpectUrl("rtsp://h/%2525", "%25", -1);
    ExpectUrl("rtsp://h/a+b", "a+b", -1);
    for (const char *szPath : {"%", "%4", "%4g", "%g4", "a%00b", "%%41", "%-1"})
        ExpectInvalid("rtsp://h/"s + szPath);
    // Nothing behind the text is looked at.
    ExpectInvalid(std::string_view("rtsp://h/%41").substr(0, 11));
}

TEST(RequestUrl, TracksAreNumberedFrom1)
{
    ExpectUrl("/cam/track10", "cam", 9);
    ExpectUrl("/cam/track999999999", "cam", 999999998);
    for (const char *szNone : {"track", "track0", "track01", "track-1", "track+1", "track1x",
                               "Track1", "trackID=1", "xtrack1", "track1000000000"})
        ExpectUrl("/cam/"s + szNone, ("cam/"s + szNone).c_str(), -1);
    // Only the last segment is one.
    ExpectUrl("/track1/cam", "track1/cam", -1);
    ExpectUrl("/cam/track1/track2", "cam/track1", 1);
}

TEST(RequestUrl, APathLongerThanAnyStreamsNamesNone)
{
    const std::string longest(kLivePathSize - 1, 'x');
    ExpectUrl("/" + longest, longest.c_str(), -1);
    ExpectUrl("//" + longest + "//", longest.c_str(), -1);
    ExpectUrl("/" + longest + "x", "?", -1);
    ExpectUrl("/" + longest + "/x", "?", -1);
    ExpectUrl("/" + longest.substr(2) + "/x", (longest.substr(2) + "/x").c_str(), -1);
    ExpectUrl("/" + longest.substr(1) + "/x", "?", -1);
    // As long as a URL may be.
    ExpectUrl("/" + std::string(2047, 'x'), "?", -1);
    ExpectUrl("/cam?" + std::string(2043, 'x'), "cam", -1);
    // Escapes are counted as what they stand for.
    std::string escaped;
    for (size_t n = 0; n < longest.size(); n++)
        escaped += "%78";
    ExpectUrl("/" + escaped, longest.c_str(), -1);
}

TEST(LivePath, ThePlainFormHasNoSlashesAtItsEndsOrInARow)
{
    EXPECT_EQ(Normalized("cam"), "cam");
    EXPECT_EQ(Normalized("/cam/"), "cam");
    EXPECT_EQ(Normalized("//cam///low//"), "cam/low");
    EXPECT_EQ(Normalized("a b%20\xC3\xBC*"), "a b%20\xC3\xBC*");
}

TEST(LivePath, WhatAUrlCannotNameIsRefused)
{
    for (const std::string &path :
         {""s, "/"s, "//"s, "a?b"s, "a#b"s, "a\x01"s, "a\x1F"s, "a\x7F"s, "a\0b"s, "track1"s,
          "/track1/"s, "cam/track22"s, std::string(kLivePathSize, 'x')})
        EXPECT_EQ(Normalized(path), "refused:") << testing::PrintToString(path);
    const std::string longest(kLivePathSize - 1, 'x');
    EXPECT_EQ(Normalized("/" + longest + "/"), longest);
    EXPECT_EQ(Normalized("track1/cam"), "track1/cam");
    EXPECT_EQ(Normalized("cam/track0"), "cam/track0");
}

TEST(LivePath, EscapingAndReadingGiveThePathBack)
{
    EXPECT_EQ(Escaped("cam/low-1._~:@!$&+=", 100), "cam/low-1._~:@!$&+=");
    EXPECT_EQ(Escaped("a b,c;d\"e'f%<>\xC3\xBC?", 100), "a%20b%2Cc%3Bd%22e%27f%25%3C%3E%C3%BC%3F");
    for (int nByte = 1; nByte < 256; nByte++) {
        const std::string path = "a" + std::string(1, static_cast<char>(nByte)) + "b";
        ExpectUrl("rtsp://h/" + Escaped(path.c_str(), 100), path.c_str(), -1);
    }
}

TEST(LivePath, AnEscapedPathThatDoesNotFitIsNotCut)
{
    EXPECT_EQ(Escaped("ab", 3), "ab");
    EXPECT_EQ(Escaped("ab", 2), "does not fit");
    EXPECT_EQ(Escaped("a ", 5), "a%20");
    for (const size_t nCapacity : {4, 3, 2, 1, 0})
        EXPECT_EQ(Escaped("a ", nCapacity), "does not fit");
    EXPECT_EQ(Escaped("", 1), "");
    EXPECT_EQ(Escaped("", 0), "does not fit");
}
