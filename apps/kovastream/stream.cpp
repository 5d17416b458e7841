#include "stream.h"

#include "failure.h"
#include "own_address.h"

#include <algorithm>

namespace kovastream {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kQuiet{2};

// However short what it sends: a server is not asked more often.
constexpr std::chrono::seconds kBetweenRequests{1};

int64_t Now()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

Stream::Stream(const InputName &name, const Options &options, Console *console, Stop *stop)
    : m_uri(name.uri), m_options(options), m_console(console), m_stop(stop),
      m_meeting(static_cast<int>(name.sources.size()), *stop), m_pacer(*stop),
      m_keyFrames(options.door->limits.idrOnly), m_running(name.sources.size())
{
    m_description.limits = options.door->limits;
    for (const std::string &input : name.sources) {
        // The first of two is for the picture, the second for the sound.
        const Wish wish = {options.fps, m_sources.empty(),
                           !m_sources.empty() || name.sources.size() == 1, options.door->limits};
        CheckScheme(input);
        m_sources.push_back(std::make_unique<Source>(
            Source{input, wish, Timeline(&m_end), {}, {}, nullptr, nullptr, {}}));
        if (options.strict && KindOf(input) == SourceKind::File)
            Open(m_sources.back().get());
    }
}

Stream::~Stream()
{
    for (const auto &source : m_sources) {
        if (source->thread.joinable())
            source->thread.join();
    }
}

void Stream::Open(Source *source)
{
    const SourceKind kind = KindOf(source->input);
    // The sources agree on how they begin again by what they were at first: the others read it
    // meanwhile, so it is not written again.
    if (!source->kind.has_value())
        source->kind = kind;
    if (source->kind != kind)
        throw Failure("'" + Shown(source->input) + "' is no longer of the kind that it was");
    if (kind == SourceKind::Network)
        source->notBefore = steady_clock::now() + kBetweenRequests;
    source->round.reset();
    source->demuxer = std::make_unique<Demuxer>(source->input, kind, source->wish, *m_stop,
                                                std::move(source->demuxer));
    source->round =
        std::make_unique<Round>(source->demuxer.get(), m_options.fps, m_options.door->limits);
}

bool Stream::AllFiles() const
{
    return std::all_of(m_sources.begin(), m_sources.end(),
                       [](const auto &source) { return source->kind == SourceKind::File; });
}

void Stream::Start(Publisher *publisher, OnEnd onEnd)
{
    m_publication = publisher->Add(m_uri);
    m_onEnd = std::move(onEnd);
    for (const auto &source : m_sources)
        source->thread = std::thread([this, pointer = source.get()] { Run(pointer); });
}

void Stream::Run(Source *source)
{
    std::string failure;
    try {
        Play(source);
    } catch (const std::bad_alloc &) {
        m_stop->Fail("no memory is left for '" + Shown(source->input) + "'");
    } catch (const std::exception &error) {
        failure = error.what();
    }
    End(failure);
}

void Stream::End(const std::string &failure)
{
    const std::lock_guard<std::mutex> lock(m_ending);
    if (m_options.strict && !failure.empty())
        m_stop->Fail(failure);
    else if (m_failure.empty())
        m_failure = failure;
    if (--m_running == 0)
        m_onEnd(m_failure);
}

void Stream::Play(Source *source)
{
    if (source->demuxer == nullptr && !Await(source))
        return;
    Describe(*source);
    const auto publish = [this] {
        Publish();
        m_base = m_end.Get();
    };
    if (!m_meeting.Meet(publish))
        return;
    int64_t base = m_base;
    while (FeedOrWait(source, base)) {
        if (!Await(source))
            return;
        // Two files begin again together; live sources do not wait for each other.
        if (!AllFiles())
            base = m_end.Get();
        else if (m_meeting.Meet([this] { m_base = m_end.Get(); }))
            base = m_base;
        else
            return;
    }
}

void Stream::Describe(const Source &source)
{
    const std::lock_guard<std::mutex> lock(m_describing);
    m_description.Take(*source.demuxer, *source.round, source.wish, nullptr);
}

/// While the sources meet: nobody changes the description.
void Stream::Publish()
{
    m_publication->Publish(m_description.tracks);
    m_lastPush = Now();
    m_isPublished = true;
    const Urls urls = UrlsOf(m_uri, m_options);
    m_console->Print(urls.here + "  (" + m_description.About() + ")");
    if (!urls.others.empty())
        m_console->Print(urls.others + "  (from other machines)");
}

/// Publishes the stream anew where a unit is not what its players were told: they would show
/// nothing, or rubbish. The other source's thread waits meanwhile.
void Stream::FollowChange(const Source &source, const Unit &unit)
{
    const std::lock_guard<std::mutex> lock(m_describing);
    const std::string change = m_description.Contradiction(*source.round, source.wish, unit);
    if (change.empty())
        return;
    m_description.Take(*source.demuxer, *source.round, source.wish, &unit);
    m_console->Print(m_uri + ": " + change + ": published anew (" + m_description.About() +
                     "); its players have to connect again");
    m_publication->Publish(m_description.tracks);
}

/// The same as Feed; a source that breaks and can begin again does so after a pause.
bool Stream::FeedOrWait(Source *source, int64_t base)
{
    try {
        return Feed(source, base);
    } catch (const Failure &failure) {
        if (m_options.strict || !m_options.loop || source->kind == SourceKind::Stdin)
            throw;
        WaitAfter(source, failure);
        return true;
    }
}

/// Says how reading a source has ended, once for the same reason.
void Stream::SayBroken(Source *source)
{
    const std::string text =
        "reading '" + Shown(source->input) + "' failed: " + ErrorText(source->demuxer->LastError());
    if (source->retry.IsNews(text))
        m_console->Print(m_uri + ": " + text);
}

/// Streams one round. Returns whether the source may begin again.
bool Stream::Feed(Source *source, int64_t base)
{
    Unit unit;
    bool begun = false;
    for (;;) {
        const Demuxer::Result result = source->round->Next(&unit);
        if (m_stop->Requested())
            return false;
        if (!begun && source->demuxer->IsUnreadable(result))
            throw Failure(source->demuxer->WhyUnreadable());
        if (result == Demuxer::Result::Broken)
            SayBroken(source);
        if (result == Demuxer::Result::End)
            source->retry.Forget();
        if (result != Demuxer::Result::Got)
            return m_options.loop && source->kind != SourceKind::Stdin;
        FollowChange(*source, unit);
        if (!begun)
            source->timeline.Begin(source->round->Origin(), base);
        begun = true;
        source->retry.Succeeded();
        PushOne(source, unit);
    }
}

void Stream::PushOne(Source *source, const Unit &unit)
{
    const Placed placed = source->timeline.Place(unit);
    if (!m_pacer.Wait(placed.due))
        return;
    m_publication->Push(unit, placed.presentation);
    m_lastPush = Now();
    m_position = std::max<int64_t>(m_position, placed.due);
    m_bytes += unit.bytes.size();
    if (unit.track == TrackKind::Picture)
        m_pictures++;
    Warn(*source->round, unit, placed.due);
}

/// Says what keeps players from seeing or hearing all of it.
void Stream::Warn(const Round &round, const Unit &unit, int64_t due)
{
    if (round.LeftSoundOut() && !m_warnedSound.exchange(true))
        m_console->Print(m_uri + ": warning: sound frames of 1024 to 2047 bytes cannot be sent and "
                                 "are left out; encode the sound at a lower bit rate (-b:a 128k)");
    if (unit.track != TrackKind::Picture)
        return;
    const std::optional<std::string> wait = m_keyFrames.Look(unit.entry, due);
    if (wait.has_value())
        m_console->Print(m_uri + ": warning: " + *wait);
}

/// Says why the source is waited for, once, and pauses.
void Stream::WaitAfter(Source *source, const Failure &failure)
{
    if (source->retry.IsNews(failure.what()))
        m_console->Print(m_uri + ": waiting for the input: " + failure.what());
    m_stop->WaitUntil(steady_clock::now() + source->retry.Pause());
}

/// Opens the source, as often as it takes. Returns false when the end was requested.
bool Stream::Await(Source *source)
{
    while (!m_stop->WaitUntil(source->notBefore)) {
        try {
            Open(source);
            return !m_stop->Requested();
        } catch (const Failure &failure) {
            // Standard input cannot begin again. An encoder or a device that starts again may send
            // rubbish first, while for --strict a file does not get better.
            const bool begun = m_isPublished && source->kind != SourceKind::File;
            if (source->kind == SourceKind::Stdin || (m_options.strict && !begun))
                throw;
            WaitAfter(source, failure);
        }
    }
    return false;
}

Figures Stream::Look() const
{
    Figures figures;
    figures.uri = m_uri;
    figures.maxClients = m_options.maxClients;
    if (!m_isPublished)
        return figures;
    figures.input = Figures::Input::Flowing;
    if (m_running == 0)
        figures.input = Figures::Input::Ended;
    else if (Now() - m_lastPush > std::chrono::nanoseconds(kQuiet).count())
        figures.input = Figures::Input::Waiting;
    figures.position = m_position;
    figures.pictures = m_pictures;
    figures.bytes = m_bytes;
    figures.served = m_publication->Look();
    return figures;
}

steady_clock::time_point Stream::End() const
{
    return m_isPublished ? m_pacer.TimeOf(m_end.Get()) : steady_clock::now();
}

} // namespace kovastream
