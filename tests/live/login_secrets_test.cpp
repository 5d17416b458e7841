#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "live/rtsp/digest_response.h"
#include "live/rtsp/login.h"
#include "live/rtsp/login_nonce.h"
#include "tests/support/c_calls.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <functional>
#include <string>

// What is left of secrets, and what nonces are made of.

namespace {

using Search = std::function<bool(const std::string &)>;

std::string BytesOf(void *pBlock)
{
    return std::string(static_cast<const char *>(pBlock), malloc_usable_size(pBlock));
}

/// Looks at one block once more when the library frees it.
void *g_pWatched = nullptr;
std::string g_left;

void WatchingFree(void *pBlock)
{
    if (pBlock != nullptr && pBlock == g_pWatched)
        g_left = BytesOf(pBlock);
    __real_free(pBlock);
}

/// A block holds a secret while it is in use, and not when it is freed.
void ExpectWiped(void *pBlock, const std::function<void()> &destroy, const Search &holdsSecret)
{
    EXPECT_TRUE(holdsSecret(BytesOf(pBlock)));
    g_left.clear();
    g_pWatched = pBlock;
    KovaReplaceCall<__real_free>(WatchingFree);
    destroy();
    KovaReplaceCall<__real_free>(nullptr);
    g_pWatched = nullptr;
    EXPECT_FALSE(g_left.empty()) << "it is one block";
    EXPECT_FALSE(holdsSecret(g_left));
}

TEST(LoginSecrets, DigestsOfPasswordsAreWipedBeforeTheirMemoryIsFreed)
{
    for (const KovaHashAlgorithm *pAlgorithm : {&kHashMd5, &kHashSha256}) {
        const KovaLiveUser users[] = {{"anna", "pass word"}, {"bert", "geheim"}};
        KovaLoginUsers *pUsers = nullptr;
        ASSERT_EQ(KovaLoginUsersCreate(users, 2, "Kova", &pUsers), KOVA_LIVE_OK);
        uint8_t secret[kHashMaxSize];
        KovaDigestSecret(*pAlgorithm, "bert", "Kova", "geheim", secret);
        const std::string wanted(reinterpret_cast<const char *>(secret), pAlgorithm->nSize);
        ExpectWiped(
            pUsers, [&] { KovaLoginUsersDestroy(pUsers); },
            [&](const std::string &block) { return block.find(wanted) != std::string::npos; });
    }
}

TEST(LoginSecrets, KeyOfTheNoncesIsWipedBeforeItsMemoryIsFreed)
{
    KovaLogin *pLogin = KovaLoginCreate("Kova");
    ASSERT_NE(pLogin, nullptr);
    KovaLoginState state = {};
    char text[1024];
    ASSERT_TRUE(KovaLoginChallenge(pLogin, &state, false, 1, text, sizeof(text)));
    ExpectWiped(
        pLogin, [&] { KovaLoginDestroy(pLogin); },
        [&](const std::string &block) {
            // Whatever bytes of the block are taken for the key.
            for (size_t nAt = 0; nAt + kLoginKeySize <= block.size(); nAt++)
                if (KovaLoginNonceIsOwn(reinterpret_cast<const uint8_t *>(block.data()) + nAt,
                                        state.szNonce))
                    return true;
            return false;
        });
}

TEST(LoginSecrets, NoncesBeginWithTheirTimeWhichNeverComesTwice)
{
    const uint8_t key[kLoginKeySize] = {1, 2, 3};
    char szNonce[kLoginNonceSize];
    ASSERT_TRUE(KovaLoginNonceMake(key, 0x0123456789ABCDEF, szNonce));
    EXPECT_EQ(std::string(szNonce).substr(0, 16), "0123456789abcdef");
    EXPECT_TRUE(KovaLoginNonceIsOwn(key, szNonce));
    ASSERT_TRUE(KovaLoginNonceMake(key, 1, szNonce));
    EXPECT_EQ(std::string(szNonce).substr(0, 16), "0000000000000001");
    EXPECT_TRUE(KovaLoginNonceIsOwn(key, szNonce));
}

} // namespace
