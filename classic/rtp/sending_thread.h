#pragma once

#include "foundation/export.h"

/// Body of a send group's thread; the argument is the KovaRtpSendGroup. Takes
/// packets from the group's queue in order, paces them against their
/// presentation timestamps, and sends each to every playing client, with sender
/// reports in between. Leaves, with the group's state word at stopped, when the
/// word is no longer running and the queue is empty.
KOVA_API void *pSenderProc(void *pSendGroup);
