#include "figures.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Figures;
using kovastream::Player;
using kovastream::Rates;
using State = kovastream::Served::State;
using Fields = std::vector<std::string>;

Figures Playing()
{
    Figures figures;
    figures.uri = "cam";
    figures.input = Figures::Input::Flowing;
    figures.served.state = State::Flowing;
    figures.served.clients = 2;
    figures.served.kilobitsOut = 1224;
    figures.maxClients = 32;
    return figures;
}

TEST(FiguresTest, RatesAreThoseBetweenTwoLooks)
{
    Figures before = Playing();
    before.pictures = 100;
    before.bytes = 1000000;
    Figures now = before;
    now.pictures += 50;
    now.bytes += 250000;
    const Rates rates = kovastream::RatesBetween(before, now, 2);
    EXPECT_EQ(rates.fps, 25);
    EXPECT_EQ(rates.kilobitsIn, 1000); // 1000 bits each
    EXPECT_EQ(kovastream::RatesBetween(before, now, 0).fps, 0);
}

TEST(FiguresTest, LineHasHoursMinutesAndSeconds)
{
    Figures figures = Playing();
    figures.position = int64_t{36610999999};
    EXPECT_EQ(kovastream::StatusFields(figures, {25, 612.4}),
              (Fields{"cam", "streaming    ", "10:10:10", "25.0 fps", "2 of 32 clients",
                      "612 kbit/s in", "1224 kbit/s out"}));
    figures.position = int64_t{3599999999};
    figures.maxClients = 1;
    figures.served.kilobitsOut = 0;
    EXPECT_EQ(kovastream::StatusFields(figures, {0, 0}),
              (Fields{"cam", "streaming    ", "0:59:59", "0.0 fps", "2 of 1 client", "0 kbit/s in",
                      "0 kbit/s out"}));
}

TEST(FiguresTest, ObjectHasAllFieldsInTheirOrder)
{
    Figures figures = Playing();
    figures.position = 83120400;
    const std::string object = kovastream::StatusJson(figures, {25, 612.44});
    EXPECT_EQ(
        object.substr(object.find("Z\",")),
        "Z\",\"uri\":\"cam\",\"position\":83.120,\"fps\":25.0,\"in_kbps\":612.4,\"clients\":2,"
        "\"out_kbps\":1224,\"status\":\"flowing\",\"max_clients\":32}");
}

TEST(FiguresTest, InputComesBeforePlayers)
{
    const auto word = [](Figures::Input input, State state) {
        Figures figures = Playing();
        figures.input = input;
        figures.served.state = state;
        const std::string object = kovastream::StatusJson(figures, {});
        const size_t at = object.find("\"status\":\"") + 10;
        return kovastream::StatusFields(figures, {})[1] +
               object.substr(at, object.find('"', at) - at);
    };
    using Input = Figures::Input;
    EXPECT_EQ(word(Input::Opening, State::Flowing), "no input yet opening");
    EXPECT_EQ(word(Input::Waiting, State::Flowing), "no input     waiting");
    EXPECT_EQ(word(Input::Ended, State::Flowing), "ended        ended");
    EXPECT_EQ(word(Input::Flowing, State::Flowing), "streaming    flowing");
    EXPECT_EQ(word(Input::Flowing, State::Idle), "no viewers   idle");
    EXPECT_EQ(word(Input::Flowing, State::Stalled), "stalled      stalled");
    EXPECT_EQ(word(Input::Flowing, State::NotReady), "getting readynot_ready");
}

Player Watching()
{
    Player player;
    player.address = "192.0.2.7";
    player.port = 40001;
    player.user = "anna";
    player.playing = 3723.4;
    player.kilobitsOut = 611.6;
    player.late = 12;
    player.loss = 0.0156;
    player.jitter = 2.5;
    player.roundTrip = 7.25;
    return player;
}

TEST(FiguresTest, PlayersStandBehindTheOtherFields)
{
    Figures figures = Playing();
    const auto players = [&figures] {
        const std::string object = kovastream::StatusJson(figures, {});
        return object.substr(object.find("\"max_clients\":32") + 16);
    };
    EXPECT_EQ(players(), "}");
    figures.served.listed = true;
    EXPECT_EQ(players(), ",\"players\":[]}");
    figures.served.players = {Watching(), Watching()};
    figures.served.players[1].interleaved = true;
    figures.served.players[1].paused = true;
    figures.served.players[1].user = "a\\b";
    const std::string rest = "\"playing\":3723.400,\"out_kbps\":612,\"late_packets\":12,"
                             "\"loss\":0.016,\"jitter_ms\":2.5,\"round_trip_ms\":7.2,\"paused\":";
    EXPECT_EQ(players(), ",\"players\":[{\"address\":\"192.0.2.7\",\"port\":40001,"
                         "\"transport\":\"udp\",\"user\":\"anna\"," +
                             rest +
                             "false},{\"address\":\"192.0.2.7\",\"port\":40001,"
                             "\"transport\":\"tcp\",\"user\":\"a\\\\b\"," +
                             rest + "true}]}");
}

TEST(FiguresTest, LineOfAPlayer)
{
    Player player = Watching();
    EXPECT_EQ(kovastream::PlayerFields(player),
              (Fields{"  192.0.2.7:40001", "UDP", "1:02:03", "", "anna", "1.6 % lost",
                      "612 kbit/s out", "12 late", "jitter 2 ms"}));
    player.interleaved = true;
    player.paused = true;
    EXPECT_EQ(kovastream::PlayerFields(player)[1], "TCP paused");
}

} // namespace
