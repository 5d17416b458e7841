#pragma once

#include "options.h"
#include "output.h"
#include "repeats.h"
#include "table.h"

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kovastream {

/// Everything that is printed. Takes standard output over, since the classic server prints there by
/// itself, and gives each line its place: on a terminal above the live status lines; with
/// --status json to standard error, so that standard output has objects only; with --log to the
/// file.
class Console {
public:
    /// Throws Failure when the log file cannot be written.
    explicit Console(const Options &options);
    /// Standard output is as before afterwards, and everything is written.
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    /// Whether status lines are redrawn in place.
    bool IsLive() const
    {
        return m_live;
    }
    /// Prints a line of our own.
    void Print(const std::string &line);
    /// Prints whole lines of a server that does not print them itself.
    void PrintServer(const std::string &lines);
    /// Shows the status: in place on a terminal, as further lines elsewhere.
    void ShowStatus(const Table &status);
    /// Says on standard error what has kept lines from being written, once.
    void TellLosses();
    /// Whether nobody reads standard output any more.
    bool IsBroken() const;

private:
    void TakeOver();
    void ReadLibrary();
    void PrintClassic(const std::string &all);
    void PrintAbove(const std::string &lines);
    std::string Erased() const;
    std::string Drawn();

    const bool m_json;
    const LibraryLines m_libraryLines;
    int m_original; ///< what standard output was
    int m_pipe = -1;
    int m_log = -1;
    bool m_live = false;
    std::mutex m_mutex; ///< guards the status lines and their order with other lines
    Table m_status;
    std::vector<size_t> m_drawn; ///< lengths of the status lines on the screen
    Repeats m_repeats;
    std::unique_ptr<Output> m_out;
    std::unique_ptr<Output> m_error;
    std::thread m_reader;
};

} // namespace kovastream
