#include "player_lines.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

using kovastream::LineOf;

KovaLiveEvent Event(uint32_t type)
{
    KovaLiveEvent event = {};
    event.size = sizeof(event);
    event.type = type;
    event.players = 2;
    event.address = "192.0.2.7";
    event.port = 40001;
    return event;
}

KovaLiveEvent Went(uint32_t reason)
{
    KovaLiveEvent event = Event(KOVA_LIVE_EVENT_PLAYER_WENT);
    event.reason = reason;
    return event;
}

TEST(PlayerLinesTest, Visits)
{
    KovaLiveEvent event = Event(KOVA_LIVE_EVENT_PLAYER_CAME);
    EXPECT_EQ(LineOf(event, "cam", true),
              "cam: player 192.0.2.7:40001 has come, by UDP; 2 players");
    event.interleaved = 1;
    event.players = 1;
    EXPECT_EQ(LineOf(event, "cam", true), "cam: player 192.0.2.7:40001 has come, by TCP; 1 player");
    EXPECT_EQ(LineOf(event, "cam", false), "");
}

TEST(PlayerLinesTest, ReasonsForGoing)
{
    const auto said = [](uint32_t reason) { return LineOf(Went(reason), "cam", true).substr(28); };
    EXPECT_EQ(said(KOVA_LIVE_WENT_TEARDOWN), "has left; 2 players");
    EXPECT_EQ(said(KOVA_LIVE_WENT_BYE), "has left; 2 players");
    EXPECT_EQ(said(KOVA_LIVE_WENT_CONNECTION), "has closed its connection; 2 players");
    EXPECT_EQ(said(KOVA_LIVE_WENT_SILENCE), "was silent for too long; 2 players");
    EXPECT_EQ(said(KOVA_LIVE_WENT_SLOW), "took nothing for too long; 2 players");
    EXPECT_EQ(said(KOVA_LIVE_WENT_STREAM), "was let go; 2 players");
}

TEST(PlayerLinesTest, TroubleIsSaidInEveryForm)
{
    EXPECT_EQ(LineOf(Went(KOVA_LIVE_WENT_TEARDOWN), "cam", false), "");
    EXPECT_EQ(LineOf(Went(KOVA_LIVE_WENT_SLOW), "cam", false),
              "cam: player 192.0.2.7:40001 took nothing for too long; 2 players");
    EXPECT_EQ(LineOf(Event(KOVA_LIVE_EVENT_OVERFLOW), "cam", false),
              "cam: player 192.0.2.7:40001 takes too little: it misses what comes until the next "
              "key frame");
}

TEST(PlayerLinesTest, OtherEventsAreNotSaid)
{
    EXPECT_EQ(LineOf(Event(KOVA_LIVE_EVENT_KEY_FRAME), "cam", true), "");
    EXPECT_EQ(LineOf(Event(KOVA_LIVE_EVENT_STREAM_READY), "cam", true), "");
}

TEST(PlayerLinesTest, LogLinesHaveATimeAndAWordForWhatIsWrong)
{
    const std::string stamp = "\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d ";
    const auto like = [&stamp](int32_t level, const std::string &rest) {
        return std::regex_match(kovastream::Stamped(level, "text"), std::regex(stamp + rest));
    };
    EXPECT_TRUE(like(KOVA_LIVE_LOG_ERROR, "error: text"));
    EXPECT_TRUE(like(KOVA_LIVE_LOG_WARNING, "warning: text"));
    EXPECT_TRUE(like(KOVA_LIVE_LOG_INFO, "text"));
    EXPECT_TRUE(like(KOVA_LIVE_LOG_DEBUG, "text"));
}

} // namespace
