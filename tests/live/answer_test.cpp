#include "live/rtsp/answer.h"
#include "live/rtsp/date.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <limits>
#include <random>
#include <string>

// RFC 2326, sections 7, 12.18 and 12.36.

namespace {

using namespace std::string_literals;

constexpr int64_t kMoment = 784111777;
const std::string kDateLine = "Date: Sun, 06 Nov 1994 08:49:37 GMT\r\n";

/// A request with one CSeq header.
KovaRequest RequestWith(std::string_view cseq)
{
    KovaRequest request = {};
    request.nHeaders = 1;
    request.headers[0] = {"cseq", cseq};
    return request;
}

/// An answer in a buffer with a mark behind it.
struct Sheet {
    explicit Sheet(size_t nCapacity = 1000) : text(nCapacity + 1, 'x')
    {
        answer.szText = text.data();
        answer.nCapacity = nCapacity;
    }
    std::string Text() const
    {
        EXPECT_EQ(text[answer.nCapacity], 'x') << "written behind the buffer";
        EXPECT_EQ(strlen(answer.szText), answer.nLength);
        return std::string(answer.szText, answer.nLength);
    }
    std::string text;
    KovaAnswer answer{};
};

std::string DateOf(int64_t nSeconds)
{
    char szDate[kDateSize];
    memset(szDate, 'x', sizeof(szDate));
    KovaDateWrite(nSeconds, szDate);
    return szDate;
}

} // namespace

TEST(Answer, BeginsWithStatusCSeqDateAndServer)
{
    Sheet sheet;
    KovaAnswerBegin(&sheet.answer, 200, RequestWith("7"), kMoment, "Kova/1");
    KovaAnswerHeader(&sheet.answer, "Public", "OPTIONS, %s", "PLAY");
    EXPECT_TRUE(KovaAnswerEnd(&sheet.answer, nullptr, {}));
    EXPECT_EQ(sheet.Text(), "RTSP/1.0 200 OK\r\nCSeq: 7\r\n" + kDateLine +
                                "Server: Kova/1\r\nPublic: OPTIONS, PLAY\r\n\r\n");
}

TEST(Answer, WithoutServerTextThereIsNoServerHeader)
{
    Sheet sheet;
    KovaAnswerBegin(&sheet.answer, 404, RequestWith("4294967296"), kMoment, nullptr);
    EXPECT_TRUE(KovaAnswerEnd(&sheet.answer, nullptr, {}));
    EXPECT_EQ(sheet.Text(), "RTSP/1.0 404 Not Found\r\nCSeq: 4294967296\r\n" + kDateLine + "\r\n");
}

TEST(Answer, ACSeqThatIsNoNumberIsLeftOut)
{
    for (const char *szCSeq : {"", "x", "1 2", "-1", "1x", "123456789012345678901"}) {
        Sheet sheet;
        KovaAnswerBegin(&sheet.answer, 400, RequestWith(szCSeq), kMoment, nullptr);
        EXPECT_TRUE(KovaAnswerEnd(&sheet.answer, nullptr, {}));
        EXPECT_EQ(sheet.Text(), "RTSP/1.0 400 Bad Request\r\n" + kDateLine + "\r\n") << szCSeq;
    }
    Sheet sheet;
    KovaAnswerBegin(&sheet.answer, 400, KovaRequest(), kMoment, nullptr);
    EXPECT_EQ(sheet.Text(), "RTSP/1.0 400 Bad Request\r\n" + kDateLine);
    KovaAnswerBegin(&sheet.answer, 400, RequestWith("12345678901234567890"), kMoment, nullptr);
    EXPECT_NE(sheet.Text().find("CSeq: 12345678901234567890\r\n"), std::string::npos);
}

