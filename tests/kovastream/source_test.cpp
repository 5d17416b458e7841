#include "source.h"

#include <gtest/gtest.h>

namespace {

using kovastream::TranscodeAdvice;

TEST(SourceTest, AdviceCanBePastedIntoAShell)
{
    EXPECT_EQ(TranscodeAdvice("/tmp/a-b_c.ts", true, false),
              "ffmpeg -v error -i /tmp/a-b_c.ts -c:v copy -c:a aac -ac 2 -b:a 128k -f mpegts - | "
              "kovastream -");
    EXPECT_EQ(TranscodeAdvice("it's $1.avi", false, true),
              "ffmpeg -v error -i 'it'\\''s $1.avi' -c:v libx264 -pix_fmt yuv420p -bf 0 -g 50 -c:a "
              "copy -f mpegts - | kovastream -");
}

} // namespace
