#include "figures.h"

#include "kova_rtsp_server.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Figures;
using kovastream::Rates;
using Fields = std::vector<std::string>;

Figures Playing()
{
    Figures figures;
    figures.uri = "cam";
    figures.input = Figures::Input::Flowing;
    figures.status = KOVA_STREAM_FLOWING;
    figures.clients = 2;
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
    EXPECT_EQ(kovastream::StatusFields(figures, {25, 612.4, 1224}),
              (Fields{"cam", "streaming    ", "10:10:10", "25.0 fps", "2 of 32 clients",
                      "612 kbit/s in", "1224 kbit/s out"}));
    figures.position = int64_t{3599999999};
    figures.maxClients = 1;
    EXPECT_EQ(kovastream::StatusFields(figures, {0, 0, 0}),
              (Fields{"cam", "streaming    ", "0:59:59", "0.0 fps", "2 of 1 client", "0 kbit/s in",
                      "0 kbit/s out"}));
}

TEST(FiguresTest, ObjectHasAllFieldsInTheirOrder)
{
    Figures figures = Playing();
    figures.position = 83120400;
    const std::string object = kovastream::StatusJson(figures, {25, 612.44, 1224});
    EXPECT_EQ(
        object.substr(object.find("Z\",")),
        "Z\",\"uri\":\"cam\",\"position\":83.120,\"fps\":25.0,\"in_kbps\":612.4,\"clients\":2,"
        "\"out_kbps\":1224,\"status\":\"flowing\",\"max_clients\":32}");
}

TEST(FiguresTest, InputComesBeforePlayers)
{
    const auto word = [](Figures::Input input, uint32_t status) {
        Figures figures = Playing();
        figures.input = input;
        figures.status = status;
        const std::string object = kovastream::StatusJson(figures, {});
        const size_t at = object.find("\"status\":\"") + 10;
        return kovastream::StatusFields(figures, {})[1] +
               object.substr(at, object.find('"', at) - at);
    };
    using Input = Figures::Input;
    EXPECT_EQ(word(Input::Opening, KOVA_STREAM_FLOWING), "no input yet opening");
    EXPECT_EQ(word(Input::Waiting, KOVA_STREAM_FLOWING), "no input     waiting");
    EXPECT_EQ(word(Input::Ended, KOVA_STREAM_FLOWING), "ended        ended");
    EXPECT_EQ(word(Input::Flowing, KOVA_STREAM_FLOWING), "streaming    flowing");
    EXPECT_EQ(word(Input::Flowing, KOVA_STREAM_IDLE), "no viewers   idle");
    EXPECT_EQ(word(Input::Flowing, KOVA_STREAM_STALLED), "stalled      stalled");
    EXPECT_EQ(word(Input::Flowing, KOVA_STREAM_NOT_READY), "getting readynot_ready");
}

} // namespace
