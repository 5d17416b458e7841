#pragma once

#include "foundation/hash.h"
#include "foundation/hex.h"
#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "live/rtsp/login.h"

#include <gtest/gtest.h>

#include <string>

/// What a player says in answer to a challenge.
struct KovaPlayerAnswer {
    const KovaHashAlgorithm *pAlgorithm = &kHashMd5;
    std::string algorithm = "algorithm=MD5, "; ///< as the header has it
    std::string user = "anna";
    std::string password = "pass word";
    std::string realm = "Kova";
    std::string nonce;
    std::string uri = "rtsp://10.0.0.2:554/house/cam/";
    std::string method = "DESCRIBE";
    std::string count = "00000001"; ///< "" for an answer without qop
    std::string qop = "auth";
    std::string more; ///< ", ..." at the end
};

/// Calculates from the RFC's formulas, with texts.
inline std::string KovaHexHash(const KovaHashAlgorithm &algorithm, const std::string &text)
{
    KovaHash hash;
    uint8_t result[kHashMaxSize];
    char digits[2 * kHashMaxSize + 1];
    KovaHashBegin(&hash, algorithm);
    KovaHashAdd(&hash, text);
    KovaHashEnd(&hash, result);
    KovaHexWrite(digits, result, algorithm.nSize);
    return digits;
}

inline std::string KovaAuthorizationOf(const KovaPlayerAnswer &answer)
{
    const auto hash = [&](const std::string &text) {
        return KovaHexHash(*answer.pAlgorithm, text);
    };
    const std::string secret = hash(answer.user + ":" + answer.realm + ":" + answer.password);
    const std::string request = hash(answer.method + ":" + answer.uri);
    const std::string middle = answer.count.empty()
                                   ? answer.nonce
                                   : answer.nonce + ":" + answer.count + ":0a4f113b:" + answer.qop;
    std::string text = "Digest username=\"" + answer.user + "\", realm=\"" + answer.realm +
                       "\", nonce=\"" + answer.nonce + "\", uri=\"" + answer.uri + "\", " +
                       answer.algorithm + "response=\"" +
                       hash(secret + ":" + middle + ":" + request) + "\"";
    if (!answer.count.empty())
        text += ", qop=" + answer.qop + ", nc=" + answer.count + ", cnonce=\"0a4f113b\"";
    return text + answer.more;
}

/// A server with two users, and one connection to it.
class LoginTest : public testing::Test {
protected:
    static constexpr uint64_t kSecond = 1000000;
    static constexpr uint32_t kPlayer = 0x0A000007;

    void SetUp() override
    {
        const KovaLiveUser users[] = {{"anna", "pass word"}, {"bert", "geheim"}};
        ASSERT_EQ(KovaLoginUsersCreate(users, 2, "Kova", &m_pUsers), KOVA_LIVE_OK);
        m_pLogin = KovaLoginCreate("Kova");
        ASSERT_NE(m_pLogin, nullptr);
    }
    void TearDown() override
    {
        KovaLoginUsersDestroy(m_pUsers);
        KovaLoginDestroy(m_pLogin);
    }

    /// Challenges the connection; an answer to that is begun.
    KovaPlayerAnswer Challenged(KovaLoginState *pState)
    {
        char text[1024];
        EXPECT_TRUE(KovaLoginChallenge(m_pLogin, pState, false, m_nNow, text, sizeof(text)));
        KovaPlayerAnswer answer;
        answer.nonce = pState->szNonce;
        return answer;
    }
    KovaPlayerAnswer Challenged()
    {
        return Challenged(&m_state);
    }

    KovaLoginVerdict CheckHeader(KovaLoginState *pState, const std::string &header,
                                 const std::string &url = "rtsp://10.0.0.2:554/house/cam/",
                                 uint32_t nAddress = kPlayer, const char *szPath = "house/cam")
    {
        KovaRequest request = {};
        request.method = kMethodDescribe;
        request.methodText = "DESCRIBE";
        request.url = url;
        request.version = "RTSP/1.0";
        request.nHeaders = 2;
        request.headers[0] = {"CSeq", "1"};
        request.headers[1] = {"authorization", header};
        return KovaLoginCheck(m_pLogin, m_pUsers, pState, request, szPath, nAddress, m_nNow,
                              &m_nDelay);
    }
    KovaLoginVerdict Check(const KovaPlayerAnswer &answer)
    {
        return CheckHeader(&m_state, KovaAuthorizationOf(answer));
    }

    KovaLoginUsers *m_pUsers = nullptr;
    KovaLogin *m_pLogin = nullptr;
    KovaLoginState m_state = {};
    uint64_t m_nNow = 77 * kSecond;
    uint32_t m_nDelay = 0;
};
