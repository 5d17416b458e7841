#include "classic/sdp/sdp_generator.h"

#include "classic/rtp/rtp_packer.h"
#include "foundation/base64.h"
#include "system_shims.h"
#include "tests/support/failing_heap.h"
#include "tests/support/fake_clock.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

// 2024-01-05 09:03:07 UTC
constexpr int64_t kMoment = 1704445387;
constexpr char kSession[] = "202401050903074567";

const uint8_t kSps[] = {0x67, 0x42, 0xC0, 0x1E, 0xD9};
const uint8_t kPps[] = {0x68, 0xCE, 0x3C, 0x80};
constexpr char kSpsText[] = "Z0LAHtk=";
constexpr char kPpsText[] = "aM48gA==";

/// A generator at a fixed time with a fixed random number.
struct SdpGenerator : testing::Test {
    KovaFakeClock clock;
    KovaFixedRand random{{1234567}};
    KovaRtspSdpGenerator *pGenerator = KovaRtspSdpGeneratorCreate("live/cam");

    SdpGenerator()
    {
        clock.Fix(kMoment * 1000000);
    }

    ~SdpGenerator() override
    {
        KovaRtspSdpGeneratorDestroy(pGenerator);
    }

    int32_t AddVideo(uint32_t nId, uint32_t nBitrate = 2000)
    {
        return KovaRtspSdpGeneratorAddMedia(pGenerator, 2, nId, &nBitrate);
    }

    int32_t AddAudio(uint32_t nId)
    {
        const KovaAudioDescription audio = {64, 44100, 2};
        return KovaRtspSdpGeneratorAddMedia(pGenerator, 1, nId, &audio);
    }

    void Set(uint32_t nId, uint32_t nType, const std::vector<uint8_t> &bytes)
    {
        // A heap block of its own, so that reading beyond it shows.
        const std::vector<uint8_t> exact(bytes.begin(), bytes.end());
        KovaRtspSdpGeneratorSetMediaInfo(pGenerator, nId, nType, exact.data(),
                                         static_cast<uint32_t>(exact.size()));
    }

    void SetSps(uint32_t nId)
    {
        Set(nId, 2, {std::begin(kSps), std::end(kSps)});
    }

    void SetPps(uint32_t nId)
    {
        Set(nId, 3, {std::begin(kPps), std::end(kPps)});
    }

    std::string Text()
    {
        char szText[kSdpTextSize + 16];
        memset(szText, '#', sizeof(szText));
        int32_t nLength = -1;
        KovaRtspGenerateSdpGetSdpInfo(pGenerator, szText, &nLength);
        EXPECT_EQ(strnlen(szText, sizeof(szText)), static_cast<size_t>(nLength));
        EXPECT_LT(nLength, static_cast<int32_t>(kSdpTextSize));
        EXPECT_EQ(std::string(szText + kSdpTextSize, 16), std::string(16, '#'));
        return std::string(szText);
    }

    static std::string SessionSection(const std::string &ip, int nPort, const std::string &uri)
    {
        return std::string("v=0\r\no=- ") + kSession + " " + kSession + " IN IP4 " + ip +
               "\r\ns= Unnamed\r\nc=IN IP4 0.0.0.0\r\na=control:rtsp://" + ip + ":" +
               std::to_string(nPort) + "/" + uri +
               "\r\na=recvonly\r\na=type:broadcast\r\nt=0 0\r\n";
    }
};

TEST_F(SdpGenerator, WithoutMediaWritesTheSessionSectionAlone)
{
    KovaRtspSdpGeneratorSetNetworkInfo(pGenerator, "192.168.1.20", 554, "192.168.1.99");
    EXPECT_EQ(Text(), SessionSection("192.168.1.20", 554, "live/cam"));
}

TEST_F(SdpGenerator, HasNoAddressBeforeTheFirstConnection)
{
    EXPECT_EQ(Text(), SessionSection("", 0, "live/cam"));
}

