#pragma once

/// How long and how a mode runs.
struct KovaSoakOptions {
    int nSeconds = 20;   ///< at most
    int nRounds = 0;     ///< of fire; 0: as many as the time allows
    unsigned nRate = 50; ///< players of the churn per second
    unsigned nSeed = 1;
};

/// Players come and go; afterwards everything is as it was. Returns the exit
/// status: 0 when all was well.
int KovaRunChurn(const KovaSoakOptions &options);

/// Players come and go while the host takes the server apart under them, round
/// by round.
int KovaRunFire(const KovaSoakOptions &options);
