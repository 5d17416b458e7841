#include "key_frames.h"

#include "h264_writer.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Entry;
using kovastream::EntryOf;
using kovastream::KeyFrames;
using Bytes = H264Writer::Bytes;
using Slice = H264Writer::Slice;

constexpr int kRecoveryPoint = 6;

constexpr char kAdvice[] = ". Let the encoder make one every second or two (-g 50, for x264 "
                           "keyint=50)";
constexpr char kRecoveryAdvice[] =
    ". They cannot begin at the recovery points of open GOPs and intra refresh: let the encoder "
    "make IDR pictures (-g 50 -x264-params open-gop=0:intra-refresh=0)";

Entry EntryOfUnits(const std::vector<Bytes> &units)
{
    Bytes all;
    for (const Bytes &unit : units)
        all.insert(all.end(), unit.begin(), unit.end());
    return EntryOf(all.data(), all.size());
}

const Bytes kP = H264Writer::Picture(Slice::P, 2, 1);
const Bytes kIdr = H264Writer::Picture(Slice::Idr, 0, 0);

TEST(EntryTest, IdrPictureIsAKeyFrame)
{
    EXPECT_EQ(EntryOfUnits({H264Writer::Sps(), H264Writer::Pps(), kIdr}), Entry::Key);
    EXPECT_EQ(EntryOfUnits({H264Writer::Sei(kRecoveryPoint, 4), kIdr}), Entry::Key);
}

TEST(EntryTest, ParameterSetsAloneAreNoEntry)
{
    EXPECT_EQ(EntryOfUnits({H264Writer::Sps(), H264Writer::Pps(), kP}), Entry::None);
    EXPECT_EQ(EntryOfUnits({}), Entry::None);
}

TEST(EntryTest, RecoveryPointIsFoundBehindOtherMessages)
{
    EXPECT_EQ(EntryOfUnits({H264Writer::Sei(kRecoveryPoint, 2), kP}), Entry::Recovery);
    EXPECT_EQ(EntryOfUnits({H264Writer::Sei(1, 3), kP}), Entry::None);
    EXPECT_EQ(EntryOfUnits({H264Writer::Sei(5, 300), H264Writer::Sei(kRecoveryPoint, 1), kP}),
              Entry::Recovery);
    // Two messages in one unit; the first one's bytes have one between them that is not its own.
    EXPECT_EQ(EntryOfUnits({{0, 0, 1, 6, 1, 4, 0, 0, 3, 0, 1, 6, 1, 0xC4, 0x80}, kP}),
              Entry::Recovery);
    EXPECT_EQ(EntryOfUnits({{0, 0, 1, 6, 1, 4, 6, 6, 6, 6, 0x80}, kP}), Entry::None);
}

TEST(EntryTest, MessagesOfTheNextPictureAreNotThisOnes)
{
    EXPECT_EQ(EntryOfUnits({kP, H264Writer::Sei(kRecoveryPoint, 1)}), Entry::None);
    EXPECT_EQ(EntryOfUnits({kP, kIdr}), Entry::None);
}

TEST(EntryTest, MessageThatIsCutOffIsReadToItsEnd)
{
    EXPECT_EQ(EntryOfUnits({{0, 0, 1, 6, 255, 255, 255}, kP}), Entry::None);
    EXPECT_EQ(EntryOfUnits({{0, 0, 1, 6, 1, 255, 255, 200, 1}, kP}), Entry::None);
    EXPECT_EQ(EntryOfUnits({{0, 0, 1, 6}}), Entry::None);
}

struct KeyFramesTest : testing::Test {
    KeyFrames frames{true};
    std::vector<std::string> said;

    /// Pictures 40 ms apart from `begin` to before `end`, ms, the first one as given.
    void Play(int64_t begin, int64_t end, Entry first, Entry others = Entry::None)
    {
        for (int64_t time = begin; time < end; time += 40) {
            const auto text = frames.Look(time == begin ? first : others, time * 1000);
            if (text.has_value())
                said.push_back(std::to_string(time) + ": " + *text);
        }
    }
    using Said = std::vector<std::string>;
};

TEST_F(KeyFramesTest, EverySecondOrTwoIsWell)
{
    for (int64_t at = 0; at < 60000; at += 2080)
        Play(at, at + 2080, Entry::Key);
    EXPECT_EQ(said, Said{});
}

