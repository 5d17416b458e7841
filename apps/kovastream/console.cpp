#include "console.h"

#include "failure.h"
#include "printable.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kovastream {

namespace {

// A line of the library without its end is taken for whole after this time.
constexpr int kUnfinishedLine = 300; // milliseconds
constexpr size_t kUsualWidth = 80;

bool IsTerminal(int descriptor)
{
    const char *kind = getenv("TERM");
    return isatty(descriptor) == 1 && kind != nullptr && strcmp(kind, "dumb") != 0;
}

size_t Width(int terminal)
{
    winsize size = {};
    return ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : kUsualWidth;
}

/// Lines of the library, some of which quote what players sent.
std::string Harmless(const std::string &lines)
{
    std::string text = Printable(lines, "\n\t\r");
    std::replace(text.begin(), text.end(), '\r', ' ');
    return text;
}

/// What players sent must not command a terminal, also one without a live status; elsewhere it
/// stays as it is.
std::string For(int descriptor, const std::string &lines)
{
    return isatty(descriptor) == 1 ? Harmless(lines) : lines;
}

} // namespace

Console::Console(const Options &options)
    : m_json(options.status == StatusForm::Json), m_libraryLines(options.libraryLines),
      m_original(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3))
{
    if (!options.logFile.empty()) {
        m_log = open(options.logFile.c_str(),
                     O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0644);
        if (m_log < 0)
            throw Failure("the log file '" + options.logFile +
                          "' cannot be written: " + strerror(errno));
    }
    const bool redrawn =
        options.status == StatusForm::Line || options.status == StatusForm::Players;
    m_live = redrawn && IsTerminal(m_original);
    TakeOver();
    m_out = std::make_unique<Output>(m_original);
    m_error = std::make_unique<Output>(STDERR_FILENO);
    m_reader = std::thread([this] { ReadLibrary(); });
}

void Console::TakeOver()
{
    if (m_original < 0)
        m_original = open("/dev/null", O_WRONLY | O_CLOEXEC);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Failure("no descriptor is left (ulimit -n)");
    m_pipe = ends[0];
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    // The library leaves flushing to us.
    setvbuf(stdout, nullptr, _IOLBF, 0);
}

Console::~Console()
{
    // With its last writer gone, the reader comes to the end of the pipe.
    fflush(stdout);
    dup2(m_original, STDOUT_FILENO);
    m_reader.join();
    m_out.reset();
    m_error.reset();
    for (const int descriptor : {m_pipe, m_original, m_log}) {
        if (descriptor >= 0)
            close(descriptor);
    }
}

void Console::ReadLibrary()
{
    std::string text;
    char bytes[4096];
    for (;;) {
        pollfd event = {m_pipe, POLLIN, 0};
        if (poll(&event, 1, text.empty() ? -1 : kUnfinishedLine) == 0) {
            PrintClassic(text + "\n");
            text.clear();
            continue;
        }
        const ssize_t count = read(m_pipe, bytes, sizeof(bytes));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        text.append(bytes, static_cast<size_t>(count));
        const size_t whole = text.rfind('\n');
        if (whole != std::string::npos) {
            PrintClassic(text.substr(0, whole + 1));
            text.erase(0, whole + 1);
        }
    }
    if (!text.empty())
        PrintClassic(text + "\n");
}

void Console::PrintClassic(const std::string &all)
{
    const std::string lines = Chosen(all, m_libraryLines);
    if (!lines.empty())
        PrintServer(lines);
}

void Console::PrintServer(const std::string &lines)
{
    if (m_log >= 0) {
        for (size_t at = 0; at < lines.size();) {
            const ssize_t written = write(m_log, lines.data() + at, lines.size() - at);
            if (written <= 0)
                return; // a full disk or pipe: the service goes on
            at += static_cast<size_t>(written);
        }
    } else if (m_json) {
        m_error->Write(For(STDERR_FILENO, lines));
    } else {
        PrintAbove(lines);
    }
}

void Console::Print(const std::string &line)
{
    if (m_json)
        m_error->Write(line + "\n");
    else
        PrintAbove(line + "\n");
}

void Console::PrintAbove(const std::string &lines)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_live) {
        m_out->Write(For(m_original, lines));
        return;
    }
    const std::string text = m_repeats.Without(lines);
    // In one piece, so that nothing comes between erasing and drawing anew.
    if (!text.empty())
        m_out->Write(Erased() + Harmless(text) + Drawn());
}

void Console::ShowStatus(const Table &status)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_live) {
        const std::string erased = Erased();
        m_status = status;
        m_out->Write(erased + m_repeats.Said() + Drawn());
        return;
    }
    for (const std::string &line : Lines(status, kNoWidth))
        m_out->Write(line + "\n");
}

void Console::TellLosses()
{
    const int error = m_out->TakeError();
    if (error != 0)
        m_error->Write("kovastream: standard output cannot be written: " +
                       std::string(strerror(error)) + "; lines are left out meanwhile\n");
}

/// The cursor stands behind the last status line's end, at the left of the next line. A terminal
/// that has become narrower since has broken lines into several rows.
std::string Console::Erased() const
{
    const size_t width = Width(m_original);
    size_t rows = 0;
    for (const size_t length : m_drawn)
        rows += std::max<size_t>(1, (length + width - 1) / width);
    return rows == 0 ? "" : "\r\x1b[" + std::to_string(rows) + "A\x1b[J";
}

std::string Console::Drawn()
{
    std::string text;
    m_drawn.clear();
    for (const std::string &line : Lines(m_status, Width(m_original) - 1)) {
        text += line + "\n";
        m_drawn.push_back(line.size());
    }
    return text;
}

bool Console::IsBroken() const
{
    return m_out->IsBroken();
}

} // namespace kovastream
