#!/usr/bin/env bash
# The public functions and the records that they take are as they were when packaging/abi was
# written: programs that were linked then run with this library. On purpose changed? Then raise
# what has to be raised (0.x: the SONAME as well) and run scripts/abi-dump.
set -euo pipefail
export LC_ALL=C
source=${KOVA_SOURCE_DIR:?}
library=${KOVA_BUILD_DIR:?}/libkovartspserver.so.0
dump=$source/packaging/abi/libkovartspserver.so.0.abi
header=$source/include/kova_rtsp_server.h
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0

# The dump knows what the header declares, neither more nor less. (The library's inner operations
# are exported too; cmake/exports.txt pins their names.)
declared=$(grep -oE '\b(KovaRtspServer|RTSP_)[A-Za-z]+\(' "$header" | tr -d '(' | sort -u)
dumped=$(sed -n "s/.*<elf-symbol name='\([^']*\)'.*/\1/p" "$dump" | sort -u)
if ! diff -u --label 'public header' --label dump - <(echo "$dumped") <<<"$declared"; then
    echo "the header and the dump differ"
    status=1
fi
if ! grep -q "<class-decl name='KovaRtspStatus' size-in-bits='96'" "$dump"; then
    echo "the dump does not know the status record"
    status=1
fi

if [[ $(readelf -S "$library") != *debug_info* ]]; then
    echo "$library has no debugging information: nothing could be compared"
    status=1
fi
cat >"$work/suppressions" <<END
[suppress_function]
  symbol_name_not_regexp = ^($(paste -sd '|' <<<"$declared"))\$
  drop = yes
[suppress_variable]
  symbol_name = Rtsp_DebugLevel
  drop = yes
END
abidiff --suppressions "$work/suppressions" "$dump" "$library" || {
    echo "the public interface has changed (abidiff: $?)"
    status=1
}

# Records that are passed as void * are unknown to the library's debugging information.
cat >"$work/records.c" <<'END'
#include <stddef.h>
#include "kova_rtsp_server.h"
#define IS(name, is) typedef char name[(is) ? 1 : -1]
IS(audio_size, sizeof(KovaAudioDescription) == 12);
IS(audio_bitrate, offsetof(KovaAudioDescription, nBitrate) == 0);
IS(audio_rate, offsetof(KovaAudioDescription, nSampleRate) == 4);
IS(audio_channels, offsetof(KovaAudioDescription, nChannels) == 8);
IS(video_size, sizeof(KovaVideoDescription) == 4);
IS(video_bitrate, offsetof(KovaVideoDescription, nBitrate) == 0);
IS(status_size, sizeof(KovaRtspStatus) == 12);
IS(status_value, offsetof(KovaRtspStatus, value) == 4);
IS(results, KOVA_OK == 0 && KOVA_ERROR_FAILED == 1 && KOVA_ERROR_NULL == 2 &&
            KOVA_ERROR_CREATE == 4 && KOVA_ERROR_NO_SESSION == 5 && KOVA_ERROR_SOCKET == 7 &&
            KOVA_ERROR_SETSOCKOPT == 8 && KOVA_ERROR_BIND == 9 && KOVA_ERROR_LISTEN == 10 &&
            KOVA_ERROR_THREAD == 11 && KOVA_ERROR_OVERFLOW == 12 && KOVA_ERROR_PUSH == -1);
IS(media, KOVA_MEDIA_AUDIO == 1 && KOVA_MEDIA_VIDEO == 2);
IS(payload_ids, KOVA_PAYLOAD_ID_AUDIO == 96 && KOVA_PAYLOAD_ID_VIDEO == 97);
IS(limits, KOVA_ADDRESS_SIZE == 16 && KOVA_MAX_CLIENTS == 1024 && KOVA_MAX_URI_LENGTH == 1024);
IS(status_types, KOVA_STATUS_CLIENT_COUNT == 1 && KOVA_STATUS_BITRATE == 2 &&
                 KOVA_STATUS_STREAM == 3);
IS(stream_status, KOVA_STREAM_NOT_READY == 1 && KOVA_STREAM_IDLE == 2 &&
                  KOVA_STREAM_FLOWING == 3 && KOVA_STREAM_STALLED == 4);
END
if ! gcc -std=c99 -fsyntax-only -I "$source/include" "$work/records.c"; then
    echo "a record or a constant of the public header has changed"
    status=1
fi
exit $status
