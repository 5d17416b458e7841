#include "foundation/log.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/world.h"

#include <cstdio>
#include <string>

// A log line with any text in it prints that text and nothing else: the stamp, the message cut at
// its limit, a doubled percent sign as one and every other one as it stands.
//
// Input: a byte of switches (1 a second argument and a name, 4 a level that is not printed), then
// the text.

namespace {

constexpr size_t kMostCharacters = 8191;
constexpr size_t kStampSize = 20;

/// What the library prints goes into a buffer while an object of this class lives.
class Capture {
public:
    Capture() : m_pBefore(stdout)
    {
        stdout = open_memstream(&m_pText, &m_nSize);
        KovaRequire(stdout != nullptr, "a stream in memory can be made");
    }
    ~Capture()
    {
        fclose(stdout);
        stdout = m_pBefore;
        free(m_pText);
    }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;

    std::string Text() const
    {
        fflush(stdout);
        return std::string(m_pText, m_nSize);
    }

private:
    FILE *m_pBefore;
    char *m_pText = nullptr;
    size_t m_nSize = 0;
};

std::string Collapsed(const std::string &line)
{
    std::string shown;
    for (size_t n = 0; n < line.size(); n++) {
        shown += line[n];
        if (line[n] == '%' && n + 1 < line.size() && line[n + 1] == '%')
            n++;
    }
    return shown;
}

bool IsStamp(const std::string &stamp)
{
    const std::string form = "0000/00/00 00:00:00 ";
    for (size_t n = 0; n < form.size(); n++) {
        const bool bDigit = stamp[n] >= '0' && stamp[n] <= '9';
        if (form[n] == '0' ? !bDigit : stamp[n] != form[n])
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    KovaFuzzInput input(pData, nSize);
    const uint8_t nSwitches = input.Byte();
    std::string text;
    for (const uint8_t nByte : input.Rest())
        text += static_cast<char>(nByte);
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    const uint32_t nLevel = (nSwitches & 4) != 0 ? kLogThread : kLogFailure;
    KovaWorldBegin();
    {
        const Capture capture;
        std::string message = text;
        if ((nSwitches & 1) != 0) {
            TimeLog(nLevel, "%s, %d(%s)\n", text.c_str(), -7, text.c_str());
            message = text + ", -7(" + text + ")\n";
        } else {
            TimeLog(nLevel, "%s", text.c_str());
        }
        const std::string printed = capture.Text();
        if (nLevel > kLogOverflow) {
            KovaRequire(printed.empty(), "a level that does not pass prints nothing");
        } else {
            KovaRequire(printed.size() >= kStampSize && IsStamp(printed), "a line has its stamp");
            const std::string line =
                (printed.substr(0, kStampSize) + message).substr(0, kMostCharacters);
            KovaRequire(printed == Collapsed(line), "a line is its stamp and its message");
        }
    }
    KovaWorldEnd();
    return 0;
}
