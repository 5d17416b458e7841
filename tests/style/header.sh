#!/usr/bin/env bash
# The public header compiles alone, first and twice, as C99 and as C++17, without a warning.
set -euo pipefail
source=$'#include "kova_rtsp_server.h"\n#include "kova_rtsp_server.h"\n'
source+=$'KovaRtspStatus kova_status;\nint main(void) { return KOVA_OK; }\n'
status=0
check() {
    if ! "$@" -Wall -Wextra -pedantic -Werror -fsyntax-only -I "${KOVA_SOURCE_DIR:?}/include" - \
        <<<"$source"; then
        echo "not accepted: $*"
        status=1
    fi
}
for compiler in gcc clang; do
    check "$compiler" -x c -std=c99
done
for compiler in g++ clang++; do
    check "$compiler" -x c++ -std=c++17
done
exit $status
