#pragma once

/// How an attempt to send ended.
enum KovaSendOutcome {
    kSendDone,   ///< everything is on its way
    kSendAgain,  ///< no room just now, or interrupted: try again
    kSendFailed, ///< not sent; errno says why
};

/// Sorts the result of a send call by errno.
KovaSendOutcome KovaSendOutcomeOfError(int nError);
