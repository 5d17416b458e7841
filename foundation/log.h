#pragma once

#include "foundation/export.h"

#include <atomic>
#include <cstdint>

/// Levels of log lines in use.
enum KovaLogLevel : uint32_t {
    kLogFailure = 1,  ///< socket errors, failed creations
    kLogOverflow = 2, ///< units dropped at a full ring
    kLogPacket = 3,   ///< one line per packet and client
    kLogThread = 4,   ///< thread entry and exit, timestamp anomalies, summaries
    kLogFigures = 5,  ///< the monitor's figures every second
};

/// Lines with a level up to this one are printed. Initially 2.
KOVA_API std::atomic<uint32_t> Rtsp_DebugLevel;
static_assert(sizeof(Rtsp_DebugLevel) == sizeof(uint32_t), "the level is one plain word");
static_assert(alignof(std::atomic<uint32_t>) == alignof(uint32_t), "the level is one plain word");

/// Sets Rtsp_DebugLevel.
KOVA_API void RTSP_SetLogLevel(uint32_t nLevel);

/// Prints one line on standard output, behind the local time as
/// "YYYY/MM/DD HH:MM:SS ", if the level passes. The format brings its own line
/// end; stamp and message together are cut at 8191 characters. In the finished
/// message "%%" prints as "%" and every other "%" as it stands.
/// May be called from every thread; a line is written in one piece.
KOVA_API void TimeLog(uint32_t nLevel, const char *szFormat, ...)
    __attribute__((format(printf, 2, 3)));