TEST(Answer, ABodyHasItsTypeAndLength)
{
    Sheet sheet;
    KovaAnswerBegin(&sheet.answer, 200, RequestWith("1"), kMoment, nullptr);
    const std::string body = "v=0\r\n\0\r\n"s;
    EXPECT_TRUE(KovaAnswerEnd(&sheet.answer, "application/sdp", body));
    EXPECT_EQ(std::string(sheet.answer.szText, sheet.answer.nLength),
              "RTSP/1.0 200 OK\r\nCSeq: 1\r\n" + kDateLine +
                  "Content-Type: application/sdp\r\nContent-Length: 8\r\n\r\n" + body);
    EXPECT_EQ(sheet.answer.szText[sheet.answer.nLength], '\0');
}

TEST(Answer, AnEmptyBodyOfATypeHasALengthAndNoTypeMeansNoBody)
{
    Sheet sheet;
    KovaAnswerBegin(&sheet.answer, 200, RequestWith("1"), kMoment, nullptr);
    EXPECT_TRUE(KovaAnswerEnd(&sheet.answer, "text/parameters", {}));
    EXPECT_EQ(sheet.Text(), "RTSP/1.0 200 OK\r\nCSeq: 1\r\n" + kDateLine +
                                "Content-Type: text/parameters\r\nContent-Length: 0\r\n\r\n");
    KovaAnswerBegin(&sheet.answer, 200, RequestWith("1"), kMoment, nullptr);
    EXPECT_TRUE(KovaAnswerEnd(&sheet.answer, nullptr, "never"));
    EXPECT_EQ(sheet.Text(), "RTSP/1.0 200 OK\r\nCSeq: 1\r\n" + kDateLine + "\r\n");
}

TEST(Answer, AControlByteInAValueBeginsNoLine)
{
    Sheet sheet;
    KovaAnswerBegin(&sheet.answer, 200, KovaRequest(), kMoment, "a\r\nb\x7F");
    KovaAnswerHeader(&sheet.answer, "Unsupported", "%s", "x\ny\tz\xC3\xBC");
    EXPECT_EQ(sheet.Text(), "RTSP/1.0 200 OK\r\n" + kDateLine +
                                "Server: a??b?\r\nUnsupported: x?y\tz\xC3\xBC\r\n");
}

TEST(Answer, WhatDoesNotFitIsLeftOutByWholeLinesAndTold)
{
    Sheet whole;
    KovaAnswerBegin(&whole.answer, 200, RequestWith("1"), kMoment, "s");
    KovaAnswerHeader(&whole.answer, "X", "%d", 12345);
    ASSERT_TRUE(KovaAnswerEnd(&whole.answer, "t/t", "body"));
    const std::string expected = whole.Text();
    for (size_t nCapacity = 0; nCapacity <= expected.size() + 1; nCapacity++) {
        Sheet sheet(nCapacity);
        KovaAnswerBegin(&sheet.answer, 200, RequestWith("1"), kMoment, "s");
        KovaAnswerHeader(&sheet.answer, "X", "%d", 12345);
        EXPECT_EQ(KovaAnswerEnd(&sheet.answer, "t/t", "body"), nCapacity > expected.size());
        EXPECT_EQ(sheet.answer.bFits, nCapacity > expected.size());
        EXPECT_EQ(sheet.text[nCapacity], 'x');
        if (nCapacity == 0)
            continue;
        const std::string text = sheet.Text();
        EXPECT_EQ(expected.compare(0, text.size(), text), 0);
        EXPECT_TRUE(text.empty() || text.back() == '\n' || text == expected) << text;
    }
}

