#include "live/rtsp/transport_header.h"

#include "live/rtsp/words.h"

#include <cstdio>

namespace {

/// What became of a pair of ports or channels.
enum PairState : uint8_t {
    kPairAbsent,
    kPairGood,
    kPairNotServed, ///< numbers out of range
    kPairBad,       ///< no numbers
};

/// An offer while it is read.
struct OfferText {
    KovaTransportOffer offer;
    PairState ports;
    PairState channels;
    bool bTcp;       ///< "/TCP" was said
    bool bPlain;     ///< "RTP/AVP" alone: UDP, or what the parameters say
    bool bNotServed; ///< it can be read and not be served
    bool bBad;       ///< it is no transport at all
};

/// Reads "a" or "a-b"; b is a + 1 by default. Numbers outside nLeast to nMost are not served.
PairState ReadPair(std::string_view value, uint32_t nLeast, uint32_t nMost, uint32_t *pFirst,
                   uint32_t *pSecond)
{
    const std::string_view first = KovaTrimmed(KovaTakePart(&value, '-'));
    const bool bSecond = value.data() != nullptr;
    *pFirst = *pSecond = 0;
    if (!KovaNumberOf(first, nMost, pFirst) ||
        (bSecond && !KovaNumberOf(KovaTrimmed(value), nMost, pSecond)))
        return kPairBad;
    if (!bSecond)
        *pSecond = *pFirst + 1;
    const bool bFirstGood = *pFirst >= nLeast && *pFirst <= nMost;
    const bool bSecondGood = *pSecond >= nLeast && *pSecond <= nMost;
    return bFirstGood && bSecondGood ? kPairGood : kPairNotServed;
}

void ReadPorts(OfferText *pText, std::string_view value)
{
    uint32_t nRtp = 0;
    uint32_t nRtcp = 0;
    pText->ports = ReadPair(value, 1, UINT16_MAX, &nRtp, &nRtcp);
    pText->offer.nClientRtp = static_cast<uint16_t>(nRtp);
    pText->offer.nClientRtcp = static_cast<uint16_t>(nRtcp);
}

void ReadChannels(OfferText *pText, std::string_view value)
{
    uint32_t nRtp = 0;
    uint32_t nRtcp = 0;
    pText->channels = ReadPair(value, 0, UINT8_MAX, &nRtp, &nRtcp);
    pText->offer.bChannels = true;
    pText->offer.nRtpChannel = static_cast<uint8_t>(nRtp);
    pText->offer.nRtcpChannel = static_cast<uint8_t>(nRtcp);
}

/// A mode is one method or several in quotes; playing must be among them.
void ReadMode(OfferText *pText, std::string_view value)
{
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        value = KovaPart(value, 1, value.size() - 2);
    bool bPlay = false;
    while (value.data() != nullptr)
        bPlay = KovaWordIs(KovaTrimmed(KovaTakePart(&value, ',')), "PLAY") || bPlay;
    if (!bPlay)
        pText->bNotServed = true;
}

void ReadParameter(OfferText *pText, std::string_view parameter)
{
    const std::string_view name = KovaTrimmed(KovaTakePart(&parameter, '='));
    const std::string_view value = KovaTrimmed(parameter);
    if (KovaWordIs(name, "multicast"))
        pText->bNotServed = true;
    else if (KovaWordIs(name, "client_port"))
        ReadPorts(pText, value);
    else if (KovaWordIs(name, "interleaved"))
        ReadChannels(pText, value);
    else if (KovaWordIs(name, "mode"))
        ReadMode(pText, value);
}

/// Transport, profile and lower transport. What has no slash is no transport at all.
void ReadProtocol(OfferText *pText, std::string_view protocol)
{
    pText->bPlain = KovaWordIs(protocol, "RTP/AVP");
    pText->bTcp = KovaWordIs(protocol, "RTP/AVP/TCP");
    if (pText->bPlain || pText->bTcp || KovaWordIs(protocol, "RTP/AVP/UDP"))
        return;
    if (KovaFind(protocol, "/") == protocol.size())
        pText->bBad = true;
    pText->bNotServed = true;
}

/// How an offer can be served. Only the pair that its kind needs counts.
KovaTransportKind KindOf(const OfferText &text)
{
    // Some players leave the "/TCP" away and give channels instead.
    const bool bChannelsAlone = text.bPlain && text.channels != kPairAbsent;
    const bool bTcp = text.bTcp || (bChannelsAlone && text.ports == kPairAbsent);
    const PairState pair = bTcp ? text.channels : text.ports;
    if (text.bBad || pair == kPairBad)
        return kTransportBad;
    if (text.bNotServed || pair == kPairNotServed)
        return kTransportNone;
    if (bTcp)
        return kTransportInterleaved;
    return pair == kPairGood ? kTransportUdp : kTransportNone;
}

KovaTransportOffer ReadOffer(std::string_view text)
{
    OfferText offer = {};
    ReadProtocol(&offer, KovaTrimmed(KovaTakePart(&text, ';')));
    while (text.data() != nullptr)
        ReadParameter(&offer, KovaTakePart(&text, ';'));
    offer.offer.kind = KindOf(offer);
    return offer.offer;
}

} // namespace

KovaTransportOffer KovaTransportHeaderParse(std::string_view value)
{
    KovaTransportOffer none = {};
    bool bOffered = false;
    bool bBad = false;
    while (value.data() != nullptr) {
        const std::string_view text = KovaTrimmed(KovaTakePart(&value, ','));
        if (text.empty())
            continue;
        const KovaTransportOffer offer = ReadOffer(text);
        if (offer.kind == kTransportUdp || offer.kind == kTransportInterleaved)
            return offer;
        bOffered = true;
        bBad = bBad || offer.kind == kTransportBad;
    }
    none.kind = bBad || !bOffered ? kTransportBad : kTransportNone;
    return none;
}

bool KovaTransportHeaderWrite(const KovaTransportAnswer &answer, char *szText, size_t nCapacity)
{
    const KovaTransportOffer &offer = answer.offer;
    int nLength = -1;
    if (offer.kind == kTransportUdp)
        nLength = snprintf(
            szText, nCapacity,
            "RTP/AVP;unicast;client_port=%u-%u;source=%s;server_port=%u-%u;"
            "ssrc=%08X;mode=\"PLAY\"",
            static_cast<unsigned>(offer.nClientRtp), static_cast<unsigned>(offer.nClientRtcp),
            answer.szSource, static_cast<unsigned>(answer.nServerRtp),
            static_cast<unsigned>(answer.nServerRtcp), static_cast<unsigned>(answer.nSsrc));
    else if (offer.kind == kTransportInterleaved)
        nLength = snprintf(
            szText, nCapacity, "RTP/AVP/TCP;unicast;interleaved=%u-%u;ssrc=%08X;mode=\"PLAY\"",
            static_cast<unsigned>(offer.nRtpChannel), static_cast<unsigned>(offer.nRtcpChannel),
            static_cast<unsigned>(answer.nSsrc));
    return nLength >= 0 && static_cast<size_t>(nLength) < nCapacity;
}
