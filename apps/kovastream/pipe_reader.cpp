#include "pipe_reader.h"

#include "failure.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace kovastream {

namespace {

constexpr int kBufferSize = 32 * 1024;

// An encoder that writes several pipes in turn must not be held up by the default 64 KiB while we
// are looking at one of them.
constexpr int kPipeSize = 1024 * 1024;

} // namespace

PipeReader::PipeReader(const std::string &input, SourceKind kind, const Stop &stop)
    : m_stop(stop), m_owned(kind == SourceKind::Fifo), m_descriptor(STDIN_FILENO)
{
    // Opened without waiting for a writer: until the first one comes, poll reports nothing.
    if (m_owned)
        m_descriptor = open(input.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (m_descriptor < 0)
        throw Failure("'" + input + "' cannot be read: " + strerror(errno));
    fcntl(m_descriptor, F_SETPIPE_SZ, kPipeSize);
    m_context = avio_alloc_context(static_cast<unsigned char *>(Made(av_malloc(kBufferSize))),
                                   kBufferSize, 0, this, Read, nullptr, nullptr);
    Made(m_context)->seekable = 0;
}

PipeReader::~PipeReader()
{
    av_freep(&m_context->buffer);
    avio_context_free(&m_context);
    if (m_owned)
        close(m_descriptor);
}

bool PipeReader::AwaitData() const
{
    for (;;) {
        pollfd events[] = {{m_stop.Descriptor(), POLLIN, 0}, {m_descriptor, POLLIN, 0}};
        if (poll(events, 2, -1) < 0 && errno != EINTR)
            return true;
        if (m_stop.Requested())
            return false;
        if (events[1].revents != 0)
            return true;
    }
}

int PipeReader::Read(void *opaque, uint8_t *bytes, int count)
{
    const auto *reader = static_cast<const PipeReader *>(opaque);
    for (;;) {
        if (!reader->AwaitData())
            return AVERROR_EXIT;
        const ssize_t got = read(reader->m_descriptor, bytes, static_cast<size_t>(count));
        if (got > 0)
            return static_cast<int>(got);
        if (got == 0)
            return AVERROR_EOF;
        if (errno != EINTR && errno != EAGAIN)
            return AVERROR(errno);
    }
}

} // namespace kovastream
