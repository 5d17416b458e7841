#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Methods of RFC 2326, section 10. kMethodUnknown: a token that is none of them.
enum KovaMethod : uint8_t {
    kMethodOptions,
    kMethodDescribe,
    kMethodSetup,
    kMethodPlay,
    kMethodPause,
    kMethodTeardown,
    kMethodGetParameter,
    kMethodSetParameter,
    kMethodAnnounce,
    kMethodRecord,
    kMethodRedirect,
    kMethodUnknown,
};

constexpr uint32_t kRequestMaxHeaders = 32;
constexpr size_t kRequestMaxHead = 16384; ///< request line and headers, bytes: 413 above
constexpr size_t kRequestMaxUrl = 2048;   ///< bytes: 414 above
constexpr size_t kRequestMaxBody = 65536; ///< bytes: 413 above

struct KovaRequestHeader {
    std::string_view name;  ///< as it came; compared without case
    std::string_view value; ///< without blanks at its ends, folds replaced by a blank
};

/// A whole request. The views hold until the reader is used again. Of a bad one, whose
/// parts may be missing, each view is empty or what is said; of more than 32 headers
/// the CSeq is always kept.
struct KovaRequest {
    KovaMethod method;
    std::string_view methodText;
    std::string_view url;
    std::string_view version; ///< "RTSP/1.0" and whatever else came
    uint32_t nHeaders;
    KovaRequestHeader headers[kRequestMaxHeaders];
    std::string_view body;
};

/// The value of the first header of that name in any case; null data when absent.
std::string_view KovaRequestHeaderOf(const KovaRequest &request, std::string_view name);

enum KovaReadKind : uint8_t {
    kReadMore,    ///< nothing whole is there: receive more
    kReadRequest, ///< request is filled
    kReadFrame,   ///< an interleaved frame: nChannel and frame
    kReadBad,     ///< nStatus is the answer (400, 413, 414, 505); request holds what was understood
};

struct KovaReadItem {
    KovaReadKind kind;
    bool bFatal; ///< kReadBad: the byte stream cannot be followed any more; close after the answer
    uint16_t nStatus;
    uint8_t nChannel;
    std::string_view frame;
    KovaRequest request;
};

/// Reads requests (RFC 2326, section 4 to 6) and interleaved frames (10.12) out of
/// a byte stream in pieces of any size. Line ends may be CRLF, LF or CR; empty lines
/// before a request do not count; answers of a player ("RTSP/1.0 200 ...") are passed
/// over. Holds no memory while nothing is begun; grows to what a request needs. The
/// items do not depend on how the stream is cut into pieces: a CR that ends a head
/// ends it at once, and an LF behind it, whenever it comes, is taken as part of its
/// line end (an empty line before the next request, or skipped before a body).
///
/// Begins zeroed. After a fatal kReadBad whatever comes is dropped, so that a
/// connection that is being closed may still be read empty.
struct KovaRequestReader {
    uint8_t *pBuffer;
    size_t nCapacity;
    size_t nBegin; ///< bytes before it are used up
    size_t nEnd;
    size_t nScanned; ///< no end of the head before it
    size_t nNeeded;  ///< bytes that the message at nBegin has at least, once known
    bool bBroken;    ///< a fatal item was given
};

/// Room to receive into, at least one byte; null without memory or when the limits
/// leave no room (the next KovaRequestReaderNext tells how it is refused).
/// Views of the last item end here.
uint8_t *KovaRequestReaderRoom(KovaRequestReader *pReader, size_t *pRoom);

/// nCount bytes were received into the room.
void KovaRequestReaderTook(KovaRequestReader *pReader, size_t nCount);

/// The next item. Call until kReadMore.
void KovaRequestReaderNext(KovaRequestReader *pReader, KovaReadItem *pItem);

/// Gives the last item back, a request: the next one is the same again.
/// @param nBegin  the reader's nBegin before that item was taken
void KovaRequestReaderReturn(KovaRequestReader *pReader, size_t nBegin);

/// Whether bytes of an unfinished request or frame wait.
bool KovaRequestReaderBegun(const KovaRequestReader *pReader);

/// Frees the buffer when nothing is begun (an idle connection holds none), or at
/// the end in any case.
void KovaRequestReaderRelax(KovaRequestReader *pReader);
void KovaRequestReaderClear(KovaRequestReader *pReader);
