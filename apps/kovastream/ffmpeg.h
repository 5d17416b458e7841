#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

#include <memory>
#include <string>

namespace kovastream {

struct FormatCloser {
    void operator()(AVFormatContext *context) const
    {
        avformat_close_input(&context);
    }
};

struct PacketFreer {
    void operator()(AVPacket *packet) const
    {
        av_packet_free(&packet);
    }
};

struct FilterFreer {
    void operator()(AVBSFContext *filter) const
    {
        av_bsf_free(&filter);
    }
};

struct ParserCloser {
    void operator()(AVCodecParserContext *parser) const
    {
        av_parser_close(parser);
    }
};

struct CodecFreer {
    void operator()(AVCodecContext *codec) const
    {
        avcodec_free_context(&codec);
    }
};

using Format = std::unique_ptr<AVFormatContext, FormatCloser>;
using Packet = std::unique_ptr<AVPacket, PacketFreer>;
using Filter = std::unique_ptr<AVBSFContext, FilterFreer>;
using Parser = std::unique_ptr<AVCodecParserContext, ParserCloser>;
using Codec = std::unique_ptr<AVCodecContext, CodecFreer>;

/// The text of one of FFmpeg's error numbers.
std::string ErrorText(int error);

/// Throws std::bad_alloc for a null pointer.
template <typename Type> Type *Made(Type *pointer)
{
    if (pointer == nullptr)
        throw std::bad_alloc();
    return pointer;
}

} // namespace kovastream
