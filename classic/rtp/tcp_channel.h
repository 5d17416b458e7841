#pragma once

#include "rtp/interleaved_batch.h"
#include "rtp/send_outcome.h"

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

/// An RTSP connection's socket as a sending path, shared by the connection and
/// the interleaved clients of it. Everything that touches the descriptor goes
/// through the channel's lock, so that
///  - a frame once begun is finished before any other byte goes out,
///  - -1 stands in the socket field before the descriptor is closed, and nobody
///    sends to, reads from or closes a number that the system has given to
///    somebody else meanwhile.
/// No call waits, except KovaTcpChannelWaitReadable.
struct KovaTcpChannel;

/// How far a frame has come that did not go out in one piece. Starts zeroed.
struct KovaFrameProgress {
    bool bBegun;
    uint32_t nFrame;
};

/// What became of a response.
struct KovaResponseProgress {
    size_t nLeft; ///< bytes that did not go out
    int nError;   ///< errno of the send that failed; 0 when none did
};

/// Joins the channel of the socket field at pSocket; the first to come makes it.
/// The field belongs to the caller (a connection, usually) and must stay valid
/// until KovaTcpChannelAbandon. Returns null for null or without memory.
KovaTcpChannel *KovaTcpChannelJoin(int *pSocket);

/// Leaves the channel; the last one out frees it. Null is ignored.
void KovaTcpChannelLeave(KovaTcpChannel *pChannel);

/// Lets *ppReference follow the channel's socket field: it points at the field
/// while that lives, and at a field that holds -1 from then on. Returns false
/// without memory. Ended by KovaTcpChannelUnfollow.
bool KovaTcpChannelFollow(KovaTcpChannel *pChannel, std::atomic<int *> *ppReference);
void KovaTcpChannelUnfollow(KovaTcpChannel *pChannel, std::atomic<int *> *ppReference);

/// Closes the connection if it is open and parts the channel from the socket
/// field, whose memory is about to go.
void KovaTcpChannelAbandon(KovaTcpChannel *pChannel);

/// Writes -1 into the socket field, then closes the descriptor if it was above 0.
void KovaTcpChannelClose(KovaTcpChannel *pChannel);

/// Sends one interleaved frame. kSendAgain: call again with the same progress,
/// later; a frame that was begun counts as sent when the rest has gone out,
/// whoever sent it. kSendFailed with ECONNRESET also for a connection that has
/// taken nothing for 10 s while frames were tried.
KovaSendOutcome KovaTcpChannelSendFrame(KovaTcpChannel *pChannel, const uint8_t *pFrame,
                                        size_t nSize, KovaFrameProgress *pProgress);

/// Sends interleaved frames in order, as many as go out with few system calls.
/// kSendAgain: the next frame had no room, or not enough; call again, later, with that
/// frame first and the same progress. It counts as sent when its rest has gone out,
/// whoever sent it. kSendFailed: the next frame is not sent; errors as with one frame.
/// @param pSent      receives the number of frames that are out as a whole
/// @param pProgress  of the first frame, then of the next one
KovaSendOutcome KovaTcpChannelSendFrames(KovaTcpChannel *pChannel,
                                         const KovaInterleavedFrame *pFrames, uint32_t nCount,
                                         uint32_t *pSent, KovaFrameProgress *pProgress);

/// Sends a response until everything is out or the socket takes no more.
KovaResponseProgress KovaTcpChannelSendResponse(KovaTcpChannel *pChannel, const uint8_t *pBytes,
                                                size_t nSize);

/// recv() on the connection; EBADF once it is closed. Never waits.
ssize_t KovaTcpChannelReceive(KovaTcpChannel *pChannel, uint8_t *pBuffer, size_t nSize);

/// Waits until there is something to receive, the connection ends, somebody
/// wakes the reader, or nMilliseconds have passed (below 0: without a limit). One
/// reader.
void KovaTcpChannelWaitReadable(KovaTcpChannel *pChannel, int nMilliseconds);

/// Which of the reader's waits are ended.
enum KovaReaderWake {
    kWakeForGood, ///< all of them, also one that has not begun yet
    kWakeFromWait ///< the one that it is in, if it is in one; nothing more is received then
};

void KovaTcpChannelWakeReader(KovaTcpChannel *pChannel, KovaReaderWake wake);

/// Gives the connection its time-out of 10 s for unacknowledged data
/// (TCP_USER_TIMEOUT), where the system has it: a peer that takes nothing for that
/// long ends as a connection error. It overrides the count of lost answers, so
/// only a connection that carries media has it. May be called again.
void KovaTcpChannelLimitSending(KovaTcpChannel *pChannel);