TEST(Answer, EveryStatusOfTheRfcHasItsReason)
{
    const std::pair<int, const char *> reasons[] = {
        {100, "Continue"},
        {200, "OK"},
        {201, "Created"},
        {250, "Low on Storage Space"},
        {300, "Multiple Choices"},
        {301, "Moved Permanently"},
        {302, "Moved Temporarily"},
        {303, "See Other"},
        {304, "Not Modified"},
        {305, "Use Proxy"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {402, "Payment Required"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {406, "Not Acceptable"},
        {407, "Proxy Authentication Required"},
        {408, "Request Time-out"},
        {410, "Gone"},
        {411, "Length Required"},
        {412, "Precondition Failed"},
        {413, "Request Entity Too Large"},
        {414, "Request-URI Too Large"},
        {415, "Unsupported Media Type"},
        {451, "Parameter Not Understood"},
        {452, "Conference Not Found"},
        {453, "Not Enough Bandwidth"},
        {454, "Session Not Found"},
        {455, "Method Not Valid in This State"},
        {456, "Header Field Not Valid for Resource"},
        {457, "Invalid Range"},
        {458, "Parameter Is Read-Only"},
        {459, "Aggregate operation not allowed"},
        {460, "Only aggregate operation allowed"},
        {461, "Unsupported transport"},
        {462, "Destination unreachable"},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {502, "Bad Gateway"},
        {503, "Service Unavailable"},
        {504, "Gateway Time-out"},
        {505, "RTSP Version not supported"},
        {551, "Option not supported"},
    };
    int nKnown = 0;
    for (int nStatus = 0; nStatus < 65536; nStatus++)
        nKnown += KovaAnswerReason(static_cast<uint16_t>(nStatus))[0] != '\0';
    for (const auto &reason : reasons) {
        EXPECT_STREQ(KovaAnswerReason(static_cast<uint16_t>(reason.first)), reason.second);
        nKnown--;
    }
    EXPECT_EQ(nKnown, 0);
}

TEST(Date, IsWrittenAsRfc1123HasIt)
{
    EXPECT_EQ(DateOf(kMoment), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(DateOf(0), "Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_EQ(DateOf(-1), "Wed, 31 Dec 1969 23:59:59 GMT");
    EXPECT_EQ(DateOf(951782400), "Tue, 29 Feb 2000 00:00:00 GMT");
    EXPECT_EQ(DateOf(951868800), "Wed, 01 Mar 2000 00:00:00 GMT");
}

TEST(Date, GoesOnAfter2038AsFarAsTheSystemsOwnTimeDoes)
{
    // Where time_t has 32 bits, the system's clock begins anew in 1901 as well.
    const auto later = [](int64_t nSeconds, const char *szDate) {
        const bool bGoesOn = sizeof(time_t) > sizeof(int32_t);
        EXPECT_EQ(DateOf(nSeconds), bGoesOn ? szDate : DateOf(static_cast<int32_t>(nSeconds)));
    };
    later(2147483648, "Tue, 19 Jan 2038 03:14:08 GMT");
    later(4107542400, "Mon, 01 Mar 2100 00:00:00 GMT");
    later(253402300799, "Fri, 31 Dec 9999 23:59:59 GMT");
}

TEST(Date, IsTheSystemsInEnglish)
{
    const char *szLocale = setlocale(LC_ALL, nullptr);
    const std::string locale = szLocale != nullptr ? szLocale : "C";
    setlocale(LC_ALL, "C");
    std::mt19937_64 random(1);
    int64_t nSeconds = -62135596800;
    for (int n = 0; n < 200000; n++) {
        tm date;
        const time_t tMoment = nSeconds;
        ASSERT_NE(gmtime_r(&tMoment, &date), nullptr);
        char szExpected[64];
        strftime(szExpected, sizeof(szExpected), "%a, %d %b ", &date);
        char szRest[64];
        snprintf(szRest, sizeof(szRest), "%04d %02d:%02d:%02d GMT", date.tm_year + 1900,
                 date.tm_hour, date.tm_min, date.tm_sec);
        ASSERT_EQ(DateOf(nSeconds), std::string(szExpected) + szRest);
        nSeconds = -62135596800 + static_cast<int64_t>(random() % 315537897600);
    }
    setlocale(LC_ALL, locale.c_str());
}