TEST_F(SdpGenerator, RandomPartOfTheSessionHasFourDigits)
{
    const KovaFixedRand small({20007});
    EXPECT_EQ(Text().rfind("v=0\r\no=- 202401050903070007 202401050903070007 IN IP4", 0), 0U);
}

TEST_F(SdpGenerator, WritesAVideoSection)
{
    ASSERT_EQ(AddVideo(97), 0);
    SetSps(97);
    SetPps(97);
    EXPECT_EQ(Text(), SessionSection("", 0, "live/cam") +
                          "m=video 0 RTP/AVP 97\r\nb=AS:2000\r\na=rtpmap:97 H264/90000\r\n"
                          "a=control:trackID=97\r\na=fmtp:97 packetization-mode=1;"
                          "profile-level-id=42C01E;sprop-parameter-sets=" +
                          kSpsText + "," + kPpsText + ";\r\n");
}

TEST_F(SdpGenerator, WritesTheJoinedSetsIntoTheSectionsRecordToo)
{
    AddVideo(97);
    SetSps(97);
    SetPps(97);
    const auto *pVideo = static_cast<KovaSdpVideoData *>(
        KovaRtspSdpGeneratorGetMediaByPayloadId(pGenerator, 97)->pData);
    EXPECT_STREQ(pVideo->szSpropParameterSets, "");
    Text();
    EXPECT_EQ(pVideo->szSpropParameterSets, std::string(kSpsText) + "," + kPpsText);
}

TEST_F(SdpGenerator, WritesAnAudioSection)
{
    ASSERT_EQ(AddAudio(96), 0);
    Set(96, 1, {0x12, 0x10});
    EXPECT_EQ(Text(), SessionSection("", 0, "live/cam") +
                          "m=audio 0 RTP/AVP 96\r\nb=AS:64\r\nb=RR:0\r\n"
                          "a=rtpmap:96 mpeg4-generic/44100/2\r\na=control:trackID=96\r\n"
                          "a=fmtp:96 streamtype=5;profile-level-id=15;mode=AAC-hbr;config=1210;"
                          "sizeLength=13;indexLength=3;indexDeltaLength=3;Profile=1;\r\n");
}

TEST_F(SdpGenerator, WritesWhateverIsThereBeforeItIsReady)
{
    ASSERT_EQ(AddAudio(96), 0);
    ASSERT_EQ(AddVideo(97), 0);
    const std::string text = Text();
    EXPECT_NE(text.find(";config=;sizeLength"), std::string::npos);
    EXPECT_NE(text.find(";profile-level-id=;sprop-parameter-sets=,;\r\n"), std::string::npos);
}

TEST_F(SdpGenerator, SectionsStandInTheOrderOfAddition)
{
    ASSERT_EQ(AddAudio(96), 0);
    ASSERT_EQ(AddVideo(97), 0);
    EXPECT_LT(Text().find("m=audio"), Text().find("m=video"));
    KovaRtspSdpGeneratorRemoveMediaByPayloadId(pGenerator, 96);
    ASSERT_EQ(AddAudio(98), 0);
    EXPECT_GT(Text().find("m=audio"), Text().find("m=video"));
}

