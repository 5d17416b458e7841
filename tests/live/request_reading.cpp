#include "tests/live/request_reading.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

KovaKeptItem Kept(const KovaReadItem &item)
{
    KovaKeptItem kept;
    kept.kind = item.kind;
    kept.bFatal = item.bFatal;
    kept.nStatus = item.nStatus;
    kept.nChannel = item.nChannel;
    kept.frame = item.frame;
    if (item.kind == kReadFrame)
        return kept;
    kept.method = item.request.method;
    kept.methodText = item.request.methodText;
    kept.url = item.request.url;
    kept.version = item.request.version;
    for (uint32_t n = 0; n < item.request.nHeaders; n++)
        kept.headers.emplace_back(item.request.headers[n].name, item.request.headers[n].value);
    kept.body = item.request.body;
    return kept;
}

} // namespace

bool operator==(const KovaKeptItem &one, const KovaKeptItem &other)
{
    return one.kind == other.kind && one.bFatal == other.bFatal && one.nStatus == other.nStatus &&
           one.nChannel == other.nChannel && one.frame == other.frame &&
           one.method == other.method && one.methodText == other.methodText &&
           one.url == other.url && one.version == other.version && one.headers == other.headers &&
           one.body == other.body;
}

void PrintTo(const KovaKeptItem &item, std::ostream *pStream)
{
    *pStream << "kind " << int{item.kind} << " fatal " << item.bFatal << " status " << item.nStatus
             << " channel " << int{item.nChannel} << " frame of " << item.frame.size() << " ["
             << item.methodText.substr(0, 80) << "] [" << item.url.substr(0, 80) << "] ["
             << item.version.substr(0, 80) << "]";
    for (const auto &header : item.headers)
        *pStream << " {" << header.first.substr(0, 80) << ": " << header.second.substr(0, 80)
                 << "}";
    *pStream << " body of " << item.body.size();
}

KovaReading::~KovaReading()
{
    KovaRequestReaderClear(&reader);
}

void KovaReading::Feed(const std::string &bytes)
{
    size_t nDone = 0;
    while (nDone < bytes.size()) {
        size_t nRoom = 0;
        uint8_t *pRoom = KovaRequestReaderRoom(&reader, &nRoom);
        ASSERT_NE(pRoom, nullptr);
        ASSERT_GE(nRoom, 1u);
        const size_t nCount = std::min(nRoom, bytes.size() - nDone);
        memcpy(pRoom, bytes.data() + nDone, nCount);
        KovaRequestReaderTook(&reader, nCount);
        nDone += nCount;
        m_nFed += nCount;
        for (;;) {
            KovaReadItem item;
            memset(static_cast<void *>(&item), 0x7E, sizeof(item));
            KovaRequestReaderNext(&reader, &item);
            if (item.kind == kReadMore)
                break;
            items.push_back(Kept(item));
            ASSERT_LT(items.size(), m_nFed) << "items without end";
        }
    }
}

std::vector<KovaKeptItem> KovaReadInPieces(const std::string &bytes, size_t nPiece)
{
    KovaReading reading;
    for (size_t nAt = 0; nAt < bytes.size(); nAt += nPiece)
        reading.Feed(bytes.substr(nAt, nPiece));
    return reading.items;
}

std::vector<KovaKeptItem> KovaReadAnyhow(const std::string &bytes)
{
    const std::vector<KovaKeptItem> whole = KovaReadInPieces(bytes, bytes.size());
    EXPECT_EQ(KovaReadInPieces(bytes, 1), whole) << "byte by byte";
    for (size_t nCut = 1; nCut < bytes.size(); nCut++) {
        KovaReading reading;
        reading.Feed(bytes.substr(0, nCut));
        reading.Feed(bytes.substr(nCut));
        EXPECT_EQ(reading.items, whole) << "cut after " << nCut;
        if (reading.items != whole)
            break;
    }
    return whole;
}

KovaKeptItem KovaReadOne(const std::string &bytes)
{
    const std::vector<KovaKeptItem> items = KovaReadAnyhow(bytes);
    EXPECT_EQ(items.size(), 1u);
    return items.size() == 1 ? items.front() : KovaKeptItem();
}

std::string KovaRequestWithHeadOf(size_t nLength)
{
    const std::string begin = "PLAY * RTSP/1.0\r\nCSeq: 5\r\nX: ";
    return begin + std::string(nLength - begin.size() - 4, 'x') + "\r\n\r\n";
}

std::string KovaRequestWithLength(const std::string &length)
{
    return "PLAY * RTSP/1.0\r\nContent-Length: " + length + "\r\nCSeq: 5\r\n\r\n";
}
