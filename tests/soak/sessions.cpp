#include "tests/soak/sessions.h"

#include "tests/support/server_records.h"
#include "tests/support/test_server.h"

#include <ctime>

int KovaSoakSessions::Number(const std::string &id)
{
    // In the field that no operation of the library uses.
    int nNumber = 0;
    KovaForEachSession(m_pServer, [&](KovaRtspSession *pSession) {
        if (id == pSession->szSessionId && pSession->nSpare == 0)
            pSession->nSpare = nNumber = ++m_nLast;
    });
    return nNumber;
}

bool KovaSoakSessions::Exists(int nNumber)
{
    bool bFound = false;
    KovaForEachSession(
        m_pServer, [&](const KovaRtspSession *pSession) { bFound |= pSession->nSpare == nNumber; });
    return bFound;
}

void KovaSoakSessions::Expire(int nNumber)
{
    KovaForEachSession(m_pServer, [&](KovaRtspSession *pSession) {
        if (pSession->nSpare == nNumber)
            pSession->tExpire = 1;
    });
}

void KovaSoakSessions::ExpireAll()
{
    KovaForEachSession(m_pServer, [](KovaRtspSession *pSession) { pSession->tExpire = 1; });
}

std::string KovaSoakSessions::Describe(const std::string &id, KovaRtspStreamer *pStream)
{
    std::string text = "id " + id;
    KovaForEachSession(m_pServer, [&](const KovaRtspSession *pSession) {
        if (id == pSession->szSessionId)
            text += ", session " + std::to_string(pSession->nSpare) + " that ends in " +
                    std::to_string(pSession->tExpire - time(nullptr)) + " s";
    });
    for (uint32_t nId = KOVA_PAYLOAD_ID_AUDIO; nId <= KOVA_PAYLOAD_ID_VIDEO; nId++)
        for (const KovaTestServer::Client &client : KovaTestServer::Clients(pStream, nId))
            if (client.session == id)
                text += ", client of " + std::to_string(nId) + " in state " +
                        std::to_string(client.nState) + " on socket " +
                        std::to_string(client.nTcpSocket);
    return text;
}
