#include "tests/robustness/expected_answers.h"

#include <gtest/gtest.h>

#include <array>

namespace {

enum class Part {
    RequestLine,
    CSeq,
    Session,
    Transport
};
enum class Defect {
    Missing,
    Doubled,
    Empty,
    Huge,
    Binary
};
enum class Outcome {
    Answered,
    BadRequest,
    NotFound,
    NoSession
};

constexpr std::array<Part, 4> kParts = {Part::RequestLine, Part::CSeq, Part::Session,
                                        Part::Transport};
constexpr std::array<Defect, 5> kDefects = {Defect::Missing, Defect::Doubled, Defect::Empty,
                                            Defect::Huge, Defect::Binary};
constexpr size_t kHuge = 7000;
const std::string kBinary = "\x01\xff\x7f\xc3\x28";

/// The four parts of a request, each with its line end; a part may be empty.
struct Lines {
    std::string request;
    std::string cseq = "CSeq: 1\r\n";
    std::string session;
    std::string transport = "Transport: RTP/AVP/TCP;unicast;interleaved=4-5\r\n";

    std::string &Of(Part part)
    {
        return part == Part::RequestLine ? request
               : part == Part::CSeq      ? cseq
               : part == Part::Session   ? session
                                         : transport;
    }
    std::string Text() const
    {
        return request + cseq + session + transport + "\r\n";
    }
};

std::string Broken(Part part, Defect defect, const std::string &line)
{
    constexpr std::array<const char *, 4> kNames = {"", "CSeq: ", "Session: ", "Transport: "};
    const std::string name = kNames[static_cast<size_t>(part)];
    switch (defect) {
    case Defect::Missing:
        return {};
    case Defect::Doubled:
        return line + line;
    case Defect::Empty:
        return name + "\r\n";
    case Defect::Huge:
        if (part == Part::RequestLine)
            return line.substr(0, line.find("live")) + std::string(kHuge, 'a') + " RTSP/1.0\r\n";
        if (part == Part::Transport)
            return "Transport: RTP/AVP/TCP;interleaved=" + std::string(kHuge, '1') + "-2\r\n";
        return name + std::string(kHuge, '1') + "\r\n";
    case Defect::Binary:
        return name + kBinary + "\r\n";
    }
    return {};
}

/// What becomes of a request whose one part is broken so.
Outcome OutcomeOf(const std::string &method, bool bHasSession, Part part, Defect defect)
{
    const bool bWhole = defect == Defect::Doubled;
    switch (part) {
    case Part::RequestLine:
        return bWhole                   ? Outcome::Answered
               : defect == Defect::Huge ? Outcome::NotFound
                                        : Outcome::BadRequest;
    case Part::CSeq:
        return defect == Defect::Missing || defect == Defect::Huge ? Outcome::BadRequest
                                                                   : Outcome::Answered;
    case Part::Session:
        return defect == Defect::Missing || (bWhole && bHasSession) ? Outcome::Answered
                                                                    : Outcome::NoSession;
    case Part::Transport:
        return method == "SETUP" && !bWhole ? Outcome::BadRequest : Outcome::Answered;
    }
    return Outcome::BadRequest;
}

class HostileRequests : public ExpectedAnswers, public ::testing::WithParamInterface<const char *> {
protected:
    void Check(bool bAfterSetup, Part part, Defect defect)
    {
        KovaRtspTestClient player;
        ASSERT_TRUE(server->Connect(&player));
        ASSERT_TRUE(!bAfterSetup || player.SetupTcp("live", 97, 0).nStatus == 200);
        const std::string method = GetParam();
        Lines lines;
        lines.request = method + " rtsp://127.0.0.1/live" +
                        (method == "SETUP" ? "/trackID=97" : "") + " RTSP/1.0\r\n";
        if (bAfterSetup)
            lines.session = "Session: " + player.Session() + "\r\n";
        else if (part == Part::Session)
            lines.session = "Session: 98765432109\r\n";
        lines.Of(part) = Broken(part, defect, lines.Of(part));

        const bool bUsesSession =
            bAfterSetup && !(part == Part::Session && defect == Defect::Missing);
        const std::string session = bUsesSession ? player.Session() : "";
        const std::string cseq = part != Part::CSeq         ? "1"
                                 : defect == Defect::Empty  ? ""
                                 : defect == Defect::Binary ? kBinary
                                                            : "1";
        const std::string text = player.Exchange(lines.Text()).text;
        switch (OutcomeOf(method, bAfterSetup, part, defect)) {
        case Outcome::Answered:
            EXPECT_EQ(Masked(text, session), Answer(method, cseq, session));
            break;
        case Outcome::BadRequest:
            EXPECT_EQ(text, kBadRequest);
            break;
        case Outcome::NotFound:
            EXPECT_EQ(text, kNotFound);
            break;
        case Outcome::NoSession:
            EXPECT_EQ(text, kSessionNotFound);
            break;
        }
        // The connection goes on, and there was one answer only.
        EXPECT_EQ(player.Exchange("OPTIONS rtsp://127.0.0.1/live RTSP/1.0\r\nCSeq: 9\r\n\r\n").text,
                  Answer("OPTIONS", "9", ""));
    }
};

TEST_P(HostileRequests, AreAnsweredAsTheirFaultDeserves)
{
    for (const bool bAfterSetup : {false, true}) {
        for (const Part part : kParts) {
            for (const Defect defect : kDefects) {
                SCOPED_TRACE(testing::Message()
                             << (bAfterSetup ? "after" : "before") << " SETUP, part "
                             << static_cast<int>(part) << ", defect " << static_cast<int>(defect));
                Check(bAfterSetup, part, defect);
            }
        }
    }
    ExpectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Methods, HostileRequests,
                         ::testing::Values("OPTIONS", "DESCRIBE", "SETUP", "PLAY", "GET_PARAMETER",
                                           "TEARDOWN"),
                         [](const auto &test) { return std::string(test.param); });

} // namespace
