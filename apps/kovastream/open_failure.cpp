#include "open_failure.h"

#include "ffmpeg.h"

#include <netdb.h>
#include <sys/socket.h>

namespace kovastream {

namespace {

std::string HostOf(const std::string &address)
{
    char host[1024] = "";
    int port = 0;
    av_url_split(nullptr, 0, nullptr, 0, host, sizeof(host), &port, nullptr, 0, address.c_str());
    return host;
}

/// Why a host's name has no address, which FFmpeg's error does not tell; empty if it has one.
std::string LookUpFailure(const std::string &host)
{
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int error = host.empty() ? 0 : getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (error != 0)
        return gai_strerror(error);
    if (found != nullptr)
        freeaddrinfo(found);
    return "";
}

std::string NetworkFailure(const std::string &input, int error)
{
    const std::string quoted = "'" + input + "'";
    if (error == AVERROR_INVALIDDATA)
        return quoted + " answers, but not with media: check the address; try  ffprobe " + input;
    if (error == AVERROR_HTTP_UNAUTHORIZED)
        return quoted + " wants a login that is right: give it as in  " +
               input.substr(0, input.find("://")) + "://USER:PASSWORD@HOST/PATH";
    if (error == AVERROR_HTTP_NOT_FOUND)
        return quoted + " answers, but has nothing there (404): check the path";
    const std::string host = HostOf(input);
    const std::string lookUp = error == AVERROR(EIO) ? LookUpFailure(host) : "";
    if (!lookUp.empty())
        return quoted + " cannot be opened: the name '" + host + "' has no address (" + lookUp +
               "): check the name, and this machine's DNS";
    return quoted + " cannot be opened: " + ErrorText(error) +
           ". Is it running, and can it be reached? Try  ffprobe " + input;
}

} // namespace

std::string OpenFailure(const std::string &input, SourceKind kind, int error)
{
    if (kind == SourceKind::Network)
        return NetworkFailure(input, error);
    const std::string reason = error == AVERROR_INVALIDDATA
                                   ? "' is not media that can be read"
                                   : "' cannot be opened: " + ErrorText(error);
    const char *advice = kind == SourceKind::File
                             ? ". It is broken, or no media file; try  ffprobe "
                             : ". What comes is no media, or broken; write it to a file and try  "
                               "ffprobe ";
    return "'" + input + reason + advice + (kind == SourceKind::File ? input : "FILE");
}

} // namespace kovastream
