#pragma once

#include <deque>
#include <functional>
#include <mutex>

/// How one send on a watched descriptor ends: with this errno when nError is
/// above 0, else after at most nMost bytes.
struct KovaScriptedSend {
    int nError = 0;
    size_t nMost = 0;
};

/// What the system does to send(), sendto(), sendmsg(), each message of sendmmsg()
/// and close() of the test program, the library's objects included. Descriptors that no test
/// watches are not touched. One object at a time.
class KovaSocketFaults {
public:
    KovaSocketFaults();
    ~KovaSocketFaults();
    KovaSocketFaults(const KovaSocketFaults &) = delete;
    KovaSocketFaults &operator=(const KovaSocketFaults &) = delete;

    /// The next sends on nSocket end like these, one after the other; those
    /// behind them are real again.
    void Script(int nSocket, std::deque<KovaScriptedSend> sends);

    /// Scripted sends that have not been made yet.
    size_t Left();

    /// The flags of the last send on the scripted descriptor.
    int Flags();

    /// Called just before nSocket is closed.
    void OnClose(int nSocket, std::function<void()> action);

private:
    friend struct KovaSocketHooks;
    std::mutex m_mutex;
    int m_nSocket = -1;
    std::deque<KovaScriptedSend> m_sends;
    int m_nFlags = 0;
    int m_nClosing = -1;
    std::function<void()> m_onClose;
};
