#include "classic/rtsp/request_info.h"
#include "classic/rtsp/status_reasons.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <map>
#include <string>

namespace {

const std::map<int, std::string> kReasons = {
    {100, "Continue"},
    {101, "Switching Protocols"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {250, "Low on Storage Space"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Moved Temporarily"},
    {303, "See Other"},
    {304, "Not Modified"},
    {305, "Use Proxy"},
    {307, "Temporary Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Time-out"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Request Entity Too Large"},
    {414, "Request-URI Too Large"},
    {415, "Unsupported Media Type"},
    {416, "Request Range Not Satisfiable"},
    {417, "Expectation Failed"},
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

TEST(StatusReasons, EveryCodeOfTheTableAndNoOther)
{
    for (int nCode = 0; nCode <= 1000; nCode++) {
        char szReason[kReasonSize] = {};
        ResponseStatusSetting(nCode, szReason);
        const auto found = kReasons.find(nCode);
        EXPECT_EQ(std::string(szReason), found == kReasons.end() ? "" : found->second) << nCode;
    }
}

TEST(StatusReasons, CodesFarAwayWriteNothing)
{
    for (const int nCode : {-1, INT_MIN, INT_MAX, 100 + 65536}) {
        char szReason[kReasonSize] = {};
        ResponseStatusSetting(nCode, szReason);
        EXPECT_STREQ(szReason, "") << nCode;
    }
}

TEST(StatusReasons, NoTerminatorIsWritten)
{
    char szReason[kReasonSize];
    memset(szReason, '#', sizeof(szReason));
    ResponseStatusSetting(200, szReason);
    EXPECT_EQ(std::string(szReason, 4), "OK##");
    ResponseStatusSetting(999, szReason);
    EXPECT_EQ(std::string(szReason, 4), "OK##");
}

TEST(StatusReasons, NullBufferIsIgnored)
{
    ResponseStatusSetting(200, nullptr);
    SUCCEED();
}

} // namespace
