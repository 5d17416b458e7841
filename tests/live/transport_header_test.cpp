#include "live/rtsp/transport_header.h"

#include <gtest/gtest.h>

#include <string>

// RFC 2326, section 12.39.

namespace {

using namespace std::string_literals;

void ExpectUdp(std::string_view value, int nRtp, int nRtcp)
{
    const KovaTransportOffer offer = KovaTransportHeaderParse(value);
    EXPECT_EQ(offer.kind, kTransportUdp) << value;
    EXPECT_EQ(offer.nClientRtp, nRtp) << value;
    EXPECT_EQ(offer.nClientRtcp, nRtcp) << value;
}

void ExpectChannels(std::string_view value, int nRtp, int nRtcp)
{
    const KovaTransportOffer offer = KovaTransportHeaderParse(value);
    EXPECT_EQ(offer.kind, kTransportInterleaved) << value;
    EXPECT_TRUE(offer.bChannels) << value;
    EXPECT_EQ(offer.nRtpChannel, nRtp) << value;
    EXPECT_EQ(offer.nRtcpChannel, nRtcp) << value;
}

void ExpectKind(KovaTransportKind kind, std::string_view value)
{
    EXPECT_EQ(KovaTransportHeaderParse(value).kind, kind) << value;
}

KovaTransportAnswer Answer(std::string_view request)
{
    KovaTransportAnswer answer = {};
    answer.offer = KovaTransportHeaderParse(request);
    answer.nServerRtp = 6970;
    answer.nServerRtcp = 6971;
    answer.nSsrc = 0xABCDEF;
    answer.szSource = "192.168.1.10";
    return answer;
}

} // namespace

TEST(TransportHeader, ClientPortsAskForUdp)
{
    ExpectUdp("RTP/AVP;unicast;client_port=5000-5001", 5000, 5001);
    ExpectUdp("RTP/AVP/UDP;unicast;client_port=5000-5001", 5000, 5001);
    ExpectUdp("RTP/AVP;client_port=5000-5001", 5000, 5001);
    ExpectUdp("rtp/avp/udp;UNICAST;Client_Port=1-65535", 1, 65535);
    ExpectUdp("RTP/AVP;unicast;client_port=5000-5000", 5000, 5000);
    ExpectUdp("RTP/AVP;unicast;client_port=5000-5009;interleaved=0-1", 5000, 5009);
    ExpectUdp("RTP/AVP/UDP;interleaved=0-1;client_port=5000-5001", 5000, 5001);
}

TEST(TransportHeader, ThePortOfRtcpIsTheNextOneByDefault)
{
    ExpectUdp("RTP/AVP;unicast;client_port=5000", 5000, 5001);
    ExpectKind(kTransportNone, "RTP/AVP;unicast;client_port=65535");
}

TEST(TransportHeader, TcpAsksForInterleavingWithOrWithoutChannels)
{
    ExpectChannels("RTP/AVP/TCP;unicast;interleaved=0-1", 0, 1);
    ExpectChannels("rtp/avp/tcp;INTERLEAVED=254-255", 254, 255);
    ExpectChannels("RTP/AVP/TCP;interleaved=6", 6, 7);
    ExpectChannels("RTP/AVP/TCP;interleaved=3-2;client_port=0-1", 3, 2);
    const KovaTransportOffer offer = KovaTransportHeaderParse("RTP/AVP/TCP;unicast");
    EXPECT_EQ(offer.kind, kTransportInterleaved);
    EXPECT_FALSE(offer.bChannels);
}

TEST(TransportHeader, ChannelsWithoutTcpAskForInterleavingToo)
{
    ExpectChannels("RTP/AVP;unicast;interleaved=2-3", 2, 3);
    ExpectKind(kTransportNone, "RTP/AVP/UDP;unicast;interleaved=2-3");
}

TEST(TransportHeader, BlanksAndEmptyPartsDoNotCount)
{
    ExpectUdp(" RTP/AVP ; unicast ; client_port = 5000 - 5001 ;; , ", 5000, 5001);
    ExpectUdp(",;,RTP/AVP;unicast;client_port=5000-5001", 5000, 5001);
    ExpectChannels("\tRTP/AVP/TCP\t;\tinterleaved=0-1;", 0, 1);
}

TEST(TransportHeader, TheFirstOfferThatCanBeServedIsTaken)
{
    ExpectChannels("RTP/AVP;multicast,RTP/SAVP;client_port=1-2,RTP/AVP/TCP;interleaved=4-5,"
                   "RTP/AVP;client_port=7-8",
                   4, 5);
    ExpectUdp("nonsense,RTP/AVP;client_port=x,RTP/AVP;client_port=7-8", 7, 8);
}

