#include "foundation/hex.h"
#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "live/rtsp/digest_header.h"
#include "live/rtsp/digest_response.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(DigestHeader, EveryParameterIsFound)
{
    KovaDigestHeader header;
    ASSERT_TRUE(KovaDigestHeaderParse(
        "Digest username=\"u\", realm=\"r\", nonce=\"n\", uri=\"rtsp://h/p\", response=\"0a\", "
        "algorithm=SHA-256, cnonce=\"c\", opaque=\"o\", qop=auth, nc=00000001",
        &header));
    EXPECT_EQ(header.values[kDigestUserName], "u");
    EXPECT_EQ(header.values[kDigestRealm], "r");
    EXPECT_EQ(header.values[kDigestNonce], "n");
    EXPECT_EQ(header.values[kDigestUri], "rtsp://h/p");
    EXPECT_EQ(header.values[kDigestResponse], "0a");
    EXPECT_EQ(header.values[kDigestAlgorithm], "SHA-256");
    EXPECT_EQ(header.values[kDigestCnonce], "c");
    EXPECT_EQ(header.values[kDigestOpaque], "o");
    EXPECT_EQ(header.values[kDigestQop], "auth");
    EXPECT_EQ(header.values[kDigestCount], "00000001");
}

TEST(DigestHeader, OrderCaseBlanksAndQuotesAreFree)
{
    for (const char *szText : {
             "Digest nc=1,username=u,uri=/a=b,realm=\"r s\"",
             "digest\t NC = 1 ,\tUserName\t=\t\"u\" , URI=\"/a=b\",realm=\"r s\"  ",
             "DIGEST ,, realm=\"r s\",,uri=/a=b, nc=\"1\", , username=\"u\",",
             "  Digest x=\"y, realm=\\\"no\\\"\", realm=\"r s\", nc=1, username=u, uri=\"/a=b\", "
             "z=1",
         }) {
        KovaDigestHeader header;
        ASSERT_TRUE(KovaDigestHeaderParse(szText, &header)) << szText;
        EXPECT_EQ(header.values[kDigestUserName], "u") << szText;
        EXPECT_EQ(header.values[kDigestRealm], "r s") << szText;
        EXPECT_EQ(header.values[kDigestUri], "/a=b") << szText;
        EXPECT_EQ(header.values[kDigestCount], "1") << szText;
        EXPECT_EQ(header.nFound & KovaDigestBit(kDigestNonce), 0) << szText;
    }
}

TEST(DigestHeader, AnEmptyQuotedValueIsThere)
{
    KovaDigestHeader header;
    ASSERT_TRUE(KovaDigestHeaderParse("Digest opaque=\"\"", &header));
    EXPECT_EQ(header.nFound, KovaDigestBit(kDigestOpaque));
    EXPECT_EQ(header.values[kDigestOpaque], "");
    EXPECT_EQ(header.values[kDigestAlgorithm], "MD5") << "when nothing is said";
}

TEST(DigestHeader, BrokenFormsAreRefused)
{
    for (const char *szText : {
             "",
             "Basic dXNlcjpwYXNz",
             "Digestusername=\"u\"",
             "Digest username",
             "Digest username=",
             "Digest username=, realm=\"r\"",
             "Digest =\"u\"",
             "Digest \"u\"",
             "Digest username=\"u",
             "Digest username=\"u\\\"",
             "Digest username=\"u\\",
             "Digest username=\"",
             "Digest username=\"u\" realm=\"r\"",
             "Digest username=\"u\"realm=\"r\"",
             "Digest username=u\"r\"",
             "Digest username=\"u\", username=\"u\"",
             "Digest username=\"\", UserName=v",
             "Digest username \"u\"",
         }) {
        KovaDigestHeader header;
        EXPECT_FALSE(KovaDigestHeaderParse(szText, &header)) << szText;
    }
    KovaDigestHeader header;
    EXPECT_FALSE(KovaDigestHeaderParse(std::string_view(), &header));
    EXPECT_FALSE(KovaDigestHeaderParse(std::string_view("Digest nc=\"1\"\0", 15), &header));
}

TEST(DigestHeader, NothingBehindTheTextIsRead)
{
    const std::string whole = "Digest username=\"a\\\"b\", nc = 1 , realm=\"r\"";
    for (size_t nLength = 0; nLength <= whole.size(); nLength++) {
        // On the heap without a NUL, where the address sanitizer sees its end.
        const std::vector<char> part(whole.begin(), whole.begin() + static_cast<long>(nLength));
        KovaDigestHeader header;
        KovaDigestHeaderParse({part.data(), part.size()}, &header);
    }
}