TEST_F(SdpGenerator, LatestParametersReplaceEarlierOnes)
{
    ASSERT_EQ(AddVideo(97), 0);
    Set(97, 2, {0x67, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    SetSps(97);
    Set(97, 3, {0x68, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    SetPps(97);
    EXPECT_NE(Text().find(std::string("profile-level-id=42C01E;sprop-parameter-sets=") + kSpsText +
                          "," + kPpsText + ";\r\n"),
              std::string::npos);
}

TEST_F(SdpGenerator, SampleRateOfTheStreamReplacesTheDeclaredOne)
{
    ASSERT_EQ(AddAudio(96), 0);
    Set(96, 4, {'2', '2', '0', '5', '0', 0});
    EXPECT_NE(Text().find("mpeg4-generic/22050/2\r\n"), std::string::npos);
    // A text that fills its bytes has no terminator.
    Set(96, 4, {'9', '6', '0', '0', '0'});
    EXPECT_NE(Text().find("mpeg4-generic/96000/2\r\n"), std::string::npos);
}

TEST_F(SdpGenerator, InfoForAnUnknownPayloadIdChangesNothing)
{
    ASSERT_EQ(AddVideo(97), 0);
    const std::string before = Text();
    SetSps(98);
    Set(96, 1, {0x12, 0x10});
    EXPECT_EQ(Text(), before);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 0);
}

TEST_F(SdpGenerator, ShortReportsReadNothingBehindThem)
{
    ASSERT_EQ(AddVideo(97), 0);
    ASSERT_EQ(AddAudio(96), 0);
    Set(97, 2, {0x67});
    Set(96, 1, {0x12});
    EXPECT_NE(Text().find("profile-level-id=000000;sprop-parameter-sets=Zw==,"), std::string::npos);
    EXPECT_NE(Text().find("config=1200;"), std::string::npos);
}

TEST_F(SdpGenerator, ReadinessNeedsBothParameterSets)
{
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(nullptr), 0);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 0);
    ASSERT_EQ(AddVideo(97), 0);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 0);
    SetSps(97);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 0);
    SetPps(97);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 1);
}

TEST_F(SdpGenerator, EmptyParameterSetTakesTheReadinessBack)
{
    ASSERT_EQ(AddVideo(97), 0);
    const uint8_t nothing = 0;
    for (const uint32_t nType : {2U, 3U}) {
        SetSps(97);
        SetPps(97);
        EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 1);
        KovaRtspSdpGeneratorSetMediaInfo(pGenerator, 97, nType, &nothing, 0);
        EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 0) << nType;
    }
}

TEST_F(SdpGenerator, ReadinessNeedsEverySection)
{
    ASSERT_EQ(AddAudio(96), 0);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 0);
    Set(96, 1, {0x12, 0x10});
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 1);
    ASSERT_EQ(AddVideo(97), 0);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 0);
    SetPps(97);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 0);
    KovaRtspSdpGeneratorRemoveMediaByPayloadId(pGenerator, 97);
    EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 1);
}

TEST_F(SdpGenerator, ParameterSetsUpTo189BytesAppearWhole)
{
    ASSERT_EQ(AddVideo(97), 0);
    std::vector<uint8_t> sps(189, 0xAB);
    std::vector<uint8_t> pps(189, 0xCD);
    Set(97, 2, sps);
    Set(97, 3, pps);
    char szSps[300];
    char szPps[300];
    Base64encode(szSps, reinterpret_cast<const char *>(sps.data()), 189);
    Base64encode(szPps, reinterpret_cast<const char *>(pps.data()), 189);
    const std::string expected = std::string("profile-level-id=ABABAB;sprop-parameter-sets=") +
                                 szSps + "," + szPps + ";\r\n";
    EXPECT_NE(Text().find(expected), std::string::npos);
    for (const size_t nSize : {size_t{190}, size_t{192}, size_t{1000}, size_t{100000}}) {
        Set(97, 2, std::vector<uint8_t>(nSize, 0x11));
        Set(97, 3, std::vector<uint8_t>(nSize, 0x11));
        EXPECT_NE(Text().find(expected), std::string::npos) << nSize;
    }
}

TEST_F(SdpGenerator, AddressesAreCutAt15Characters)
{
    KovaRtspSdpGeneratorSetNetworkInfo(pGenerator, "255.255.255.2551234", 65535,
                                       "123.123.123.1239876");
    EXPECT_STREQ(pGenerator->szServerIp, "255.255.255.255");
    EXPECT_EQ(pGenerator->nServerPort, 65535);
    EXPECT_STREQ(pGenerator->szClientIp, "123.123.123.123");
    EXPECT_EQ(Text(), SessionSection("255.255.255.255", 65535, "live/cam"));
}

