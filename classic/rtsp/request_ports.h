#pragma once

#include "classic/rtsp/request_info.h"

/// Owns the pair of UDP sockets that a request has opened, until a client takes
/// them over. The request's record names them; its numbers stay in it.
class KovaRequestPorts {
public:
    KovaRequestPorts() = default;
    ~KovaRequestPorts()
    {
        Close();
    }
    KovaRequestPorts(const KovaRequestPorts &) = delete;
    KovaRequestPorts &operator=(const KovaRequestPorts &) = delete;

    /// Opens the next free pair for the client port in *pInfo and notes everything
    /// there. Once.
    void Open(KovaRtspRequestInfo *pInfo);

    /// Whether a search has found nothing: the record's sockets are dead numbers then.
    bool HaveFailed() const
    {
        return m_bFailed;
    }

    /// Closes the pair if it is open and nobody has taken it.
    void Close();

    /// Leaves the pair to a client.
    void Release()
    {
        m_nRtpSocket = -1;
        m_nRtcpSocket = -1;
    }

private:
    int32_t m_nRtpSocket = -1;
    int32_t m_nRtcpSocket = -1;
    bool m_bFailed = false;
};
