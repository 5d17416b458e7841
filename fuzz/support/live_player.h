#pragma once

#include "fuzz/support/live_server.h"
#include "tests/support/c_calls.h"
#include "tests/support/rtsp_text.h"

#include <algorithm>
#include <map>
#include <string>

/// One player: its end of the connection, and what it understood of what came.
class KovaLiveFuzzPlayer {
public:
    KovaLiveFuzzPlayer(KovaLiveFuzzServer *pServer, unsigned nNumber)
        : m_server(*pServer), m_nAddress(INADDR_LOOPBACK + nNumber),
          m_nPort(static_cast<uint16_t>(4000 + 100 * nNumber))
    {
        Connect();
    }
    ~KovaLiveFuzzPlayer()
    {
        Close();
    }
    KovaLiveFuzzPlayer(const KovaLiveFuzzPlayer &) = delete;
    KovaLiveFuzzPlayer &operator=(const KovaLiveFuzzPlayer &) = delete;

    void Connect()
    {
        Close();
        int ends[2];
        KovaRequire(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0,
                    "a connection");
        m_nSocket = ends[0];
        m_nServer = ends[1];
        KovaLiveLimit(m_nServer, kLiveNoLimit);
        m_server.Take(m_nServer, m_nAddress);
    }
    void Close()
    {
        if (m_nSocket < 0)
            return;
        close(m_nSocket);
        m_nSocket = -1;
        m_input.clear();
        m_orders.clear();
    }
    void Limit(int nBytes)
    {
        if (m_nSocket >= 0)
            KovaLiveLimit(m_nServer, nBytes);
    }
    void Send(const std::string &bytes) const
    {
        if (m_nSocket < 0)
            return;
        const ssize_t nSent =
            __real_send(m_nSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        (void)nSent;
    }
    /// Takes all that is there apart.
    void Read()
    {
        char bytes[65536];
        ssize_t nGot = 0;
        while (m_nSocket >= 0 &&
               (nGot = __real_recv(m_nSocket, bytes, sizeof(bytes), MSG_DONTWAIT)) > 0)
            m_input.append(bytes, static_cast<size_t>(nGot));
        for (;;) {
            const KovaRtspPiece piece = KovaFirstPiece(m_input);
            if (piece.nSize == 0)
                break;
            if (piece.nChannel < 0)
                TakeAnswer(std::string(piece.bytes));
            else if (piece.bytes.size() > 1 && (piece.bytes[1] & 0x7F) >= 96)
                KovaLiveCheckPacket(&m_orders[piece.nChannel],
                                    reinterpret_cast<const uint8_t *>(piece.bytes.data()),
                                    piece.bytes.size());
            else
                KovaRequire(piece.bytes.size() >= 8 && static_cast<uint8_t>(piece.bytes[1]) == 200,
                            "a frame that is no packet is a report");
            m_input.erase(0, piece.nSize);
        }
        KovaRequire(m_input.empty() || m_input[0] == '$' || KovaBeginsResponse(m_input),
                    "only answers and frames come");
        if (nGot == 0)
            Close();
    }
    /// Sequence numbers may go on elsewhere behind what is asked now.
    void ForgetOrder()
    {
        for (unsigned nTrack = 0; nTrack < 40; nTrack++)
            KovaLiveUdpForget(static_cast<uint16_t>(m_nPort + 2 * nTrack));
    }
    uint64_t Missing() const
    {
        uint64_t nMissing = 0;
        for (const auto &entry : m_orders)
            nMissing = std::max(nMissing, entry.second.nMissing);
        for (unsigned nTrack = 0; nTrack < 40; nTrack++) {
            const KovaLiveOrder *pOrder =
                KovaLiveUdpOrder(static_cast<uint16_t>(m_nPort + 2 * nTrack));
            if (pOrder != nullptr)
                nMissing = std::max(nMissing, pOrder->nMissing);
        }
        return nMissing;
    }
    bool IsOpen() const
    {
        return m_nSocket >= 0;
    }
    bool IsWhole() const
    {
        return m_input.empty();
    }
    unsigned Answers() const
    {
        return m_nAnswers;
    }
    uint16_t Port() const
    {
        return m_nPort;
    }
    uint32_t Address() const
    {
        return m_nAddress;
    }
    std::string session;
    uint16_t nLastPort = 1; ///< that was set up

private:
    void TakeAnswer(const std::string &text)
    {
        const KovaTestResponse answer = KovaReadResponse(text);
        KovaRequire(answer.bComplete && answer.nStatus >= 200, "an answer is whole");
        m_nAnswers++;
        if (!answer.Session().empty())
            session = answer.Session();
        // A pause, or a new beginning.
        for (auto &entry : m_orders)
            entry.second.bBegun = false;
    }

    KovaLiveFuzzServer &m_server;
    uint32_t m_nAddress;
    uint16_t m_nPort;
    int m_nSocket = -1;
    int m_nServer = -1;
    unsigned m_nAnswers = 0;
    std::string m_input;
    std::map<int, KovaLiveOrder> m_orders;
};
