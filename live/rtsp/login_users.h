#pragma once

#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "live/rtsp/login.h"

#include <string_view>

/// A user: the name, and H(user:realm:password) of both hashes.
struct KovaLoginUser {
    const char *szName;
    size_t nNameLength;
    uint8_t sha256[kSha256Size];
    uint8_t md5[kMd5Size];
};

/// One block: the users and, behind them, their names.
struct KovaLoginUsers {
    size_t nBytes; ///< of the block
    uint32_t nCount;
    KovaLoginUser *pUsers;
};

/// The user whose name a header's value means; null for none. Looks at all of them, so
/// that the time does not tell which names there are.
const KovaLoginUser *KovaLoginUsersFind(const KovaLoginUsers &users, std::string_view name);
