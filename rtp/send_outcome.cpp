#include "rtp/send_outcome.h"

#include <cerrno>

KovaSendOutcome KovaSendOutcomeOfError(int nError)
{
    return nError == EINTR || nError == EAGAIN ? kSendAgain : kSendFailed;
}
