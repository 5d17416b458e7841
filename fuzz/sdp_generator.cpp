#include "classic/sdp/sdp_generator.h"
#include "classic/rtp/rtp_packer.h"
#include "fuzz/support/base64_model.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/world.h"

#include <algorithm>
#include <cstring>
#include <memory>

// A session description from any URI, addresses, media and parameter sets equals the model's, is a
// terminated text within its room, and is ready when the model is.
//
// Input: the URI (length byte first), then operations: 0 add a section, 1 tell what was found in a
// stream, 2 set the addresses, 3 remove a section, 4 compare.

namespace {

constexpr uint32_t kAudio = 1;
constexpr uint32_t kVideo = 2;

struct Section {
    uint32_t nType;
    uint32_t nId;
    uint32_t nBitrate;
    uint32_t nRate;
    uint32_t nChannels;
    std::string config;
    std::string profile;
    std::string sps;
    std::string pps;
};

std::string Signed(uint32_t nValue)
{
    return std::to_string(static_cast<int32_t>(nValue));
}

std::string Hex(const std::vector<uint8_t> &bytes, size_t nFrom, size_t nCount)
{
    std::string text;
    for (size_t n = nFrom; n < nFrom + nCount; n++) {
        const unsigned nByte = n < bytes.size() ? bytes[n] : 0;
        text += "0123456789ABCDEF"[nByte >> 4];
        text += "0123456789ABCDEF"[nByte & 15];
    }
    return text;
}

class Model {
public:
    void Tell(uint32_t nId, uint32_t nKind, const std::vector<uint8_t> &data)
    {
        const auto section = Find(nId);
        if (section == sections.end() || data.empty())
            return;
        const std::string base64 = KovaBase64Of(data);
        const bool bFits = base64.size() < 256;
        if (section->nType == kAudio && nKind == kInfoAacConfig) {
            section->config = Hex(data, 0, 2);
        } else if (section->nType == kAudio && nKind == kInfoAacSampleRate) {
            std::string text(data.begin(), data.end());
            text.resize(std::min<size_t>(text.size(), 15));
            section->nRate = static_cast<uint32_t>(atoi(text.c_str()));
        } else if (section->nType == kVideo && nKind == kInfoSps && bFits) {
            section->sps = base64;
            section->profile = Hex(data, 1, 3);
        } else if (section->nType == kVideo && nKind == kInfoPps && bFits) {
            section->pps = base64;
        }
    }

    std::vector<Section>::iterator Find(uint32_t nId)
    {
        return std::find_if(sections.begin(), sections.end(),
                            [nId](const Section &section) { return section.nId == nId; });
    }

    bool IsReady() const
    {
        return !sections.empty() &&
               std::all_of(sections.begin(), sections.end(), [](const Section &section) {
                   return section.nType == kAudio ? !section.config.empty()
                                                  : !section.sps.empty() && !section.pps.empty();
               });
    }

    /// @param session  the 18 digits of the moment
    std::string Text(const std::string &session) const
    {
        std::string text = "v=0\r\no=- " + session + " " + session + " IN IP4 " + address +
                           "\r\ns= Unnamed\r\nc=IN IP4 0.0.0.0\r\na=control:rtsp://" + address +
                           ":" + std::to_string(nPort) + "/" + uri +
                           "\r\na=recvonly\r\na=type:broadcast\r\nt=0 0\r\n";
        for (const Section &section : sections) {
            const std::string more = section.nType == kAudio ? Audio(section) : Video(section);
            if (text.size() + more.size() < kSdpTextSize)
                text += more;
        }
        return text;
    }

