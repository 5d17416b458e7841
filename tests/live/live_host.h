#pragma once

#include "kova_live.h"
#include "tests/live/media_track.h"
#include "tests/support/live_client.h"
#include "tests/support/wait_until.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// An event as the host was told it, without what ends with the call.
struct KovaToldEvent {
    uint32_t nType;
    KovaLiveStream *pStream;
    KovaLiveTrack *pTrack;
    uint64_t nPlayer;
    uint32_t nReason;
    uint32_t nPlayers;
    std::string address;
    uint16_t nPort;
    bool bInterleaved;
};

/// A server on the loopback address with what it tells its host.
class KovaLiveHost {
public:
    /// @param change  changes the configuration before the server is opened
    explicit KovaLiveHost(const std::function<void(KovaLiveConfig *)> &change = nullptr);
    ~KovaLiveHost();
    KovaLiveHost(const KovaLiveHost &) = delete;
    KovaLiveHost &operator=(const KovaLiveHost &) = delete;

    KovaLive *Live() const
    {
        return m_pLive;
    }
    uint16_t Port() const;
    /// Ends the server; returns milliseconds that it took.
    int Close();

    /// A stream, and tracks of it. Video with its parameter sets is known from the beginning.
    KovaLiveStream *AddStream(const char *szPath,
                              const std::function<void(KovaLiveStreamConfig *)> &change = nullptr);
    static KovaLiveTrack *AddVideo(KovaLiveStream *pStream, bool bKnown = true);
    static KovaLiveTrack *AddSound(KovaLiveStream *pStream);

    /// Called inside each event, without a lock of ours.
    std::function<void(const KovaLiveEvent &)> onEvent;

    std::vector<KovaToldEvent> Events(uint32_t nType = 0);
    /// Waits for the nth event of a type (from 1); an empty one when it does not come.
    KovaToldEvent WaitEvent(uint32_t nType, size_t nNumber = 1);
    std::vector<std::string> Lines();

    KovaLiveServerNumbers Figures() const;

private:
    static void OnEvent(void *pContext, const KovaLiveEvent *pEvent);
    static void OnLog(void *pContext, int32_t nLevel, const char *szText);

    KovaLive *m_pLive = nullptr;
    std::mutex m_mutex;
    std::vector<KovaToldEvent> m_events;
    std::vector<std::string> m_lines;
};

/// Adds a stream, whose configuration a test may change.
KovaLiveStream *KovaLiveAddStreamTo(KovaLive *pLive, const char *szPath,
                                    const std::function<void(KovaLiveStreamConfig *)> &change);

KovaLiveStreamNumbers KovaLiveFiguresOf(KovaLiveStream *pStream);

/// Parameter sets that the pictures below use.
std::string KovaLiveSps();
std::string KovaLivePps();

/// One picture, Annex B: a slice of a size, whose bytes differ with the seed.
std::string KovaLiveKey(size_t nSize = 500, unsigned nSeed = 0);
std::string KovaLiveOther(size_t nSize = 200, unsigned nSeed = 0);

/// One ADTS frame.
std::string KovaLiveSound(unsigned nSeed = 0);

/// Pushes such a key picture, and whether it is a player's next unit.
void KovaLivePushKey(KovaLiveTrack *pTrack, size_t nSize, unsigned nSeed, int64_t nPts);
bool KovaLiveTakesKey(KovaLiveClient *pClient, size_t nSize, unsigned nSeed, int nTrack = 1);

int32_t KovaLivePushText(KovaLiveTrack *pTrack, const std::string &bytes, int64_t nPts);

/// A player that has set up track 1 and plays.
bool KovaLivePlayTcp(KovaLiveClient *pClient, const KovaLiveHost &host, const char *szPath = "cam");
bool KovaLivePlayUdp(KovaLiveClient *pClient, const KovaLiveHost &host, const char *szPath = "cam");

/// All packets of the next unit of a track: up to the marker, sequence numbers without a gap. Empty
/// when they do not come.
std::vector<KovaLiveRtp> KovaLiveNextUnit(KovaLiveClient *pClient, int nTrack,
                                          int nMilliseconds = kLiveWaitMs);
/// The slice (the last NAL unit) in the packets of a picture, put together again.
std::string KovaLiveSlice(const std::vector<KovaLiveRtp> &packets);

/// RTCP taken apart: type and bytes of each packet of a compound; empty when it is none.
struct KovaRtcpPart {
    int nType;
    int nCount;
    std::string bytes; ///< header included
};
std::vector<KovaRtcpPart> KovaRtcpParts(const std::string &compound);
uint32_t KovaNumberAt(const std::string &bytes, size_t nAt);

/// The wall clock of a sender report in microseconds since 1970; of all that its 32 bits of seconds
/// may mean, what is nearest to nNear.
int64_t KovaReportWall(const std::string &report, int64_t nNear);

/// A receiver report, with one block about nSsrc if bBlock, and a BYE behind it if bBye.
std::string KovaLiveReport(uint32_t nSsrc, uint8_t nLoss = 0, bool bBlock = true,
                           bool bBye = false);