TEST(TransportHeader, ModePlayIsServedAndOthersAreNot)
{
    for (const char *szMode : {"PLAY", "play", "\"PLAY\"", "\"Play\"", "\"PLAY,RECORD\"",
                               "\"RECORD, play\"", " \"PLAY\" "})
        ExpectUdp("RTP/AVP;client_port=5000-5001;mode="s + szMode, 5000, 5001);
    for (const char *szMode : {"RECORD", "\"RECORD\"", "record", "\"\"", "", "\"", "PLAYS"})
        ExpectKind(kTransportNone, "RTP/AVP;client_port=5000-5001;mode="s + szMode);
    ExpectKind(kTransportNone, "RTP/AVP;client_port=5000-5001;mode");
}

TEST(TransportHeader, WhatCannotBeServedIsNone)
{
    for (const char *szValue :
         {"RTP/AVP;multicast", "RTP/AVP;multicast;port=5000-5001;client_port=5000-5001;ttl=127",
          "RTP/SAVP;unicast;client_port=5000-5001", "RTP/AVPF;unicast;client_port=5000-5001",
          "RAW/RAW/UDP;unicast;client_port=5000-5001", "RTP/AVP/SCTP;client_port=5000-5001",
          "RTP/AVP", "RTP/AVP/UDP;unicast", "RTP/AVP;client_port=0-1", "RTP/AVP;client_port=1-0",
          "RTP/AVP;client_port=65536-65537", "RTP/AVP;client_port=65535-65536",
          "RTP/AVP;client_port=4294967297-4294967298", "RTP/AVP/TCP;interleaved=255",
          "RTP/AVP/TCP;interleaved=256-257", "RTP/AVP/TCP;interleaved=0-256",
          "RTP/AVP/TCP;multicast;interleaved=0-1"})
        ExpectKind(kTransportNone, szValue);
}

TEST(TransportHeader, WhatCannotBeReadIsBad)
{
    for (const char *szValue :
         {"", " ", ",", "banana", "unicast;client_port=5000-5001", "RTP/AVP;client_port=",
          "RTP/AVP;client_port", "RTP/AVP;client_port=x", "RTP/AVP;client_port=5000-",
          "RTP/AVP;client_port=-5001", "RTP/AVP;client_port=5000-5001-5002",
          "RTP/AVP;client_port=5000x", "RTP/AVP/TCP;interleaved=", "RTP/AVP/TCP;interleaved=a-b",
          "RTP/AVP/TCP;interleaved=0-1-2", "RTP/AVP;multicast,banana", "banana,RTP/AVP;multicast"})
        ExpectKind(kTransportBad, szValue);
    EXPECT_EQ(KovaTransportHeaderParse(std::string_view()).kind, kTransportBad);
}

TEST(TransportHeader, DestinationAndUnknownParametersAreNotObeyed)
{
    ExpectUdp("RTP/AVP;unicast;destination=10.0.0.66;source=10.0.0.1;client_port=5000-5001;"
              "ttl=3;ssrc=12345678;append;layers=1;x=\"a;multicast,b\"",
              5000, 5001);
}

TEST(TransportHeader, TheAnswerNamesPortsSourceAndSsrc)
{
    char szText[200];
    ASSERT_TRUE(KovaTransportHeaderWrite(Answer("RTP/AVP;unicast;client_port=5000-5003"), szText,
                                         sizeof(szText)));
    EXPECT_STREQ(szText, "RTP/AVP;unicast;client_port=5000-5003;source=192.168.1.10;"
                         "server_port=6970-6971;ssrc=00ABCDEF;mode=\"PLAY\"");
}

TEST(TransportHeader, TheAnswerNamesChannelsAndSsrc)
{
    char szText[200];
    ASSERT_TRUE(KovaTransportHeaderWrite(Answer("RTP/AVP/TCP;unicast;interleaved=2-3"), szText,
                                         sizeof(szText)));
    EXPECT_STREQ(szText, "RTP/AVP/TCP;unicast;interleaved=2-3;ssrc=00ABCDEF;mode=\"PLAY\"");
}

TEST(TransportHeader, AnAnswerThatDoesNotFitOrOffersNothingIsNone)
{
    const KovaTransportAnswer answer = Answer("RTP/AVP/TCP;unicast;interleaved=2-3");
    const std::string expected = "RTP/AVP/TCP;unicast;interleaved=2-3;ssrc=00ABCDEF;mode=\"PLAY\"";
    char szText[200];
    EXPECT_TRUE(KovaTransportHeaderWrite(answer, szText, expected.size() + 1));
    EXPECT_EQ(szText, expected);
    EXPECT_FALSE(KovaTransportHeaderWrite(answer, szText, expected.size()));
    EXPECT_FALSE(KovaTransportHeaderWrite(Answer("RTP/AVP;multicast"), szText, sizeof(szText)));
    EXPECT_FALSE(KovaTransportHeaderWrite(Answer("banana"), szText, sizeof(szText)));
}
