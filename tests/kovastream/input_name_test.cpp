#include "input_name.h"

#include "failure.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include <unistd.h>

namespace {

using kovastream::InputName;
using kovastream::Limits;
using kovastream::NameInputs;
using Names = std::vector<std::string>;

/// In a folder of its own, where names can be tried.
struct InputNameTest : testing::Test {
    InputNameTest()
    {
        EXPECT_NE(mkdtemp(folder), nullptr);
        EXPECT_EQ(chdir(folder), 0);
    }
    ~InputNameTest() override
    {
        for (const std::string &name : made)
            unlink(name.c_str());
        EXPECT_EQ(chdir("/"), 0);
        EXPECT_EQ(rmdir(folder), 0);
    }
    void Make(const std::string &name)
    {
        std::ofstream file(name);
        made.push_back(name);
    }
    static InputName One(const std::string &argument)
    {
        return NameInputs({argument}).front();
    }

    char folder[32] = "/tmp/kovastream-names-XXXXXX";
    Names made;
};

TEST_F(InputNameTest, StreamsWithoutAUriAreCalledByTheirPlace)
{
    const std::vector<InputName> names = NameInputs({"a.mp4", "cam=b.mp4", "c.mp4"});
    ASSERT_EQ(names.size(), 3U);
    EXPECT_EQ(names[0].uri, "live");
    EXPECT_EQ(names[1].uri, "cam");
    EXPECT_EQ(names[1].sources, Names{"b.mp4"});
    EXPECT_EQ(names[2].uri, "live3");
}

TEST_F(InputNameTest, UriHasTwoTo255Characters)
{
    EXPECT_THROW(One("x=a.mp4"), kovastream::Failure);
    EXPECT_EQ(One("xy=a.mp4").uri, "xy");
    const std::string longest(255, 'x');
    EXPECT_EQ(One(longest + "=a.mp4").uri, longest);
    EXPECT_THROW(One(longest + "x=a.mp4"), kovastream::Failure);
}

TEST_F(InputNameTest, UriDoesNotEndLikeATrack)
{
    for (const char *uri : {"track1", "cam/track2", "a/b/track123456789"})
        EXPECT_THROW(One(std::string(uri) + "=a.mp4"), kovastream::Failure) << uri;
    for (const char *uri : {"track", "track0", "track01", "track1234567890", "track1a", "xtrack1",
                            "track1/cam", "tr"})
        EXPECT_EQ(One(std::string(uri) + "=a.mp4").uri, uri);
}

TEST_F(InputNameTest, ServerThatTakesAnyUriGetsUpTo1024Characters)
{
    Limits any;
    any.anyUri = true;
    const std::string longest(1024, 'x');
    EXPECT_EQ(NameInputs({longest + "=a.mp4"}, any).front().uri, longest);
    EXPECT_THROW(NameInputs({longest + "x=a.mp4"}, any), kovastream::Failure);
    EXPECT_THROW(NameInputs({"x=a.mp4"}, any), kovastream::Failure);
    EXPECT_EQ(NameInputs({"cam/track1=a.mp4"}, any).front().uri, "cam/track1");
}

TEST_F(InputNameTest, UriHasNoSlashAtItsEnds)
{
    EXPECT_EQ(One("a/b=a.mp4").uri, "a/b");
    EXPECT_THROW(One("/ab=a.mp4"), kovastream::Failure);
    EXPECT_THROW(One("ab/=a.mp4"), kovastream::Failure);
}

TEST_F(InputNameTest, WordsOfRequestsAreRefusedInAUri)
{
    for (const char *uri : {"aSession", "client_port1", "interleaved", "RTSP/x"})
        EXPECT_THROW(One(std::string(uri) + "=a.mp4"), kovastream::Failure) << uri;
    EXPECT_EQ(One("session=a.mp4").uri, "session");
}

TEST_F(InputNameTest, EqualsSignsInPathsAndAddressesCutNothing)
{
    Make("x=y.mp4");
    EXPECT_EQ(One("x=y.mp4").sources, Names{"x=y.mp4"});
    EXPECT_EQ(One("http://host/a?b=c").sources, Names{"http://host/a?b=c"});
    const InputName named = One("cam=http://host/a?b=c");
    EXPECT_EQ(named.uri, "cam");
    EXPECT_EQ(named.sources, Names{"http://host/a?b=c"});
}

TEST_F(InputNameTest, PlusSignJoinsTwoInputs)
{
    EXPECT_EQ(One("a.h264+a.aac").sources, (Names{"a.h264", "a.aac"}));
    EXPECT_EQ(One("a+b").sources, Names{"a+b"});
    EXPECT_EQ(One("http://host/a.x+b.y").sources, Names{"http://host/a.x+b.y"});
    // What is there counts more than what names look like.
    Make("one+1.h264");
    EXPECT_EQ(One("one+1.h264").sources, Names{"one+1.h264"});
    Make("sound");
    EXPECT_EQ(One("one+1.h264+sound").sources, (Names{"one+1.h264", "sound"}));
}

TEST_F(InputNameTest, EachUriAndStandardInputAreForOneStream)
{
    EXPECT_THROW(NameInputs({"cam=a.mp4", "cam=b.mp4"}), kovastream::Failure);
    EXPECT_THROW(NameInputs({"a.mp4", "live=b.mp4"}), kovastream::Failure);
    EXPECT_THROW(NameInputs({"aa=-", "bb=-"}), kovastream::Failure);
    EXPECT_EQ(NameInputs({"aa=-", "bb=b.mp4"}).size(), 2U);
}

} // namespace
