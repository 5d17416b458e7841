#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Takes what the process prints on standard output, from its construction to
/// Stop() or its destruction, also what other threads and child processes print.
/// It goes into a file in memory: nobody who prints ever waits for the test.
/// If an assertion has failed, the text is printed in the end, because the
/// assertion's own message is in it. One capture at a time.
class KovaStdoutCapture {
public:
    KovaStdoutCapture();
    ~KovaStdoutCapture();
    KovaStdoutCapture(const KovaStdoutCapture &) = delete;
    KovaStdoutCapture &operator=(const KovaStdoutCapture &) = delete;

    /// Everything printed since the start or the last Clear().
    std::string Text();

    /// The same in lines, without their ends. What stands behind the last line
    /// end is a line of its own, if it is not empty.
    std::vector<std::string> Lines();

    /// The lines without the time stamp that TimeLog() puts in front; a line
    /// without a stamp is given as it is.
    std::vector<std::string> Messages();

    /// Forgets what has been printed so far.
    void Clear();

    /// Waits until the text contains this; false when nMilliseconds have passed.
    bool WaitFor(std::string_view text, int nMilliseconds);

    /// Ends the capture; the text stays.
    void Stop();

private:
    int m_nFile = -1;
    int m_nStdout = -1;
    size_t m_nStart = 0;
};

/// The line without a stamp "YYYY/MM/DD HH:MM:SS " in front, if it has one.
std::string KovaWithoutStamp(const std::string &line);
