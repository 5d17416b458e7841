#include "classic/rtsp/request_ports.h"

#include "classic/rtsp/server_ports.h"

#include <unistd.h>

void KovaRequestPorts::Open(KovaRtspRequestInfo *pInfo)
{
    pInfo->nClientRtcpPort = static_cast<uint16_t>(pInfo->nClientRtpPort + 1);
    GetServerPort(pInfo->nClientRtpPort, pInfo->nClientRtcpPort, &pInfo->nServerRtpPort,
                  &pInfo->nServerRtcpPort, &pInfo->nRtpSocket, &pInfo->nRtcpSocket);
    m_bFailed = pInfo->nServerRtpPort == 0;
    if (m_bFailed)
        return;
    m_nRtpSocket = pInfo->nRtpSocket;
    m_nRtcpSocket = pInfo->nRtcpSocket;
}

void KovaRequestPorts::Close()
{
    if (m_nRtpSocket < 0)
        return;
    close(m_nRtpSocket);
    close(m_nRtcpSocket);
    Release();
}
