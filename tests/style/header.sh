#!/usr/bin/env bash
# Each public header compiles alone, first and twice, as C99 and as C++17, without a warning.
set -euo pipefail
status=0
check() {
    if ! "$@" -Wall -Wextra -pedantic -Werror -fsyntax-only -I "${KOVA_SOURCE_DIR:?}/include" - \
        <<<"$source"; then
        echo "not accepted: $*"
        status=1
    fi
}
# check_header <header> <record> <result>
check_header() {
    local compiler
    source="#include \"$1\""$'\n'"#include \"$1\""$'\n'
    source+="$2 kova_record;"$'\n'"int main(void) { return $3; }"$'\n'
    for compiler in gcc clang; do
        check "$compiler" -x c -std=c99
    done
    for compiler in g++ clang++; do
        check "$compiler" -x c++ -std=c++17
    done
}
check_header kova_rtsp_server.h KovaRtspStatus KOVA_OK
check_header kova_live.h KovaLiveConfig KOVA_LIVE_OK
exit $status