TEST_F(KeyFramesTest, DistanceIsSaidAtTheSecondKeyFrame)
{
    for (int64_t at = 0; at < 100000; at += 10000)
        Play(at, at + 10000, Entry::Key);
    EXPECT_EQ(said, Said{std::string("10000: key frames (IDR) are 10.0 s apart: players wait up to "
                                     "10.0 s for their first picture") +
                         kAdvice});
}

TEST_F(KeyFramesTest, DistanceIsSaidAgainWhenItDoubles)
{
    Play(0, 4000, Entry::Key);
    Play(4000, 11960, Entry::Key);
    Play(11960, 19960, Entry::Key);
    Play(19960, 20000, Entry::Key);
    ASSERT_EQ(said.size(), 2U);
    EXPECT_EQ(said[0].substr(0, 37), "4000: key frames (IDR) are 4.0 s apar");
    EXPECT_EQ(said[1].substr(0, 37), "19960: key frames (IDR) are 8.0 s apa");
}

TEST_F(KeyFramesTest, FirstKeyFrameTellsNoDistance)
{
    Play(0, 5000, Entry::None);
    Play(5000, 6000, Entry::Key);
    Play(6000, 7000, Entry::Key);
    EXPECT_EQ(said, Said{});
}

TEST_F(KeyFramesTest, NoneForTwelveSecondsIsSaidOnce)
{
    Play(0, 60000, Entry::Key);
    EXPECT_EQ(said, Said{std::string("12040: no key frame (IDR) for 12.0 s: players wait for the "
                                     "next one") +
                         kAdvice});
}

TEST_F(KeyFramesTest, NoneAtAllIsSaidOnce)
{
    Play(0, 60000, Entry::None);
    EXPECT_EQ(said, Said{std::string("12040: no key frame (IDR) has come, and players cannot begin "
                                     "without") +
                         kAdvice});
}

TEST_F(KeyFramesTest, RecoveryPointsWithoutKeyFramesAreSaidSoon)
{
    for (int64_t at = 0; at < 20000; at += 1000)
        Play(at, at + 1000, Entry::Recovery);
    EXPECT_EQ(said, Said{std::string("2120: no key frame (IDR) has come, and players cannot begin "
                                     "without") +
                         kRecoveryAdvice});
}

TEST_F(KeyFramesTest, RecoveryPointsBehindTheOnlyKeyFrameAreSaidSoon)
{
    Play(0, 1000, Entry::Key);
    for (int64_t at = 1000; at < 20000; at += 1000)
        Play(at, at + 1000, Entry::Recovery);
    EXPECT_EQ(said,
              Said{std::string("2120: no key frame (IDR) for 2.1 s: players wait for the next "
                               "one") +
                   kRecoveryAdvice});
}

TEST_F(KeyFramesTest, RecoveryPointsBetweenCloseKeyFramesAreWell)
{
    for (int64_t at = 0; at < 20000; at += 2000) {
        Play(at, at + 1000, Entry::Key);
        Play(at + 1000, at + 2000, Entry::Recovery);
    }
    EXPECT_EQ(said, Said{});
}

// Where newcomers are given the last picture to begin with at once.

struct KeptGroupsTest : KeyFramesTest {
    KeptGroupsTest() : frames(false) {}

    void Play(int64_t begin, int64_t end, Entry first)
    {
        for (int64_t time = begin; time < end; time += 40) {
            const auto text = frames.Look(time == begin ? first : Entry::None, time * 1000);
            if (text.has_value())
                said.push_back(std::to_string(time) + ": " + *text);
        }
    }
    KeyFrames frames;
};

TEST_F(KeptGroupsTest, DistanceIsThatOfTheFirstPicture)
{
    for (int64_t at = 0; at < 100000; at += 20000)
        Play(at, at + 20000, Entry::Key);
    EXPECT_EQ(said, Said{std::string("20000: key frames are 20.0 s apart: what players see first "
                                     "may be as old") +
                         kAdvice});
}

TEST_F(KeptGroupsTest, RecoveryPointsAreAsGoodAsKeyFrames)
{
    for (int64_t at = 0; at < 60000; at += 2000)
        Play(at, at + 2000, Entry::Recovery);
    EXPECT_EQ(said, Said{});
}

TEST_F(KeptGroupsTest, NoneAtAllIsSaidOnce)
{
    Play(0, 60000, Entry::None);
    EXPECT_EQ(said, Said{std::string("12040: no key frame (IDR) has come, and players cannot begin "
                                     "without") +
                         kAdvice});
}

} // namespace