TEST_F(SdpGenerator, NullArgumentsOfTheNetworkInfoChangeNothing)
{
    KovaRtspSdpGeneratorSetNetworkInfo(pGenerator, "10.0.0.1", 554, "10.0.0.2");
    KovaRtspSdpGeneratorSetNetworkInfo(nullptr, "10.0.0.3", 555, "10.0.0.4");
    KovaRtspSdpGeneratorSetNetworkInfo(pGenerator, nullptr, 555, "10.0.0.4");
    KovaRtspSdpGeneratorSetNetworkInfo(pGenerator, "10.0.0.3", 555, nullptr);
    EXPECT_STREQ(pGenerator->szServerIp, "10.0.0.1");
    EXPECT_EQ(pGenerator->nServerPort, 554);
    EXPECT_STREQ(pGenerator->szClientIp, "10.0.0.2");
}

TEST_F(SdpGenerator, LongestUriAppearsWhole)
{
    const std::string uri(1024, 'u');
    KovaRtspSdpGeneratorDestroy(pGenerator);
    pGenerator = KovaRtspSdpGeneratorCreate(uri.c_str());
    ASSERT_NE(pGenerator, nullptr);
    KovaRtspSdpGeneratorSetNetworkInfo(pGenerator, "255.255.255.255", 65535, "");
    EXPECT_EQ(Text(), SessionSection("255.255.255.255", 65535, uri));
}

TEST_F(SdpGenerator, SectionsThatDoNotFitAreLeftOutWhole)
{
    for (uint32_t nId = 96; nId < 116; nId++) {
        ASSERT_EQ(AddVideo(nId), 0);
        Set(nId, 2, std::vector<uint8_t>(189, 0xAB));
        Set(nId, 3, std::vector<uint8_t>(189, 0xCD));
    }
    const std::string text = Text();
    size_t nSections = 0;
    size_t nSize = 0;
    for (size_t nAt = text.find("m=video"); nAt != std::string::npos; nSections++) {
        const size_t nNext = text.find("m=video", nAt + 1);
        const std::string section = text.substr(nAt, nNext - nAt);
        nSize = nSize == 0 || nSections == 0 ? section.size() : nSize;
        EXPECT_EQ(section.substr(section.size() - 3), ";\r\n");
        nAt = nNext;
    }
    EXPECT_GT(nSections, 3U);
    EXPECT_LT(nSections, 20U);
    // One more (ids of three digits are longer at most) would not have fitted.
    EXPECT_GT(text.size() + nSize + 8, kSdpTextSize - 1);
}

TEST_F(SdpGenerator, NullArgumentsOfTheTextWriteNothing)
{
    char szText[kSdpTextSize] = "before";
    int32_t nLength = -5;
    KovaRtspGenerateSdpGetSdpInfo(nullptr, szText, &nLength);
    KovaRtspGenerateSdpGetSdpInfo(pGenerator, szText, nullptr);
    KovaRtspGenerateSdpGetSdpInfo(pGenerator, nullptr, &nLength);
    EXPECT_STREQ(szText, "before");
    EXPECT_EQ(nLength, -5);
}

TEST_F(SdpGenerator, AddMediaResults)
{
    const uint32_t nBitrate = 1;
    EXPECT_EQ(KovaRtspSdpGeneratorAddMedia(nullptr, 2, 97, &nBitrate), 2);
    EXPECT_EQ(KovaRtspSdpGeneratorAddMedia(pGenerator, 2, 97, nullptr), 2);
    EXPECT_EQ(KovaRtspSdpGeneratorAddMedia(pGenerator, 3, 97, &nBitrate), 1);
    EXPECT_EQ(pGenerator->pMediaList, nullptr);
    for (int nGood = 0; nGood < 4; nGood++) {
        const KovaFailingHeap heap(nGood);
        EXPECT_EQ(AddVideo(97), 1) << nGood;
    }
    EXPECT_EQ(pGenerator->pMediaList, nullptr);
    EXPECT_EQ(AddVideo(97), 0);
}

