#include "source.h"

#include "failure.h"
#include "ffmpeg.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace kovastream {

namespace {

std::string Quoted(const std::string &text)
{
    if (text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                               "._-/:+") == std::string::npos)
        return text;
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

} // namespace

SourceKind KindOf(const std::string &input)
{
    if (input == "-")
        return SourceKind::Stdin;
    struct stat about = {};
    if (stat(input.c_str(), &about) != 0) {
        if (input.find("://") != std::string::npos)
            return SourceKind::Network;
        if (errno == ENOENT)
            throw Failure("there is no file '" + input + "': check the name");
        throw Failure("'" + input + "' cannot be read: " + strerror(errno));
    }
    if (S_ISDIR(about.st_mode))
        throw Failure("'" + input + "' is a directory: name a file in it");
    if (access(input.c_str(), R_OK) != 0)
        throw Failure("'" + input + "' cannot be read: " + strerror(errno));
    if (S_ISFIFO(about.st_mode))
        return SourceKind::Fifo;
    if (S_ISREG(about.st_mode))
        return SourceKind::File;
    throw Failure(
        "'" + input +
        "' is a device: let ffmpeg encode it into a pipe, for a webcam  ffmpeg -v error -f "
        "v4l2 -i " +
        input +
        " -c:v libx264 -pix_fmt yuv420p -bf 0 -tune zerolatency -g 50 -f mpegts - | kovastream -");
}

void CheckScheme(const std::string &input)
{
    const size_t end = input.find("://");
    struct stat about = {};
    if (end == std::string::npos || stat(input.c_str(), &about) == 0)
        return;
    const std::string scheme = input.substr(0, end);
    // RTSP is a demuxer of its own to FFmpeg, not one of its protocols.
    if (scheme == "rtsps" || av_find_input_format(scheme.c_str()) != nullptr ||
        avio_find_protocol_name(input.c_str()) != nullptr)
        return;
    throw Failure("'" + Shown(input) + "': FFmpeg's libraries do not know '" + scheme +
                  "://'; what they know is listed by  ffmpeg -protocols");
}

std::string Shown(const std::string &input)
{
    const size_t scheme = input.find("://");
    if (scheme == std::string::npos)
        return input;
    const size_t host = scheme + 3;
    const size_t end = std::min(input.find_first_of("/?#", host), input.size());
    const size_t at = input.substr(0, end).rfind('@');
    const size_t colon = input.find(':', host);
    if (at == std::string::npos || at < host || colon > at)
        return input;
    return input.substr(0, colon + 1) + "..." + input.substr(at);
}

std::string TranscodeAdvice(const std::string &input, bool copyPicture, bool copySound)
{
    return "ffmpeg -v error -i " + Quoted(input) + " -c:v " +
           (copyPicture ? "copy" : "libx264 -pix_fmt yuv420p -bf 0 -g 50") + " -c:a " +
           (copySound ? "copy" : "aac -ac 2 -b:a 128k") + " -f mpegts - | kovastream -";
}

} // namespace kovastream