TEST(DigestHeader, ValuesAreComparedWithAndWithoutTheirBackslashes)
{
    EXPECT_TRUE(KovaDigestValueIs("camera", "camera"));
    EXPECT_TRUE(KovaDigestValueIs("house\\camera", "house\\camera"));
    EXPECT_TRUE(KovaDigestValueIs("house\\\\camera", "house\\camera"));
    EXPECT_TRUE(KovaDigestValueIs("c\\amera", "camera"));
    EXPECT_TRUE(KovaDigestValueIs("camera\\", "camera\\"));
    EXPECT_TRUE(KovaDigestValueIs("camer\\a", "camera"));
    EXPECT_TRUE(KovaDigestValueIs("camera\\\\", "camera\\"));
    EXPECT_FALSE(KovaDigestValueIs("Camera", "camera"));
    EXPECT_FALSE(KovaDigestValueIs("camer", "camera"));
    EXPECT_FALSE(KovaDigestValueIs("cameras", "camera"));
    EXPECT_FALSE(KovaDigestValueIs("", "camera"));
    EXPECT_FALSE(KovaDigestValueIs("camera", ""));
    EXPECT_FALSE(KovaDigestValueIs(std::string_view("camera\0", 7), "camera"));
    // On the heap without a NUL, where the address sanitizer sees its end.
    const std::vector<char> name = {'c', 'a', 'm'};
    EXPECT_FALSE(KovaDigestValueIs("camera", {name.data(), name.size()}));
}

std::string Response(const KovaHashAlgorithm &algorithm, const char *szRealm,
                     const char *szPassword, const KovaDigestHeader &header)
{
    uint8_t secret[kHashMaxSize];
    uint8_t response[kHashMaxSize];
    char digits[2 * kHashMaxSize + 1];
    KovaDigestSecret(algorithm, "Mufasa", szRealm, szPassword, secret);
    KovaDigestResponse(algorithm, secret, "GET", header, response);
    KovaHexWrite(digits, response, algorithm.nSize);
    return digits;
}

TEST(DigestResponse, IsThatOfRfc7616)
{
    KovaDigestHeader header;
    ASSERT_TRUE(KovaDigestHeaderParse(
        "Digest username=\"Mufasa\", realm=\"http-auth@example.org\", uri=\"/dir/index.html\", "
        "algorithm=MD5, nonce=\"7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v\", nc=00000001, "
        "cnonce=\"f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ\", qop=auth, "
        "response=\"8ca523f5e9506fed4657c9700eebdbec\", "
        "opaque=\"FQhe/qaU925kfnzjCev0ciny7QMkPqMAFRtzCUYo5tdS\"",
        &header));
    EXPECT_EQ(Response(kHashMd5, "http-auth@example.org", "Circle of Life", header),
              "8ca523f5e9506fed4657c9700eebdbec");
    EXPECT_EQ(Response(kHashSha256, "http-auth@example.org", "Circle of Life", header),
              "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1");
}

TEST(DigestResponse, IsThatOfRfc2617)
{
    KovaDigestHeader header;
    ASSERT_TRUE(KovaDigestHeaderParse(
        "Digest username=\"Mufasa\", realm=\"testrealm@host.com\", "
        "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", uri=\"/dir/index.html\", qop=auth, "
        "nc=00000001, cnonce=\"0a4f113b\", response=\"6629fae49393a05397450978507c4ef1\", "
        "opaque=\"5ccc069c403ebaf9f0171e9517f40e41\"",
        &header));
    EXPECT_EQ(Response(kHashMd5, "testrealm@host.com", "Circle Of Life", header),
              "6629fae49393a05397450978507c4ef1");
}

TEST(DigestResponse, IsThatOfRfc2069WithoutQop)
{
    KovaDigestHeader header;
    ASSERT_TRUE(KovaDigestHeaderParse("Digest username=\"Mufasa\", realm=\"testrealm@host.com\", "
                                      "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", "
                                      "uri=\"/dir/index.html\"",
                                      &header));
    // The RFC prints another value; its errata has this one.
    EXPECT_EQ(Response(kHashMd5, "testrealm@host.com", "CircleOfLife", header),
              "1949323746fe6a43ef61f9606e7febea");
}

} // namespace