TEST_F(SdpGenerator, FindsAndRemovesMediaByPayloadId)
{
    ASSERT_EQ(AddAudio(96), 0);
    ASSERT_EQ(AddVideo(97, 1), 0);
    ASSERT_EQ(AddVideo(97, 2), 0);
    KovaRtspSdpMedia *pFirst = KovaRtspSdpGeneratorGetMediaByPayloadId(pGenerator, 97);
    ASSERT_NE(pFirst, nullptr);
    EXPECT_EQ(pFirst->nPayloadId, 97U);
    EXPECT_EQ(static_cast<KovaSdpVideoData *>(pFirst->pData)->pDescription->nBitrate, 1U);
    EXPECT_EQ(KovaRtspSdpGeneratorGetMediaByPayloadId(pGenerator, 95), nullptr);
    EXPECT_EQ(KovaRtspSdpGeneratorGetMediaByPayloadId(nullptr, 97), nullptr);
    KovaRtspSdpGeneratorRemoveMediaByPayloadId(pGenerator, 95);
    KovaRtspSdpGeneratorRemoveMediaByPayloadId(nullptr, 97);
    KovaRtspSdpGeneratorRemoveMedia(nullptr, pFirst);
    KovaRtspSdpGeneratorRemoveMedia(pGenerator, nullptr);
    EXPECT_EQ(KovaListLength(pGenerator->pMediaList), 3U);
    KovaRtspSdpGeneratorRemoveMedia(pGenerator, pFirst);
    KovaRtspSdpMedia *pSecond = KovaRtspSdpGeneratorGetMediaByPayloadId(pGenerator, 97);
    ASSERT_NE(pSecond, nullptr);
    EXPECT_EQ(static_cast<KovaSdpVideoData *>(pSecond->pData)->pDescription->nBitrate, 2U);
    KovaRtspSdpGeneratorRemoveAllMedia(pGenerator);
    EXPECT_EQ(pGenerator->pMediaList, nullptr);
    KovaRtspSdpGeneratorRemoveAllMedia(nullptr);
}

TEST_F(SdpGenerator, CreationStartsEmpty)
{
    EXPECT_STREQ(pGenerator->szUri, "live/cam");
    EXPECT_STREQ(pGenerator->szServerIp, "");
    EXPECT_EQ(pGenerator->nServerPort, 0);
    EXPECT_STREQ(pGenerator->szClientIp, "");
    EXPECT_EQ(pGenerator->pMediaList, nullptr);
    EXPECT_EQ(KovaRtspSdpGeneratorCreate(nullptr), nullptr);
    const KovaFailingHeap heap;
    EXPECT_EQ(KovaRtspSdpGeneratorCreate("live"), nullptr);
}

TEST_F(SdpGenerator, DescriptionsAndReportsMayMeet)
{
    ASSERT_EQ(AddAudio(96), 0);
    ASSERT_EQ(AddVideo(97), 0);
    std::thread packer([this] {
        for (int n = 0; n < 300; n++) {
            SetSps(97);
            SetPps(97);
            Set(96, 4, {'8', '0', '0', '0', 0});
        }
    });
    for (int n = 0; n < 300; n++) {
        KovaRtspSdpGeneratorSetNetworkInfo(pGenerator, n % 2 != 0 ? "10.0.0.1" : "127.0.0.1", 554,
                                           "");
        Text();
        KovaRtspSdpGeneratorIsReady(pGenerator);
    }
    packer.join();
    EXPECT_NE(Text().find(kSpsText), std::string::npos);
}

} // namespace
