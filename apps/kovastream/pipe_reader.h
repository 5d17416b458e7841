#pragma once

#include "ffmpeg.h"
#include "source.h"
#include "stop.h"

#include <cstdint>

namespace kovastream {

/// Feeds a demuxer from a FIFO or from standard input. It waits for a writer and for data as long
/// as it takes, but no longer than until the end is requested.
class PipeReader {
public:
    PipeReader(const std::string &input, SourceKind kind, const Stop &stop);
    ~PipeReader();
    PipeReader(const PipeReader &) = delete;
    PipeReader &operator=(const PipeReader &) = delete;

    AVIOContext *Context() const
    {
        return m_context;
    }

    /// Waits until there is something to read. Returns false when the end was requested.
    bool AwaitData() const;

private:
    static int Read(void *opaque, uint8_t *bytes, int count);

    const Stop &m_stop;
    const bool m_owned;
    int m_descriptor;
    AVIOContext *m_context = nullptr;
};

} // namespace kovastream
