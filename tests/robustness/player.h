#pragma once

#include "tests/robustness/media_script.h"
#include "tests/robustness/strict_parser.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// How a player reads.
struct KovaPlayerOptions {
    int nReceiveBuffer = 0;     ///< what the system takes for it; 0: as it likes
    size_t nChunk = 65536;      ///< most bytes of one read
    int nPauseMicroseconds = 0; ///< between two reads, unless it is seconds late
};

/// A player on an interleaved connection with a thread that reads all the time
/// and compares each packet with the script: every sequence number once, in
/// order, every byte as it must be. The first thing that is wrong is kept.
class KovaWatchingPlayer {
public:
    explicit KovaWatchingPlayer(const KovaPlayerOptions &options = {});
    ~KovaWatchingPlayer();
    KovaWatchingPlayer(const KovaWatchingPlayer &) = delete;
    KovaWatchingPlayer &operator=(const KovaWatchingPlayer &) = delete;

    bool Connect(uint16_t nPort);
    /// Server's end of the connection, to be told from others.
    uint16_t LocalPort() const;

    /// SETUP of a track of the script on a channel; its packets are judged.
    bool Setup(const std::string &stream, const KovaMediaScript &script,
               const KovaScriptTrack &track, int nChannel);
    bool Play(const std::string &stream);
    const std::string &Session() const
    {
        return m_session;
    }

    /// Sends bytes; false when the connection does not take them at once.
    bool Send(std::string_view bytes);
    /// Sends a request and waits for its response; empty when none comes whole.
    std::string Ask(std::string_view request, int nMilliseconds = 5000);
    /// The text of a request with a CSeq of its own and the session.
    std::string Format(std::string_view method, std::string_view path, std::string_view lines = {});

    /// Stops reading (the connection stays) or goes on.
    void Read(bool bRead)
    {
        m_bRead = bRead;
    }
    /// Ends the connection.
    void Close();

    /// Packets of the track so far, and the sequence number that comes next; -1
    /// before the first.
    size_t Received(const KovaScriptTrack &track);
    int NextSequence(const KovaScriptTrack &track);
    /// Largest age of a packet of the track on arrival since the last call.
    int64_t TakeLargestAge(const KovaScriptTrack &track);
    /// Responses that were cut, and those that came whole.
    std::vector<std::string> CutResponses();
    size_t WholeResponses();
    size_t Reports();
    bool HasEnded() const
    {
        return m_bEnded;
    }
    /// The first thing that was wrong; empty when nothing was.
    std::string Fault();

private:
    struct Track {
        const KovaMediaScript *pScript;
        const KovaScriptTrack *pTrack;
        int nNext = -1;
        size_t nReceived = 0;
        int64_t nLargestAge = 0;
    };

    void Run();
    void TakeBytes(std::string_view bytes);
    void OnFrame(int nChannel, std::string_view payload);
    void OnResponse(std::string_view text, bool bWhole);
    void Judge(Track *pTrack, std::string_view packet);
    void Complain(const std::string &fault);
    Track *Find(const KovaScriptTrack &track);

    KovaPlayerOptions m_options;
    int m_nSocket = -1;
    int m_nCSeq = 0;
    std::string m_session;
    std::thread m_thread;
    std::atomic<bool> m_bRead{true};
    std::atomic<bool> m_bStop{false};
    std::atomic<bool> m_bEnded{false};
    std::atomic<int64_t> m_nLastAge{0}; ///< of a packet on arrival

    std::mutex m_mutex; // guards all below
    std::condition_variable m_answered;
    KovaStrictParser m_parser;
    std::map<int, Track> m_tracks; // by RTP channel
    std::deque<std::string> m_responses;
    std::vector<std::string> m_cut;
    size_t m_nWhole = 0;
    size_t m_nReports = 0;
    std::string m_fault;
};
