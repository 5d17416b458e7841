#include "foundation/base64.h"
#include "fuzz/support/base64_model.h"
#include "fuzz/support/require.h"

#include <cstring>
#include <memory>

// Encoding and decoding equal a plain model's, keep to the announced lengths and end with a NUL;
// what was encoded decodes to itself.
//
// Input: bytes to encode, and a text to decode.

namespace {

void CheckEncoding(const std::vector<uint8_t> &bytes)
{
    const int32_t nCount = static_cast<int32_t>(bytes.size());
    const std::string expected = KovaBase64Of(bytes);
    const int32_t nLength = Base64encode_len(nCount);
    KovaRequire(nLength == static_cast<int32_t>(expected.size()) + 1, "the length is announced");
    const std::unique_ptr<char[]> pText(new char[static_cast<size_t>(nLength)]);
    KovaRequire(Base64encode(pText.get(), reinterpret_cast<const char *>(bytes.data()), nCount) ==
                    nLength,
                "as many characters as announced");
    KovaRequire(memcmp(pText.get(), expected.c_str(), expected.size() + 1) == 0,
                "the encoding equals the model's");
}

void CheckDecoding(const std::string &text, const std::vector<uint8_t> &expected)
{
    const std::unique_ptr<char[]> pText(new char[text.size() + 1]);
    memcpy(pText.get(), text.c_str(), text.size() + 1);
    const int32_t nLength = Base64decode_len(pText.get());
    KovaRequire(nLength > 0, "there is always room for the NUL");
    const std::unique_ptr<char[]> pBytes(new char[static_cast<size_t>(nLength)]);
    const int32_t nCount = Base64decode(pBytes.get(), pText.get());
    KovaRequire(nCount == static_cast<int32_t>(expected.size()), "as many bytes as the model's");
    KovaRequire(nCount < nLength, "not more bytes than announced");
    KovaRequire(expected.empty() || memcmp(pBytes.get(), expected.data(), expected.size()) == 0,
                "the bytes equal the model's");
    KovaRequire(pBytes[static_cast<size_t>(nCount)] == '\0', "a NUL follows");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    const std::vector<uint8_t> bytes(pData, pData + nSize);
    CheckEncoding(bytes);
    CheckDecoding(KovaBase64Of(bytes), bytes);
    std::string text(bytes.begin(), bytes.end());
    text.resize(strlen(text.c_str()));
    CheckDecoding(text, KovaBase64Bytes(text));
    return 0;
}