    std::string uri;
    std::string address;
    uint16_t nPort = 0;
    std::vector<Section> sections;

private:
    static std::string Audio(const Section &section)
    {
        const std::string id = Signed(section.nId);
        return "m=audio 0 RTP/AVP " + id + "\r\nb=AS:" + Signed(section.nBitrate) +
               "\r\nb=RR:0\r\na=rtpmap:" + id + " mpeg4-generic/" + Signed(section.nRate) + "/" +
               Signed(section.nChannels) + "\r\na=control:trackID=" + id + "\r\na=fmtp:" + id +
               " streamtype=5;profile-level-id=15;mode=AAC-hbr;config=" + section.config +
               ";sizeLength=13;indexLength=3;indexDeltaLength=3;Profile=1;\r\n";
    }
    static std::string Video(const Section &section)
    {
        const std::string id = Signed(section.nId);
        return "m=video 0 RTP/AVP " + id + "\r\nb=AS:" + Signed(section.nBitrate) +
               "\r\na=rtpmap:" + id + " H264/90000\r\na=control:trackID=" + id +
               "\r\na=fmtp:" + id + " packetization-mode=1;profile-level-id=" + section.profile +
               ";sprop-parameter-sets=" + section.sps + "," + section.pps + ";\r\n";
    }
};

std::string UpToNul(const std::string &bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

void Compare(KovaRtspSdpGenerator *pGenerator, const Model &model)
{
    constexpr size_t kDigitsAt = 9;
    constexpr size_t kDigits = 18;
    KovaRequire(KovaRtspSdpGeneratorIsReady(pGenerator) == (model.IsReady() ? 1 : 0),
                "ready when every section is");
    const std::unique_ptr<char[]> pText(new char[kSdpTextSize]);
    memset(pText.get(), 0x55, kSdpTextSize);
    int32_t nLength = -1;
    KovaRtspGenerateSdpGetSdpInfo(pGenerator, pText.get(), &nLength);
    KovaRequire(memchr(pText.get(), 0, kSdpTextSize) != nullptr, "a description is terminated");
    const std::string text = pText.get();
    KovaRequire(nLength == static_cast<int32_t>(text.size()), "the length is the text's");
    const std::string session = text.substr(kDigitsAt, kDigits);
    KovaRequire(session.find_first_not_of("0123456789") == std::string::npos,
                "the session is a number");
    KovaRequire(text == model.Text(session), "a description equals the model's");
}

void AddSection(KovaFuzzInput *pInput, KovaRtspSdpGenerator *pGenerator, Model *pModel)
{
    const uint32_t nType = pInput->Byte() % 4;
    const uint32_t nId = pInput->Word() % 2048;
    const uint32_t description[3] = {pInput->Long(), pInput->Long(), pInput->Long()};
    const bool bKnown = nType == kAudio || nType == kVideo;
    KovaRequire(KovaRtspSdpGeneratorAddMedia(pGenerator, nType, nId, description) ==
                    (bKnown ? 0 : 1),
                "only known media are added");
    if (bKnown)
        pModel->sections.push_back(
            {nType, nId, description[0], description[1], description[2], "", "", "", ""});
}

void Operate(KovaFuzzInput *pInput, KovaRtspSdpGenerator *pGenerator, Model *pModel)
{
    switch (pInput->Byte() % 5) {
    case 0:
        AddSection(pInput, pGenerator, pModel);
        break;
    case 1: {
        const uint32_t nId = pInput->Word() % 2048;
        const uint32_t nKind = pInput->Byte() % 6;
        const std::vector<uint8_t> data = pInput->Bytes(pInput->Byte());
        KovaRtspSdpGeneratorSetMediaInfo(pGenerator, nId, nKind, data.data(),
                                         static_cast<uint32_t>(data.size()));
        pModel->Tell(nId, nKind, data);
        break;
    }
    case 2: {
        const uint16_t nPort = static_cast<uint16_t>(pInput->Word());
        const std::string address = UpToNul(pInput->Text(pInput->Byte()));
        KovaRtspSdpGeneratorSetNetworkInfo(pGenerator, address.c_str(), nPort, address.c_str());
        pModel->nPort = nPort;
        pModel->address = address.substr(0, 15);
        break;
    }
    case 3: {
        const uint32_t nId = pInput->Word() % 2048;
        KovaRtspSdpGeneratorRemoveMediaByPayloadId(pGenerator, nId);
        if (pModel->Find(nId) != pModel->sections.end())
            pModel->sections.erase(pModel->Find(nId));
        break;
    }
    default:
        Compare(pGenerator, *pModel);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    KovaFuzzInput input(pData, nSize);
    KovaWorldBegin();
    Model model;
    std::string uri = UpToNul(input.Text(input.Byte()));
    // A few bytes can make a URI of any length up to one that is too long.
    while (!uri.empty() && uri.back() == '~' && uri.size() < 1100)
        uri += uri;
    model.uri = uri.substr(0, KOVA_MAX_URI_LENGTH);
    KovaRtspSdpGenerator *pGenerator = KovaRtspSdpGeneratorCreate(uri.c_str());
    KovaRequire(pGenerator != nullptr, "a generator can be made");
    while (!input.IsEmpty())
        Operate(&input, pGenerator, &model);
    Compare(pGenerator, model);
    KovaRtspSdpGeneratorDestroy(pGenerator);
    KovaWorldEnd();
    return 0;
}
