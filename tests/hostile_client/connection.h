#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Whom to bother.
struct KovaHostileTarget {
    std::string host = "127.0.0.1"; ///< dotted
    uint16_t nPort = 554;
    std::string uri = "live";
    unsigned nCount = 100;            ///< how many, where a scenario does something many times
    unsigned nHoldMilliseconds = 500; ///< how long what a scenario holds is held
};

/// A player's connection that does as it is told and checks nothing.
class KovaHostileConnection {
public:
    KovaHostileConnection() = default;
    /// Opens it at once.
    explicit KovaHostileConnection(const KovaHostileTarget &target);
    ~KovaHostileConnection();
    KovaHostileConnection(KovaHostileConnection &&other) noexcept;
    KovaHostileConnection(const KovaHostileConnection &) = delete;
    KovaHostileConnection &operator=(const KovaHostileConnection &) = delete;

    /// nReceiveBuffer > 0 limits what the system takes unread.
    bool Open(const KovaHostileTarget &target, int nReceiveBuffer = 0);
    bool IsOpen() const
    {
        return m_nSocket >= 0;
    }
    /// Sends as much as the peer takes within a second; false when it took less.
    bool Send(std::string_view bytes);
    /// What comes first, at most nMilliseconds later; empty when nothing does.
    std::string Receive(int nMilliseconds = 2000);
    /// Reads and forgets for so long, or until the peer ends the connection.
    void Drain(int nMilliseconds);
    /// Sends and returns what comes first.
    std::string Ask(std::string_view bytes)
    {
        Send(bytes);
        return Receive();
    }
    void CloseSending();
    void Close();
    void Reset();

private:
    int m_nSocket = -1;
};

/// Text of a request with CSeq 1 and further lines, each with its CR LF.
std::string KovaHostileRequest(std::string_view method, const KovaHostileTarget &target,
                               std::string_view lines = {}, std::string_view behindUri = {});

/// The id in a SETUP response; empty when there is none.
std::string KovaHostileSession(const std::string &response);

void KovaHostileSleep(unsigned nMilliseconds);

/// Whether an OPTIONS request on a new connection is answered in five seconds.
bool KovaHostileServerAnswers(const KovaHostileTarget &target);
