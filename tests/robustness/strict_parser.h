#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// Takes the bytes of a player's RTSP connection apart and forgives nothing: at
/// every border there is an interleaved frame or a response. A response may be
/// cut (the server drops what a full socket does not take), a frame never is.
class KovaStrictParser {
public:
    KovaStrictParser();

    /// Of one frame.
    std::function<void(int nChannel, std::string_view payload)> onFrame;
    /// Of one response, whole or cut.
    std::function<void(std::string_view text, bool bWhole)> onResponse;

    /// Takes the next bytes. Returns false once the stream has made no sense.
    bool Take(std::string_view bytes);

    /// What was wrong; empty as long as nothing was.
    const std::string &Fault() const
    {
        return m_fault;
    }
    /// Bytes at the end that make no frame and no response yet.
    const std::string &Rest() const
    {
        return m_input;
    }

private:
    size_t TakePiece(std::string_view bytes);

    std::string m_input;
    std::string m_fault;
    uint64_t m_nTaken = 0;
};
