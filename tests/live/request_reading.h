#pragma once

#include "live/rtsp/request_reader.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

/// What a request reader makes of a byte stream, kept beyond the reader's views.

struct KovaKeptItem {
    KovaReadKind kind = kReadMore;
    bool bFatal = false;
    uint16_t nStatus = 0;
    uint8_t nChannel = 0;
    std::string frame;
    KovaMethod method = kMethodUnknown;
    std::string methodText;
    std::string url;
    std::string version;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
};
bool operator==(const KovaKeptItem &one, const KovaKeptItem &other);
/// For the messages of failed expectations.
void PrintTo(const KovaKeptItem &item, std::ostream *pStream);

/// A reader that is fed pieces and freed at the end.
class KovaReading {
public:
    KovaReading() = default;
    ~KovaReading();
    KovaReading(const KovaReading &) = delete;
    KovaReading &operator=(const KovaReading &) = delete;

    /// Feeds bytes into as many rooms as they need and keeps the items.
    void Feed(const std::string &bytes);

    KovaRequestReader reader{};
    std::vector<KovaKeptItem> items;

private:
    size_t m_nFed = 0;
};

/// The items of a stream that arrives in pieces of at most nPiece bytes.
std::vector<KovaKeptItem> KovaReadInPieces(const std::string &bytes, size_t nPiece);

/// The items of a stream that arrives whole. Every cut into two pieces, and the stream byte by
/// byte, must give the same, which is expected here.
std::vector<KovaKeptItem> KovaReadAnyhow(const std::string &bytes);

/// KovaReadAnyhow for a stream that holds one item, which is returned.
KovaKeptItem KovaReadOne(const std::string &bytes);

/// A PLAY with CSeq 5 whose head has nLength bytes.
std::string KovaRequestWithHeadOf(size_t nLength);

/// The head of a PLAY with CSeq 5 and this Content-Length.
std::string KovaRequestWithLength(const std::string &length);
