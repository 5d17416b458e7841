#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

constexpr size_t kLivePathSize = 256; ///< room for a stream's path with its NUL

/// Which stream and which track a request names.
struct KovaRequestUrl {
    bool bValid;                ///< false: 400
    bool bStar;                 ///< "*"
    char szPath[kLivePathSize]; ///< decoded, without slashes at its ends
    int32_t nTrack;             ///< from a last segment "track<n>", n from 1: n - 1; else -1;
                                ///< at most 9 digits, no leading zero
};

/// Understands a request's URL (RFC 2326, section 3.2): absolute ("rtsp://",
/// "rtspu://", "rtspt://" in any case, with or without user and port), or a path
/// alone; query and fragment do not count; percent-encoding is decoded (a broken one
/// or %00: not valid); slashes in a row count as one. Players that append the control
/// URL behind a query ("?x=1/track2") are understood too. szPath never holds the track.
/// It is "" for the server's root, and "?", which no stream can be called, when the path
/// is longer than any stream's. Host and port are only looked at for their form.
KovaRequestUrl KovaRequestUrlParse(std::string_view text);

/// Whether two names of a stream are the same once slashes at their ends and in a
/// row are taken away; for KovaLiveAddStream. Writes the plain form; false when the
/// path is not allowed (empty, too long, control bytes, '?', '#', a last segment that
/// looks like a track's); szPath, of kLivePathSize bytes, is then "".
bool KovaLivePathNormalize(std::string_view path, char *szPath);

/// Escapes a path for a URL (RFC 3986; '/' stays). Characters that separate or quote in
/// RTSP headers are escaped too, so that the URL can stand in RTP-Info. Cut never: false
/// when it does not fit with its NUL (three times the path's length and one always fit).
bool KovaLivePathEscape(const char *szPath, char *szEscaped, size_t nCapacity);
