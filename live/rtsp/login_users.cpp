#include "live/rtsp/login_users.h"

#include "foundation/heap.h"
#include "foundation/wipe.h"
#include "live/rtsp/digest_header.h"
#include "live/rtsp/digest_response.h"

#include <cstdlib>
#include <cstring>

namespace {

/// Whether a text is one that stands between quotes as it is, and without a character.
bool IsPlain(const char *szText, char nOther)
{
    if (szText == nullptr || szText[0] == '\0')
        return false;
    for (; *szText != '\0'; szText++) {
        const auto nByte = static_cast<unsigned char>(*szText);
        if (nByte < 0x20 || nByte == 0x7F || nByte == '"' || *szText == nOther)
            return false;
    }
    return true;
}

void FillUser(const KovaLiveUser &from, std::string_view realm, KovaLoginUser *pUser)
{
    pUser->nNameLength = strlen(from.name);
    KovaDigestSecret(kHashSha256, from.name, realm, from.password, pUser->sha256);
    KovaDigestSecret(kHashMd5, from.name, realm, from.password, pUser->md5);
}

} // namespace

bool KovaLoginRealmAllowed(const char *szRealm)
{
    return IsPlain(szRealm, '\\') && strlen(szRealm) < kLoginRealmSize;
}

int32_t KovaLoginUsersCreate(const KovaLiveUser *pUsers, uint32_t nCount, const char *szRealm,
                             KovaLoginUsers **ppUsers)
{
    *ppUsers = nullptr;
    if (nCount == 0)
        return KOVA_LIVE_OK;
    if (pUsers == nullptr || nCount > kLoginMaxUsers || !KovaLoginRealmAllowed(szRealm))
        return KOVA_LIVE_ERROR_ARGUMENT;
    size_t nNames = 0;
    for (uint32_t nIndex = 0; nIndex < nCount; nIndex++) {
        if (pUsers[nIndex].password == nullptr || !IsPlain(pUsers[nIndex].name, ':'))
            return KOVA_LIVE_ERROR_ARGUMENT;
        nNames += strlen(pUsers[nIndex].name) + 1;
    }
    const size_t nFixed = sizeof(KovaLoginUsers) + nCount * sizeof(KovaLoginUser);
    auto *pMade = static_cast<KovaLoginUsers *>(KovaHeapAlloc(nFixed + nNames));
    if (pMade == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    pMade->nBytes = nFixed + nNames;
    pMade->nCount = nCount;
    pMade->pUsers = reinterpret_cast<KovaLoginUser *>(pMade + 1);
    char *pName = reinterpret_cast<char *>(pMade->pUsers + nCount);
    for (uint32_t nIndex = 0; nIndex < nCount; nIndex++) {
        KovaLoginUser *pUser = &pMade->pUsers[nIndex];
        FillUser(pUsers[nIndex], szRealm, pUser);
        memcpy(pName, pUsers[nIndex].name, pUser->nNameLength + 1);
        pUser->szName = pName;
        pName += pUser->nNameLength + 1;
    }
    *ppUsers = pMade;
    return KOVA_LIVE_OK;
}

void KovaLoginUsersDestroy(KovaLoginUsers *pUsers)
{
    if (pUsers == nullptr)
        return;
    KovaWipe(pUsers, pUsers->nBytes);
    free(pUsers);
}

const KovaLoginUser *KovaLoginUsersFind(const KovaLoginUsers &users, std::string_view name)
{
    const KovaLoginUser *pFound = nullptr;
    for (uint32_t nIndex = 0; nIndex < users.nCount; nIndex++) {
        const KovaLoginUser &user = users.pUsers[nIndex];
        const bool bSame = KovaDigestValueIs(name, {user.szName, user.nNameLength});
        if (bSame && pFound == nullptr)
            pFound = &user;
    }
    return pFound;
}
