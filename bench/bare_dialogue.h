#pragma once

#include "bench/bare_ways.h"

#include <list>
#include <string>

/// As much of RTSP as the load players need to be sent something: one description, one track.
class KovaBareDialogue {
public:
    KovaBareDialogue(std::string description, bool bUdp);

    /// Listens on a free port of the loopback address and returns it, or 0.
    unsigned Listen();
    /// Takes new players and answers what has been asked, for nMilliseconds at most.
    void Run(int nMilliseconds);

    /// Those who play, until the next Run().
    const KovaBarePlayers &Playing() const
    {
        return m_playing;
    }

private:
    struct Connection {
        KovaBarePlayer player;
        std::string input;
        bool bPlays = false;
    };

    void Accept();
    bool Read(Connection *pConnection);
    bool Answer(Connection *pConnection, const std::string &request);
    std::string Setup(Connection *pConnection, const std::string &request) const;
    void Close(Connection *pConnection);

    std::string m_description;
    bool m_bUdp;
    int m_nEpoll;
    int m_nListener = -1;
    std::list<Connection> m_connections;
    KovaBarePlayers m_playing;
};
