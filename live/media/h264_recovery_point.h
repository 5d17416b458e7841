#pragma once

#include "live/media/h264_nals.h"

/// Whether an SEI NAL unit has a recovery point message (ITU-T H.264, D.2.8): a
/// decoder may begin at its picture.
bool KovaH264HasRecoveryPoint(const KovaNal &nal);
