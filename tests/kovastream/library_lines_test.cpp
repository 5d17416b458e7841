#include "library_lines.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Chosen;
using kovastream::LibraryLines;

constexpr char kLines[] =
    "Payload Id: 96\n"
    "2026/11/22 05:10:00 KovaRtspStreamerPushData, Video Overflow !!!\n"
    "2026/11/22 05:10:00 pHandleRequestProc, Client RTSP Handler connection closed !!!\n"
    "Client Waiting !!!\n"
    "2026-11-22 05:10:00 no stamp\n"
    "\n"
    "2026/11/22 05:10:01 pSenderProc, Send RTP Packet fail, Error: 104(Connection reset)";

TEST(LibraryLinesTest, FailuresAreTheLinesWithALevelButForPlayersThatLeave)
{
    EXPECT_EQ(Chosen(kLines, LibraryLines::Failures),
              "2026/11/22 05:10:00 KovaRtspStreamerPushData, Video Overflow !!!\n"
              "2026/11/22 05:10:01 pSenderProc, Send RTP Packet fail, Error: 104(Connection "
              "reset)");
}

TEST(LibraryLinesTest, AllAndNone)
{
    EXPECT_EQ(Chosen(kLines, LibraryLines::All), kLines);
    EXPECT_EQ(Chosen(kLines, LibraryLines::None), "");
    EXPECT_EQ(Chosen("", LibraryLines::Failures), "");
}

} // namespace
