#include "live/rtsp/request_url.h"

#include "foundation/hex.h"
#include "foundation/text.h"
#include "live/rtsp/live_path.h"
#include "live/rtsp/request_reader.h"
#include "live/rtsp/words.h"

#include <cstring>

namespace {

/// Whether "host", "host:port" or "[address]:port" behind an optional "user:password@" can be
/// read. Which host it names does not matter: the connection came here.
bool IsAuthority(std::string_view authority)
{
    std::string_view host = authority;
    while (host.data() != nullptr)
        authority = KovaTakePart(&host, '@');
    if (!authority.empty() && authority.front() == '[') {
        KovaTakePart(&authority, ']');
        if (authority.data() == nullptr || (!authority.empty() && authority.front() != ':'))
            return false;
    }
    KovaTakePart(&authority, ':');
    uint32_t nPort = 0;
    return authority.empty() ||
           (KovaNumberOf(authority, UINT16_MAX, &nPort) && nPort <= UINT16_MAX);
}

/// Takes scheme and authority away. A text without a scheme is a path.
bool TakeAuthority(std::string_view *pUrl)
{
    const size_t nScheme = KovaFind(*pUrl, ":/?#");
    if (!KovaWordBegins(KovaPart(*pUrl, nScheme), "://"))
        return true;
    const std::string_view scheme = KovaPart(*pUrl, 0, nScheme);
    if (!KovaWordIs(scheme, "rtsp") && !KovaWordIs(scheme, "rtspu") && !KovaWordIs(scheme, "rtspt"))
        return false;
    pUrl->remove_prefix(nScheme + 3);
    const size_t nEnd = KovaFind(*pUrl, "/?#");
    const std::string_view authority = KovaPart(*pUrl, 0, nEnd);
    pUrl->remove_prefix(nEnd);
    return IsAuthority(authority);
}

/// Decodes percent escapes (RFC 3986, 2.1) into a buffer as long as the text.
/// @return false for a broken escape and for a NUL
bool Decode(std::string_view text, char *pDecoded, size_t *pLength)
{
    size_t nLength = 0;
    for (size_t n = 0; n < text.size(); ++n) {
        char c = text[n];
        if (c == '%') {
            uint8_t nByte = 0;
            if (!KovaHexRead(KovaPart(text, n + 1, 2), &nByte, 1))
                return false;
            c = static_cast<char>(nByte);
            n += 2;
        }
        if (c == '\0')
            return false;
        pDecoded[nLength++] = c;
    }
    *pLength = nLength;
    return true;
}

/// The track that a control URL names which a player appended behind a query: "x=1/track2".
int32_t TrackOfQuery(std::string_view query)
{
    while (!query.empty() && query.back() == '/')
        query.remove_suffix(1);
    const std::string_view last = KovaLivePathLast(query);
    return last.size() < query.size() ? KovaLivePathTrack(last) : -1;
}

/// Takes a last segment that names a track away from a plain path.
int32_t TakeTrack(char *szPath)
{
    const std::string_view last = KovaLivePathLast(szPath);
    const int32_t nTrack = KovaLivePathTrack(last);
    if (nTrack < 0)
        return -1;
    const size_t nLast = static_cast<size_t>(last.data() - szPath);
    szPath[nLast == 0 ? 0 : nLast - 1] = '\0';
    return nTrack;
}

} // namespace

KovaRequestUrl KovaRequestUrlParse(std::string_view text)
{
    KovaRequestUrl url;
    memset(&url, 0, sizeof(url));
    url.nTrack = -1;
    text = KovaTrimmed(text);
    url.bStar = KovaWordIs(text, "*");
    url.bValid = url.bStar;
    if (url.bStar || text.empty() || text.size() > kRequestMaxUrl || !TakeAuthority(&text))
        return url;
    const size_t nPath = KovaFind(text, "?#");
    char decoded[kRequestMaxUrl];
    size_t nLength = 0;
    if (!Decode(KovaPart(text, 0, nPath), decoded, &nLength))
        return url;
    url.bValid = true;
    // A path that no stream can have is one that no stream has.
    if (KovaLivePathCollapse({decoded, nLength}, url.szPath) == kLivePathSize)
        KovaTextCopy(url.szPath, sizeof(url.szPath), "?");
    url.nTrack = TakeTrack(url.szPath);
    const int32_t nAppended = nPath == text.size() ? -1 : TrackOfQuery(KovaPart(text, nPath + 1));
    if (nAppended >= 0)
        url.nTrack = nAppended;
    return url;
}
